// The base socket: host look-up and what a socket without a subclass does.
#include "net/Socket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <vector>

#include "platform/Log.h"

namespace quillon {
namespace {

TEST(SocketLookup, LiteralReadingFailsOnlyOnZero) {
    struct Case {
        const char* text;
        bool ok;
        std::uint32_t address;  // host order
    };
    const std::vector<Case> cases{
        {"10.1.2.3", true, 0x0a010203},  {"127.0.0.1", true, 0x7f000001},
        {"0.0.0.0", false, 0},           {"0", false, 0},
        {"1.2.3.4.5", true, 0xffffffff}, {"no such host", true, 0xffffffff},
        {"", true, 0xffffffff},
    };
    for (const Case& c : cases) {
        in_addr out{};
        EXPECT_EQ(Socket::addressFromLiteral(c.text, out), c.ok) << c.text;
        if (c.ok) {
            EXPECT_EQ(ntohl(out.s_addr), c.address) << c.text;
        }
    }
}

TEST(SocketLookup, ResolvesNamesAndLiteralsWithPortInNetworkOrder) {
    for (const char* host : {"127.0.0.1", "localhost"}) {
        sockaddr_in out{};
        ASSERT_TRUE(Socket::lookupHost(host, 8000, out)) << host;
        EXPECT_EQ(out.sin_family, AF_INET);
        EXPECT_EQ(out.sin_port, htons(8000));
        EXPECT_EQ(ntohl(out.sin_addr.s_addr), INADDR_LOOPBACK) << host;
    }
}

// A socket of no concrete kind, as a subclass that does not make a descriptor.
struct BareSocket : Socket {
    BareSocket() { created = createSocket(); }
    bool created = true;
};

TEST(SocketBase, WithoutSubclassNothingWorks) {
    Log::Capture log;
    BareSocket s;
    EXPECT_FALSE(s.created);
    EXPECT_TRUE(log.contains("Warning : abstract, use one of the subclasses"));
    EXPECT_FALSE(s.connectToHostName("127.0.0.1", 9));
    EXPECT_FALSE(s.listenOnPort(0));
    EXPECT_TRUE(log.contains("TCP Listen error : bad descriptor"));
    EXPECT_FALSE(s.isWritable());
    s.setConnected(true);
    EXPECT_FALSE(s.isReadable());
    EXPECT_TRUE(log.contains("Socket isReadable error bad descriptor"));
}

}  // namespace
}  // namespace quillon
