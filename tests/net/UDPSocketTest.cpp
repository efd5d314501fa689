// UDPSocket against a plain loopback echo peer.
#include "net/UDPSocket.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "net/NetTestSupport.h"
#include "platform/Log.h"

namespace quillon {
namespace {

// Sends every datagram back to its sender, reversed, until stopped.
class EchoPeer {
public:
    EchoPeer() {
        fd_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in a = test::loopback(0);
        if (fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0)
            throw std::runtime_error("udp");
        port_ = test::boundPort(fd_);
        thread_ = std::thread([this] {
            std::vector<char> buffer(70000);
            while (!stopping_) {
                pollfd p{fd_, POLLIN, 0};
                if (::poll(&p, 1, 20) <= 0) continue;
                sockaddr_in from{};
                socklen_t size = sizeof from;
                ssize_t n = ::recvfrom(fd_, buffer.data(), buffer.size(), 0,
                                       reinterpret_cast<sockaddr*>(&from), &size);
                if (n < 0) continue;
                std::reverse(buffer.begin(), buffer.begin() + n);
                ::sendto(fd_, buffer.data(), static_cast<std::size_t>(n), 0,
                         reinterpret_cast<sockaddr*>(&from), size);
            }
        });
    }
    ~EchoPeer() {
        stopping_ = true;
        thread_.join();
        ::close(fd_);
    }
    std::uint16_t port() const { return port_; }

private:
    int fd_ = -1;
    std::uint16_t port_ = 0;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

TEST(UDPSocket, RoundTripOnLoopback) {
    EchoPeer peer;
    UDPSocket s;
    struct Case {
        const char* what;
        Bytes payload;
    };
    Bytes large(60000);
    for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<std::uint8_t>(i % 253);
    for (const Case& c : {Case{"short", Bytes{'a', 'b', 'c'}}, Case{"near the size limit", large}}) {
        s.write(c.payload, "127.0.0.1", peer.port());
        std::string ip;
        std::uint16_t port = 0;
        auto got = s.readBytesSenderIP(ip, port, 5);
        ASSERT_TRUE(got.has_value()) << c.what;
        Bytes expected(c.payload.rbegin(), c.payload.rend());
        EXPECT_TRUE(*got == expected) << c.what;
        EXPECT_EQ(ip, "127.0.0.1");
        EXPECT_EQ(port, peer.port());
    }
    // The blocking receive gets the same answer.
    s.write(Bytes{'x', 'y'}, "localhost", peer.port());
    std::string ip;
    std::uint16_t port = 0;
    auto got = s.readBytesSenderIP(ip, port);
    ASSERT_TRUE(got.has_value());
    EXPECT_EQ(asText(*got), "yx");
}

TEST(UDPSocket, NothingArrivingGivesNoDatagram) {
    EchoPeer peer;
    UDPSocket s;
    // Binds the socket to a port by sending, without asking for an answer.
    s.write(Bytes{}, "127.0.0.1", peer.port());
    std::string ip;
    std::uint16_t port = 0;
    auto empty = s.readBytesSenderIP(ip, port, 5);
    ASSERT_TRUE(empty.has_value());
    EXPECT_TRUE(empty->empty());
    EXPECT_FALSE(s.readBytesSenderIP(ip, port, 0.2).has_value());
}

TEST(UDPSocket, ClosedSocketLogsAndReturnsNothing) {
    UDPSocket s;
    s.setConnected(true);
    s.close();
    Log::Capture log;
    s.write(Bytes{'a'}, "127.0.0.1", test::unusedPort());
    EXPECT_TRUE(log.contains("Sendto command failed"));
    std::string ip;
    std::uint16_t port = 0;
    EXPECT_FALSE(s.readBytesSenderIP(ip, port, 600).has_value());
    EXPECT_TRUE(log.contains("An error occured while receiving data"));
}

}  // namespace
}  // namespace quillon
