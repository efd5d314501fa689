// Socket, TCPSocket (client side) and UDPSocket against plain loopback peers:
// host look-up, every read edge case in one table, writes, connect failures.
#include "net/Socket.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "net/NetTestSupport.h"
#include "net/TCPSocket.h"
#include "net/UDPSocket.h"
#include "platform/Log.h"
#include "platform/NamedException.h"

namespace quillon {
namespace {

using test::LoopbackPeer;
using namespace std::string_literals;

std::string text(const Bytes& b) { return std::string(b.begin(), b.end()); }

// Runs `op`, which must raise; returns the exception's name and reason.
template <typename Op>
std::pair<std::string, std::string> failureOf(Op op) {
    try {
        op();
    } catch (const NamedException& e) {
        return {e.name(), e.reason()};
    }
    ADD_FAILURE() << "no exception raised";
    return {};
}

TEST(Socket, LooksUpLiteralsAndNames) {
    // Reading a literal fails only on zero; anything unreadable is left to the resolver.
    for (const auto& [literal, ok, address] :
         std::vector<std::tuple<const char*, bool, std::uint32_t>>{{"10.1.2.3", true, 0x0a010203},
                                                                   {"0.0.0.0", false, 0},
                                                                   {"0", false, 0},
                                                                   {"1.2.3.4.5", true, 0xffffffff},
                                                                   {"no such host", true, 0xffffffff},
                                                                   {"", true, 0xffffffff}}) {
        in_addr out{};
        EXPECT_EQ(Socket::addressFromLiteral(literal, out), ok) << literal;
        if (ok) {
            EXPECT_EQ(ntohl(out.s_addr), address) << literal;
        }
    }
    for (const char* host : {"127.0.0.1", "localhost"}) {
        sockaddr_in out{};
        ASSERT_TRUE(Socket::lookupHost(host, 8000, out)) << host;
        EXPECT_EQ(out.sin_family, AF_INET);
        EXPECT_EQ(out.sin_port, htons(8000));
        EXPECT_EQ(ntohl(out.sin_addr.s_addr), INADDR_LOOPBACK) << host;
    }
}

// How the peer ends after sending: close, hold the connection open and silent,
// reset it, or trickle the bytes one every 0.1 s and then close.
enum class End { close, hold, reset, trickle };

TEST(TCPSocket, ReadEdgeCases) {
    using Read = std::function<std::string(TCPSocket&)>;
    const auto data = [](std::size_t n, double t = 5) {
        return [=](TCPSocket& s) { return text(s.readData(n, t)); };
    };
    const auto upTo = [](std::string d, std::size_t max, double t = 5) {
        return [=](TCPSocket& s) { return text(s.readDataUpToData(d, max, t)); };
    };
    const auto upToString = [](std::string d, double t = 5) {
        return [=](TCPSocket& s) { return text(s.readDataUpToString(d, t)); };
    };
    const auto bounded = [](std::size_t max, double t = 5) {
        return [=](TCPSocket& s) { return text(s.readBoundedUpToString("\r\n\r\n", max, t)); };
    };
    struct Case {
        const char* what;
        std::string sent;
        End end;
        Read read;
        std::string expected;   // what the read returns, or the name of what it raises
        std::string rest = "";  // still unread afterwards (all of it when the peer closes)
    };
    const std::string longLine(3000, 'x');
    const std::vector<Case> cases = {
        // Plain reads stop short at the end of the stream without raising or closing.
        {"data: whole", "hello world", End::close, data(5), "hello", " world"},
        {"data: short at the end", "hello", End::close, data(10), "hello"},
        {"data: nothing at the end", "", End::close, data(4), ""},
        {"data: silent peer", "ab", End::hold, data(4, 0.2), "TCP read timeout"},
        {"data: reset", "", End::reset, data(4), "TCP Read Error"},
        {"data: time-out counts per wait, not per call", "0123456789", End::trickle, data(10, 0.5),
         "0123456789"},
        {"buffer: count at the end", "abc", End::close,
         [](TCPSocket& s) {
             char b[10] = {};
             const auto n = s.readBytesToBuffer(b, sizeof b);
             return std::string(b, n) + (s.connected() ? "|connected" : "|closed");
         },
         "abc|connected"},
        {"buffer: length below one reads nothing", "abc", End::hold,
         [](TCPSocket& s) {
             char b[4] = {'x', 'x', 'x', 'x'};
             const auto n = s.readBytesToBuffer(b, std::int64_t{0}, 0.2) +
                            s.readBytesToBuffer(b, std::int64_t{-3}, 0.2) +
                            s.readBytesToBuffer(b, std::size_t{0});
             return std::to_string(n) + std::string(b, 4);
         },
         "0xxxx", "abc"},
        {"buffer: interrupted from another thread", "ab", End::hold,
         [](TCPSocket& s) {
             const std::string first = text(s.readData(2, 5));
             std::thread interrupter([&] { s.interrupt(); });
             char b[16];
             // Without the interrupt this would sit out the 30-second wait and raise.
             const auto n = s.readBytesToBuffer(b, std::int64_t{16}, 30.0);
             interrupter.join();
             return first + "|" + std::to_string(n);
         },
         "ab|0"},
        // Delimiter reads: never past the delimiter, at most `max` bytes.
        {"upTo: header", "ICY 200 OK\r\nicy-br:128\r\n\r\nAUDIO", End::close, upTo("\r\n\r\n", 100),
         "ICY 200 OK\r\nicy-br:128\r\n\r\n", "AUDIO"},
        {"upTo: delimiter at the start", "\r\nxyz", End::close, upTo("\r\n", 10), "\r\n", "xyz"},
        {"upTo: overlapping prefix", "aaab|rest", End::close, upTo("aab", 10), "aaab", "|rest"},
        {"upTo: absent, exactly max", "abcdefghij", End::close, upTo("\r\n", 6), "abcdef", "ghij"},
        {"upTo: delimiter longer than max", "abcdef", End::close, upTo("abcd", 3), "abc", "def"},
        {"upTo: delimiter as long as max", "abcdef", End::close, upTo("abcd", 4), "abcd", "ef"},
        {"upTo: end mid-header, zero padded", "ab\r", End::close, upTo("\r\n\r\n", 8), "ab\r\0\0\0\0\0"s},
        {"upTo: nothing before the end", "", End::close, upTo("\n", 4), "\0\0\0\0"s},
        {"upTo: silent peer", "ab", End::hold, upTo("\r\n\r\n", 64, 0.2), "TCP read timeout"},
        {"string: one line", "GET / HTTP/1.0\r\nHost: a\r\n", End::close, upToString("\r\n"),
         "GET / HTTP/1.0\r\n", "Host: a\r\n"},
        {"string: beyond the first kilobyte", longLine + "\ntail", End::close, upToString("\n"),
         longLine + "\n", "tail"},
        {"string: end before the delimiter", "220 no end", End::close, upToString("\r\n"), "220 no end"},
        {"string: end inside the first read", "a", End::close, upToString("\r\n"), "a"},
        {"string: silent peer", "ab", End::hold, upToString("\r\n", 0.2), "TCP read timeout"},
        {"bounded: stops at the delimiter", "GET /\r\n\r\nbody", End::hold, bounded(64), "GET /\r\n\r\n",
         "body"},
        {"bounded: partial delimiter first", "a\r\n\r\r\n\r\nrest", End::hold, bounded(64), "a\r\n\r\r\n\r\n",
         "rest"},
        {"bounded: completed by the last byte allowed", "abcdefgh\r\n\r\nxy", End::hold, bounded(12),
         "abcdefgh\r\n\r\n", "xy"},
        {"bounded: no delimiter within the bound", "abcdefghijklmnop", End::hold, bounded(12, 0.3),
         "TCP read limit", "mnop"},
        {"bounded: the peer ends the stream", "GET /", End::close, bounded(64), "GET /"},
        {"bounded: the peer falls silent", "GET /", End::hold, bounded(64, 0.3), "TCP read timeout"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        LoopbackPeer peer([&c](int fd, LoopbackPeer& p) {
            if (c.end == End::trickle) {
                for (char ch : c.sent) {
                    test::sendAll(fd, std::string(1, ch));
                    if (!p.pause(0.1)) return;
                }
                return;
            }
            test::sendAll(fd, c.sent);
            if (c.end == End::reset) test::resetOnClose(fd);
            if (c.end == End::hold) p.holdUntilStopped();
        });
        TCPSocket s;
        ASSERT_TRUE(s.connectToHostName("127.0.0.1", peer.port()));
        std::string got;
        try {
            got = c.read(s);
        } catch (const NamedException& e) {
            EXPECT_EQ(e.reason().rfind(e.name() + " (", 0), 0u) << e.reason();
            got = e.name();
        }
        EXPECT_EQ(got, c.expected);
        if (c.end == End::close) {
            EXPECT_EQ(text(s.readData(1024, 5)), c.rest);
        }
        if (c.end == End::hold && !c.rest.empty()) {
            EXPECT_EQ(text(s.readData(c.rest.size(), 5)), c.rest);
        }
    }
}

TEST(TCPSocket, WritesArriveInOrderOrFailLoudly) {
    std::promise<std::string> received;
    LoopbackPeer recorder([&](int fd, LoopbackPeer&) { received.set_value(test::receiveAll(fd)); });
    TCPSocket s;
    ASSERT_TRUE(s.connectToHostName("127.0.0.1", recorder.port()));
    Bytes block(1 << 20);
    for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    s.writeData(block, 5);
    s.writeString("GET /\0ignored", 5);
    s.writeBytes("|plain", 6);
    s.writeBytes("|timed", std::int32_t{6}, 5);
    s.writeBytes("never", std::int32_t{-1}, 5);
    s.close();
    auto future = received.get_future();
    ASSERT_EQ(future.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_TRUE(future.get() == text(block) + "GET /|plain|timed");

    // A peer that stops reading: the socket buffers fill after a few megabytes at most.
    LoopbackPeer stalled([](int, LoopbackPeer& p) { p.holdUntilStopped(); });
    TCPSocket t;
    ASSERT_TRUE(t.connectToHostName("127.0.0.1", stalled.port()));
    const Bytes chunk(1 << 20, 0x55);
    auto [name, reason] = failureOf([&] {
        for (int i = 0; i < 512; ++i) t.writeData(chunk, 0.2);
    });
    EXPECT_EQ(name, "TCP Write timeout");
    EXPECT_EQ(reason.rfind("TCP Write timeout (", 0), 0u) << reason;

    // A vanished peer, through either write.
    LoopbackPeer vanished([](int fd, LoopbackPeer&) { test::resetOnClose(fd); });
    TCPSocket u;
    ASSERT_TRUE(u.connectToHostName("127.0.0.1", vanished.port()));
    for (bool timed : {true, false}) {
        auto [name, reason] = failureOf([&] {
            for (int i = 0; i < 1000; ++i)
                timed ? u.writeData(std::span(chunk).first(65536), 5)
                      : u.writeBytes(chunk.data(), std::size_t{65536});
        });
        EXPECT_EQ(name, "TCP Write Error") << timed;
        EXPECT_EQ(reason.rfind("TCP Write Error (", 0), 0u) << reason;
    }
}

TEST(TCPSocket, ConnectStateAndFailures) {
    LoopbackPeer peer([](int fd, LoopbackPeer& p) {
        test::sendAll(fd, "xy");
        p.holdUntilStopped();
    });
    TCPSocket s;
    {
        Log::Capture log;
        EXPECT_FALSE(s.connected());
        EXPECT_FALSE(s.isReadable());
        EXPECT_TRUE(log.lines().empty()) << "an unconnected socket is quietly unreadable";
    }
    ASSERT_TRUE(s.connectToHostName("localhost", peer.port()));
    EXPECT_TRUE(s.connected());
    EXPECT_EQ(s.remoteHostName(), "localhost");
    EXPECT_EQ(s.remotePort(), peer.port());
    EXPECT_TRUE(s.isWritable());
    EXPECT_FALSE(s.shouldDelete());
    // "xy" arrives in one segment: readable while a byte is left.
    EXPECT_EQ(text(s.readData(1, 5)), "x");
    EXPECT_TRUE(s.isReadable());
    EXPECT_EQ(text(s.readData(1, 5)), "y");
    EXPECT_FALSE(s.isReadable());
    {
        Log::Capture log;
        EXPECT_FALSE(s.connectToHostName("127.0.0.1", peer.port()));
        EXPECT_TRUE(log.contains("TCP Connection error : already connected"));
        EXPECT_EQ(s.remotePort(), peer.port());
    }
    s.close();
    EXPECT_FALSE(s.connected());
    EXPECT_TRUE(s.shouldDelete());
    EXPECT_EQ(s.remoteHostName(), "");
    EXPECT_EQ(s.remotePort(), 0);
    {
        // A closed socket has no descriptor and fails at once instead of sitting out a long wait.
        Log::Capture log;
        EXPECT_FALSE(s.connectToHostName("127.0.0.1", peer.port()));
        EXPECT_TRUE(log.contains("TCP Connection error : bad descriptor"));
        EXPECT_FALSE(s.listenOnPort(0));
        EXPECT_TRUE(log.contains("TCP Listen error : bad descriptor"));
        EXPECT_FALSE(s.isWritable());
        EXPECT_FALSE(s.isReadable());
        EXPECT_EQ(failureOf([&] { s.readData(4, 600); }).first, "TCP read error");
        EXPECT_EQ(failureOf([&] { s.writeString("x", 600); }).first, "TCP Write error");
    }
    Log::Capture log;
    TCPSocket refused;
    EXPECT_FALSE(refused.connectToHostName("127.0.0.1", test::unusedPort()));
    EXPECT_TRUE(log.contains("TCP Connection error : connect failed"));
    EXPECT_FALSE(refused.connected());

    // A socket of no concrete kind makes no descriptor, and nothing works.
    struct BareSocket : Socket {
        BareSocket() { created = createSocket(); }
        bool created = true;
    } bare;
    EXPECT_FALSE(bare.created);
    EXPECT_TRUE(log.contains("Warning : abstract, use one of the subclasses"));
    EXPECT_FALSE(bare.connectToHostName("127.0.0.1", 9));
    bare.setConnected(true);
    EXPECT_FALSE(bare.isReadable());
    EXPECT_TRUE(log.contains("Socket isReadable error bad descriptor"));
}

TEST(UDPSocket, RoundTripsThroughALoopbackPeer) {
    // The peer answers one datagram, reversed, per datagram it is sent.
    FileHandle peer(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in a = test::loopback(0);
    ASSERT_EQ(::bind(peer.fd(), reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    const std::uint16_t peerPort = test::boundPort(peer.fd());
    const auto answer = [&] {
        std::vector<char> buffer(70000);
        sockaddr_in from{};
        socklen_t size = sizeof from;
        const ssize_t n =
            ::recvfrom(peer.fd(), buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
        ASSERT_GE(n, 0);
        std::reverse(buffer.begin(), buffer.begin() + n);
        ::sendto(peer.fd(), buffer.data(), static_cast<std::size_t>(n), 0, reinterpret_cast<sockaddr*>(&from),
                 size);
    };
    Bytes large(60000);
    for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<std::uint8_t>(i % 253);
    UDPSocket s;
    for (const auto& [host, payload, timeout] :
         std::vector<std::tuple<const char*, Bytes, double>>{{"127.0.0.1", Bytes{'a', 'b', 'c'}, 5},
                                                             {"127.0.0.1", large, 5},
                                                             {"localhost", Bytes{}, 5},
                                                             {"localhost", Bytes{'x', 'y'}, -1}}) {
        s.write(payload, host, peerPort);
        answer();
        std::string ip;
        std::uint16_t port = 0;
        const auto got = timeout < 0 ? s.readBytesSenderIP(ip, port) : s.readBytesSenderIP(ip, port, timeout);
        ASSERT_TRUE(got.has_value()) << payload.size();
        EXPECT_TRUE(*got == Bytes(payload.rbegin(), payload.rend())) << payload.size();
        EXPECT_EQ(ip, "127.0.0.1");
        EXPECT_EQ(port, peerPort);
    }
    std::string ip;
    std::uint16_t port = 0;
    EXPECT_FALSE(s.readBytesSenderIP(ip, port, 0.2).has_value()) << "nothing arrives";

    s.setConnected(true);
    s.close();
    Log::Capture log;
    s.write(Bytes{'a'}, "127.0.0.1", peerPort);
    EXPECT_TRUE(log.contains("Sendto command failed"));
    EXPECT_FALSE(s.readBytesSenderIP(ip, port, 600).has_value());
    EXPECT_TRUE(log.contains("An error occured while receiving data"));
}

}  // namespace
}  // namespace quillon
