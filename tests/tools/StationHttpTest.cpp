// The station's request parsing, reply texts and option checks.
#include <gtest/gtest.h>

#include <functional>

#include "station/StationHttp.h"
#include "station/StationOptions.h"

namespace quillon {
namespace {

TEST(StationHttp, ParsesRequestLineAndMetadataWish) {
    // head, path (empty: rejected), metadata wanted
    const std::vector<std::tuple<std::string, std::string, bool>> cases = {
        {"GET /stream HTTP/1.1\r\nIcy-MetaData: 1\r\n\r\n", "/stream", true},
        {"GET / HTTP/1.0\r\nicy-metadata:1\r\n\r\n", "/", true},
        {"GET /a?b=c HTTP/1.1\r\nIcy-MetaData: 0\r\n\r\n", "/a?b=c", false},
        {"GET / HTTP/1.1\r\nHost: x\r\n\r\n", "/", false},
        {"GET /\r\n\r\n", "", false},
        {"GET  HTTP/1.1\r\n\r\n", "", false},
        {"GET / SIP/2.0\r\n\r\n", "", false},
        {"", "", false},
    };
    for (const auto& [head, path, metadata] : cases) {
        const auto request = StationHttp::parseRequest(head);
        ASSERT_EQ(request.has_value(), !path.empty()) << head;
        if (!request) continue;
        EXPECT_EQ(request->path, path) << head;
        EXPECT_EQ(request->wantsMetadata, metadata) << head;
    }
}

TEST(StationHttp, StreamHeaderServerLine) {
    StationOptions options;
    const auto serverLine = [&] {
        const std::string header = StationHttp::streamHeader(options, 8192);
        const auto at = header.find("Server: ");
        return at == std::string::npos ? std::string("-") : header.substr(at, header.find("\r\n", at) - at);
    };
    EXPECT_EQ(serverLine(), "-") << "none by default under ICY";
    options.status = StationStatus::http;
    EXPECT_EQ(serverLine(), "Server: Icecast 2.4.4") << "an Icecast server by default under HTTP";
    options.server = "";
    EXPECT_EQ(serverLine(), "-");
    options.server = "Nanocaster/2.1";
    EXPECT_EQ(serverLine(), "Server: Nanocaster/2.1");
}

TEST(StationOptions, ParsesTitleLists) {
    EXPECT_EQ(parseTitleList("  A - x , ,B - y,"), (std::vector<std::string>{"A - x", "B - y"}));
    EXPECT_TRUE(parseTitleList(" , ").empty());
}

TEST(StationOptions, RejectsOptionsThatCannotWork) {
    const std::vector<std::pair<const char*, std::function<void(StationOptions&)>>> bad = {
        {"zero bit rate", [](StationOptions& o) { o.bitrate = 0; }},
        {"mp3 at a non-MPEG rate", [](StationOptions& o) { o.bitrate = 100; }},
        {"bad metadata without metadata", [](StationOptions& o) { o.metaint = 0, o.badMetaAt = 1; }},
        {"bad metadata, titles withheld",
         [](StationOptions& o) { o.emptyTitles = EmptyTitles::blank, o.badMetaAt = 1; }},
        {"close after nothing", [](StationOptions& o) { o.closeAfter = 0; }},
        {"refusal with a success code", [](StationOptions& o) { o.refuse = 200; }},
        {"redirect to a non-http URL", [](StationOptions& o) { o.redirectTo = "ftp://127.0.0.1/"; }},
        {"redirect to nothing", [](StationOptions& o) { o.redirectTo = "http://"; }},
        {"redirect and refusal",
         [](StationOptions& o) { o.redirectTo = "http://127.0.0.1:1/", o.refuse = 404; }},
        {"line break in a header text", [](StationOptions& o) { o.name = "a\r\nicy-metaint:1"; }},
    };
    for (const auto& [what, change] : bad) {
        StationOptions options;
        change(options);
        EXPECT_THROW(validate(options), std::invalid_argument) << what;
    }
    StationOptions counter;
    counter.payload = StationPayload::counter;
    counter.bitrate = 100;
    EXPECT_NO_THROW(validate(counter)) << "any bit rate paces a counter payload";
}

}  // namespace
}  // namespace quillon
