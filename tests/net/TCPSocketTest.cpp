// Client side of TCPSocket against plain loopback peers: reads and writes with
// time-outs, end of stream, delimiter reads, connect and the readiness probes.
#include "net/TCPSocket.h"

#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "net/NetTestSupport.h"
#include "platform/Log.h"
#include "platform/NamedException.h"

namespace quillon {
namespace {

using test::LoopbackPeer;

std::string text(const Bytes& b) { return std::string(b.begin(), b.end()); }

// A peer that sends `payload`, then closes (or stays open and silent).
LoopbackPeer::Script sending(std::string payload, bool thenClose = true) {
    return [payload, thenClose](int fd, LoopbackPeer& peer) {
        test::sendAll(fd, payload);
        if (!thenClose) peer.holdUntilStopped();
    };
}

void connectTo(TCPSocket& s, const LoopbackPeer& peer) {
    ASSERT_TRUE(s.connectToHostName("127.0.0.1", peer.port()));
}

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

TEST(TCPSocketRead, ReadDataStopsShortAtEndOfStream) {
    struct Case {
        std::string sent;
        std::size_t asked;
        std::string expected;
    };
    for (const Case& c :
         std::vector<Case>{{"hello world", 5, "hello"}, {"hello", 10, "hello"}, {"", 4, ""}}) {
        LoopbackPeer peer(sending(c.sent));
        TCPSocket s;
        connectTo(s, peer);
        EXPECT_EQ(text(s.readData(c.asked, 5)), c.expected) << c.sent;
        // End of stream neither raises nor closes.
        EXPECT_TRUE(s.connected());
    }
}

TEST(TCPSocketRead, BlockingReadReturnsCountAtEndWithoutClosing) {
    LoopbackPeer peer(sending("abc"));
    TCPSocket s;
    connectTo(s, peer);
    char buffer[10] = {};
    EXPECT_EQ(s.readBytesToBuffer(buffer, sizeof buffer), 3u);
    EXPECT_EQ(std::string(buffer, 3), "abc");
    EXPECT_TRUE(s.connected());
}

TEST(TCPSocketRead, SilentPeerRaisesReadTimeout) {
    const std::vector<std::pair<const char*, std::function<void(TCPSocket&)>>> reads{
        {"readData", [](TCPSocket& s) { s.readData(4, 0.2); }},
        {"readDataUpToData", [](TCPSocket& s) { s.readDataUpToData("\r\n\r\n", 64, 0.2); }},
        {"readDataUpToString", [](TCPSocket& s) { s.readDataUpToString("\r\n", 0.2); }},
    };
    for (const auto& [what, read] : reads) {
        LoopbackPeer peer(sending("ab", false));
        TCPSocket s;
        connectTo(s, peer);
        auto [name, reason] = failureOf([&] { read(s); });
        EXPECT_EQ(name, "TCP read timeout") << what;
        EXPECT_EQ(reason.rfind("TCP read timeout (", 0), 0u) << reason;
        EXPECT_EQ(reason.back(), ')') << what;
    }
}

TEST(TCPSocketRead, BoundedDelimiterReadStopsAtTheDelimiterTheBoundOrTheEnd) {
    struct Case {
        const char* what;
        std::string sent;
        bool thenClose;
        std::size_t max;
        std::string expected;  // when it returns
        std::string failure;   // when it raises
        std::string after;     // what is still unread
    };
    const std::vector<Case> cases{
        {"never reads past the delimiter", "GET /\r\n\r\nbody", false, 64, "GET /\r\n\r\n", "", "body"},
        {"a partial delimiter first", "a\r\n\r\r\n\r\nrest", false, 64, "a\r\n\r\r\n\r\n", "", "rest"},
        {"completed by the last byte allowed", "abcdefgh\r\n\r\nxy", false, 12, "abcdefgh\r\n\r\n", "", "xy"},
        {"no delimiter within the bound", "abcdefghijklmnop", false, 12, "", "TCP read limit", "mnop"},
        {"the peer ends the stream", "GET /", true, 64, "GET /", "", ""},
        {"the peer falls silent", "GET /", false, 64, "", "TCP read timeout", ""},
    };
    for (const Case& c : cases) {
        LoopbackPeer peer(sending(c.sent, c.thenClose));
        TCPSocket s;
        connectTo(s, peer);
        if (c.failure.empty()) {
            EXPECT_EQ(text(s.readBoundedUpToString("\r\n\r\n", c.max, 5)), c.expected) << c.what;
        } else {
            EXPECT_EQ(failureOf([&] { s.readBoundedUpToString("\r\n\r\n", c.max, 0.3); }).first, c.failure)
                << c.what;
        }
        if (!c.after.empty()) {
            EXPECT_EQ(text(s.readData(c.after.size(), 5)), c.after) << c.what;
        }
    }
}

TEST(TCPSocketRead, TimeOutCountsPerWaitNotPerCall) {
    // Ten bytes, one every 0.1 s: the call takes about a second in all, but no
    // single wait comes near the half-second time-out.
    LoopbackPeer peer([](int fd, LoopbackPeer& p) {
        for (char c = '0'; c <= '9'; ++c) {
            test::sendAll(fd, std::string(1, c));
            if (!p.pause(0.1)) return;
        }
    });
    TCPSocket s;
    connectTo(s, peer);
    EXPECT_EQ(text(s.readData(10, 0.5)), "0123456789");
}

TEST(TCPSocketRead, InterruptFromAnotherThreadEndsABlockedRead) {
    LoopbackPeer peer(sending("ab", false));
    auto s = std::make_shared<TCPSocket>();
    connectTo(*s, peer);
    std::size_t got = 99;
    std::thread reader([&] {
        char buffer[16];
        // Without the interrupt this would sit out the 30-second wait and raise.
        got = s->readBytesToBuffer(buffer, std::int64_t{16}, 30.0);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    s->interrupt();
    reader.join();
    EXPECT_EQ(got, 2u);
}

TEST(TCPSocketRead, LengthBelowOneReadsNothing) {
    LoopbackPeer peer(sending("abc", false));
    TCPSocket s;
    connectTo(s, peer);
    char buffer[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(s.readBytesToBuffer(buffer, std::int64_t{0}, 0.2), 0u);
    EXPECT_EQ(s.readBytesToBuffer(buffer, std::int64_t{-3}, 0.2), 0u);
    EXPECT_EQ(s.readBytesToBuffer(buffer, std::size_t{0}), 0u);
    EXPECT_EQ(std::string(buffer, 4), "xxxx");
    // The bytes are still waiting.
    EXPECT_EQ(text(s.readData(3, 5)), "abc");
}

TEST(TCPSocketRead, ResetByPeerRaisesReadError) {
    LoopbackPeer peer([](int fd, LoopbackPeer&) { test::resetOnClose(fd); });
    TCPSocket s;
    connectTo(s, peer);
    auto [name, reason] = failureOf([&] { s.readData(4, 5); });
    EXPECT_EQ(name, "TCP Read Error");
    EXPECT_EQ(reason.rfind("TCP Read Error (", 0), 0u) << reason;
}

TEST(TCPSocketRead, ReadDataUpToData) {
    using namespace std::string_literals;
    struct Case {
        const char* what;
        std::string payload;
        std::string delimiter;
        std::size_t max;
        std::string expected;
        std::string rest;  // what is left unread afterwards
    };
    const std::vector<Case> cases{
        {"header up to blank line", "ICY 200 OK\r\nicy-br:128\r\n\r\nAUDIO", "\r\n\r\n", 100,
         "ICY 200 OK\r\nicy-br:128\r\n\r\n", "AUDIO"},
        {"delimiter right at the start", "\r\nxyz", "\r\n", 10, "\r\n", "xyz"},
        {"overlapping prefix", "aaab|rest", "aab", 10, "aaab", "|rest"},
        {"absent: exactly max bytes", "abcdefghij", "\r\n", 6, "abcdef", "ghij"},
        {"delimiter longer than max", "abcdef", "abcd", 3, "abc", "def"},
        {"delimiter as long as max", "abcdef", "abcd", 4, "abcd", "ef"},
        {"end of stream mid-header: zero padded", "ab\r", "\r\n\r\n", 8, "ab\r\0\0\0\0\0"s, ""},
        {"nothing before end of stream", "", "\n", 4, "\0\0\0\0"s, ""},
    };
    for (const Case& c : cases) {
        LoopbackPeer peer(sending(c.payload));
        TCPSocket s;
        connectTo(s, peer);
        Bytes got = s.readDataUpToData(asBytes(c.delimiter), c.max, 5);
        EXPECT_EQ(text(got), c.expected) << c.what;
        EXPECT_EQ(text(s.readData(1024, 5)), c.rest) << c.what;
    }
}

TEST(TCPSocketRead, ReadDataUpToString) {
    struct Case {
        const char* what;
        std::string payload;
        std::string delimiter;
        std::string expected;
        std::string rest;
    };
    const std::string longLine(3000, 'x');
    const std::vector<Case> cases{
        {"one line", "GET / HTTP/1.0\r\nHost: a\r\n", "\r\n", "GET / HTTP/1.0\r\n", "Host: a\r\n"},
        {"beyond the first kilobyte", longLine + "\n" + "tail", "\n", longLine + "\n", "tail"},
        {"end of stream before the delimiter", "220 no end", "\r\n", "220 no end", ""},
        {"end of stream inside the first read", "a", "\r\n", "a", ""},
    };
    for (const Case& c : cases) {
        LoopbackPeer peer(sending(c.payload));
        TCPSocket s;
        connectTo(s, peer);
        EXPECT_EQ(text(s.readDataUpToString(c.delimiter, 5)), c.expected) << c.what;
        EXPECT_EQ(text(s.readData(1024, 5)), c.rest) << c.what;
    }
}

// A peer that records everything it receives.
struct RecordingPeer {
    std::mutex mutex;
    std::string received;
    bool done = false;
    LoopbackPeer peer{[this](int fd, LoopbackPeer&) {
        std::string all = test::receiveAll(fd);
        std::lock_guard lock(mutex);
        received = std::move(all);
        done = true;
    }};
    std::string waitForAll() {
        for (int i = 0; i < 1000; ++i) {
            {
                std::lock_guard lock(mutex);
                if (done) return received;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return "(peer did not finish)";
    }
};

TEST(TCPSocketWrite, EveryWriteArrivesIntactAndInOrder) {
    RecordingPeer r;
    TCPSocket s;
    connectTo(s, r.peer);
    Bytes block(1 << 20);
    for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    s.writeData(block, 5);
    s.writeString("GET /\0ignored", 5);
    s.writeBytes("|plain", 6);
    s.writeBytes("|timed", std::int32_t{6}, 5);
    s.writeBytes("never", std::int32_t{-1}, 5);
    s.close();
    std::string expected(block.begin(), block.end());
    expected += "GET /|plain|timed";
    std::string got = r.waitForAll();
    ASSERT_EQ(got.size(), expected.size());
    EXPECT_TRUE(got == expected);
}

TEST(TCPSocketWrite, PeerThatStopsReadingRaisesWriteTimeout) {
    LoopbackPeer peer([](int, LoopbackPeer& p) { p.holdUntilStopped(); });
    TCPSocket s;
    connectTo(s, peer);
    Bytes chunk(1 << 20, 0x55);
    auto [name, reason] = failureOf([&] {
        // The socket buffers fill after a few megabytes at most.
        for (int i = 0; i < 512; ++i) s.writeData(chunk, 0.2);
    });
    EXPECT_EQ(name, "TCP Write timeout");
    EXPECT_EQ(reason.rfind("TCP Write timeout (", 0), 0u) << reason;
}

TEST(TCPSocketWrite, VanishedPeerRaisesWriteError) {
    LoopbackPeer peer([](int fd, LoopbackPeer&) { test::resetOnClose(fd); });
    TCPSocket s;
    connectTo(s, peer);
    Bytes chunk(64 * 1024, 1);
    for (auto write : {0, 1}) {
        auto [name, reason] = failureOf([&] {
            for (int i = 0; i < 1000; ++i) {
                if (write == 0)
                    s.writeData(chunk, 5);
                else
                    s.writeBytes(chunk.data(), chunk.size());
            }
        });
        EXPECT_EQ(name, "TCP Write Error") << write;
        EXPECT_EQ(reason.rfind("TCP Write Error (", 0), 0u) << reason;
    }
}

TEST(TCPSocketConnect, ConnectRecordsPeerAndCloseForgetsIt) {
    LoopbackPeer peer(sending("", false));
    TCPSocket s;
    EXPECT_FALSE(s.connected());
    ASSERT_TRUE(s.connectToHostName("localhost", peer.port()));
    EXPECT_TRUE(s.connected());
    EXPECT_EQ(s.remoteHostName(), "localhost");
    EXPECT_EQ(s.remotePort(), peer.port());
    EXPECT_TRUE(s.isWritable());
    EXPECT_FALSE(s.shouldDelete());
    s.close();
    EXPECT_FALSE(s.connected());
    EXPECT_TRUE(s.shouldDelete());
    EXPECT_EQ(s.remoteHostName(), "");
    EXPECT_EQ(s.remotePort(), 0);
}

TEST(TCPSocketConnect, FailuresLogTheirReason) {
    LoopbackPeer peer(sending("", false));
    {
        Log::Capture log;
        TCPSocket s;
        connectTo(s, peer);
        EXPECT_FALSE(s.connectToHostName("127.0.0.1", peer.port()));
        EXPECT_TRUE(log.contains("TCP Connection error : already connected"));
        EXPECT_TRUE(s.connected());
        EXPECT_EQ(s.remotePort(), peer.port());
    }
    {
        Log::Capture log;
        TCPSocket s;
        EXPECT_FALSE(s.connectToHostName("127.0.0.1", test::unusedPort()));
        EXPECT_TRUE(log.contains("TCP Connection error : connect failed"));
        EXPECT_FALSE(s.connected());
        EXPECT_EQ(s.remoteHostName(), "");
    }
}

TEST(TCPSocketConnect, ClosedSocketHasNoDescriptor) {
    LoopbackPeer peer(sending("", false));
    TCPSocket s;
    connectTo(s, peer);
    s.close();
    Log::Capture log;
    EXPECT_FALSE(s.connectToHostName("127.0.0.1", peer.port()));
    EXPECT_TRUE(log.contains("TCP Connection error : bad descriptor"));
    EXPECT_FALSE(s.listenOnPort(0));
    EXPECT_TRUE(log.contains("TCP Listen error : bad descriptor"));
    EXPECT_FALSE(s.isWritable());
    EXPECT_FALSE(s.isReadable());
    // Fails at once instead of sitting out a long wait.
    EXPECT_EQ(failureOf([&] { s.readData(4, 600); }).first, "TCP read error");
    EXPECT_EQ(failureOf([&] { s.writeString("x", 600); }).first, "TCP Write error");
}

TEST(TCPSocketConnect, IsReadableFollowsThePeer) {
    {
        Log::Capture log;
        TCPSocket unconnected;
        EXPECT_FALSE(unconnected.isReadable());
        EXPECT_TRUE(log.lines().empty());
    }
    // The peer answers only once it has heard from us.
    LoopbackPeer peer([](int fd, LoopbackPeer& p) {
        char go;
        if (::recv(fd, &go, 1, 0) != 1) return;
        test::sendAll(fd, "x");
        p.holdUntilStopped();
    });
    TCPSocket s;
    connectTo(s, peer);
    EXPECT_FALSE(s.isReadable());
    s.writeString("g", 5);
    bool readable = false;
    for (int i = 0; i < 500 && !readable; ++i) {
        readable = s.isReadable();
        if (!readable) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(readable);
    EXPECT_EQ(text(s.readData(1, 5)), "x");
    EXPECT_FALSE(s.isReadable());
}

}  // namespace
}  // namespace quillon
