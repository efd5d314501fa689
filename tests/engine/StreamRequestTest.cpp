#include <gtest/gtest.h>

#include <string>

#include "engine/StreamRequest.h"

using namespace quillon;

TEST(StreamRequest, RequestTextByteForByte) {
    struct Case {
        const char* label;
        StreamRequestParams params;
        std::string text;
    };
    const Case cases[] = {
        {"direct, no user agent configured",
         {"radio.example", "8000", "/live", std::nullopt, false, std::nullopt},
         "GET /live HTTP/1.1\r\nAccept: */*\r\nCache-Control: no-cache\r\n"
         "User-Agent: QLN_Mac_OSX/1.70 (Macintosh; N; PPC)\r\nIcy-MetaData: 1\r\nConnection: close\r\n"
         "Host: radio.example:8000\r\n\r\n"},
        {"an empty user agent is sent empty",
         {"radio.example", "80", "/", std::nullopt, false, std::string()},
         "GET / HTTP/1.1\r\nAccept: */*\r\nCache-Control: no-cache\r\nUser-Agent: \r\nIcy-MetaData: 1\r\n"
         "Connection: close\r\nHost: radio.example:80\r\n\r\n"},
        {"through a proxy, with credentials",
         {"10.0.0.7", "8080", "/stream?id=3", std::string("user:pass"), true, std::string("WinampMPEG/5.0")},
         "GET http://10.0.0.7:8080/stream?id=3 HTTP/1.1\r\nAccept: */*\r\nCache-Control: no-cache\r\n"
         "User-Agent: WinampMPEG/5.0\r\nIcy-MetaData: 1\r\nConnection: close\r\nHost: 10.0.0.7:8080\r\n"
         "Extension: Security/Remote-Passphrase\r\nAuthorization: Basic dXNlcjpwYXNz\r\n\r\n"},
        {"line breaks cannot add header lines",
         {"h", "1", "/a\r\nX-Evil: 1", std::nullopt, false, std::string("ua\r\n")},
         "GET /aX-Evil: 1 HTTP/1.1\r\nAccept: */*\r\nCache-Control: no-cache\r\nUser-Agent: ua\r\n"
         "Icy-MetaData: 1\r\nConnection: close\r\nHost: h:1\r\n\r\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        EXPECT_EQ(logHeader(c.params), c.text);
    }
}

// Through a proxy, https asks for a tunnel; only a 2xx status line opens it.
TEST(StreamRequest, TunnelRequestAndReplies) {
    StreamRequestParams params{"radio.example", "443", "/live", std::nullopt, true, std::nullopt};
    EXPECT_EQ(tunnelRequest(params), "CONNECT radio.example:443 HTTP/1.1\r\nHost: radio.example:443\r\n\r\n");
    const std::pair<const char*, bool> replies[] = {
        {"HTTP/1.1 200 Connection established\r\n\r\n", true},
        {"HTTP/1.0 200\r\n\r\n", true},
        {"HTTP/1.1 204 No Content\r\n\r\n", true},
        {"HTTP/1.1 407 Proxy Authentication Required\r\n\r\n", false},
        {"HTTP/1.1 502 Bad Gateway\r\n\r\n", false},
        {"HTTP/1.1 2000 OK\r\n\r\n", false},
        {"ICY 200 OK\r\n\r\n", false},
        {"HTTP/1.1 2x0 OK\r\n\r\n", false},
        {"HTTP/1.1\r\n\r\n", false},
        {"", false},
    };
    for (auto [reply, opened] : replies) EXPECT_EQ(tunnelOpened(reply), opened) << reply;
}
