// The listening side of TCPSocket: binding, the accept thread and its hand-off
// to the main thread, the clients list and its sweep, and stopping a listener
// in the awkward moments.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "net/NetTestSupport.h"
#include "net/TCPSocket.h"
#include "platform/Log.h"
#include "support/Files.h"
#include "support/MainThread.h"

namespace quillon {
namespace {

using Accepted = std::vector<std::shared_ptr<TCPSocket>>;

class TCPSocketListen : public ::testing::Test {
protected:
    void SetUp() override {
        timing().acceptWait = 0.2;
        test::becomeMainThread();
    }
    void TearDown() override { test::drainMainLoop(); }

    // Records every client handed over, on the main thread.
    static void collectInto(TCPSocket& listener, Accepted& accepted) {
        listener.setNewClientHandler([&accepted](std::shared_ptr<TCPSocket> c, auto) {
            EXPECT_TRUE(MainLoop::main().isMainThread());
            accepted.push_back(std::move(c));
        });
    }

    static bool runUntilAccepted(const Accepted& accepted, std::size_t n) {
        return test::runUntil([&] { return accepted.size() >= n; }, 30);
    }

    // Waits, without running the main loop, until the listener has `n` clients.
    static bool waitForClients(const TCPSocket& listener, std::size_t n) {
        for (int i = 0; i < 15000; ++i) {
            if (listener.clients().size() >= n) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return false;
    }

private:
    test::ScopedTiming savedTiming_;
};

TEST_F(TCPSocketListen, EphemeralPortHandsWorkingClientsToTheMainThread) {
    TCPSocket listener;
    Accepted accepted;
    std::vector<std::chrono::system_clock::time_point> times;
    listener.setNewClientHandler([&](std::shared_ptr<TCPSocket> c, std::chrono::system_clock::time_point at) {
        EXPECT_TRUE(MainLoop::main().isMainThread());
        accepted.push_back(std::move(c));
        times.push_back(at);
    });
    ASSERT_TRUE(listener.listenOnPort(0));
    EXPECT_TRUE(listener.isListening());
    ASSERT_NE(listener.listeningPort(), 0);

    auto before = std::chrono::system_clock::now();
    TCPSocket client;
    ASSERT_TRUE(client.connectToHostName("127.0.0.1", listener.listeningPort()));
    client.writeString("GET / HTTP/1.0\r\n\r\n", 5);
    ASSERT_TRUE(runUntilAccepted(accepted, 1));
    auto after = std::chrono::system_clock::now();

    auto& served = *accepted[0];
    EXPECT_TRUE(served.connected());
    EXPECT_EQ(ntohl(served.inetAddress().sin_addr.s_addr), INADDR_LOOPBACK);
    EXPECT_LE(before, times[0]);
    EXPECT_LE(times[0], after);
    ASSERT_EQ(listener.clients().size(), 1u);
    EXPECT_EQ(listener.clients()[0].get(), accepted[0].get());

    Bytes request = served.readDataUpToData("\r\n\r\n", 1024, 5);
    EXPECT_EQ(asText(request), "GET / HTTP/1.0\r\n\r\n");
    served.writeString("ICY 200 OK\r\n", 5);
    EXPECT_EQ(asText(client.readDataUpToString("\r\n", 5)), "ICY 200 OK\r\n");
}

TEST_F(TCPSocketListen, ManyClientsLeaveNoDescriptorBehind) {
    constexpr std::size_t kClients = 200;
    {
        // Warm-up, so that lazily opened descriptors of the process are counted
        // in `before` as well.
        TCPSocket listener;
        Accepted accepted;
        collectInto(listener, accepted);
        ASSERT_TRUE(listener.listenOnPort(0));
        TCPSocket c;
        ASSERT_TRUE(c.connectToHostName("127.0.0.1", listener.listeningPort()));
        ASSERT_TRUE(runUntilAccepted(accepted, 1));
    }
    const std::size_t before = test::openDescriptorCount();
    {
        auto listener = std::make_unique<TCPSocket>();
        Accepted accepted;
        collectInto(*listener, accepted);
        ASSERT_TRUE(listener->listenOnPort(0));
        std::vector<std::unique_ptr<TCPSocket>> clients;
        std::thread connector([&, port = listener->listeningPort()] {
            for (std::size_t i = 0; i < kClients; ++i) {
                // Stays within the backlog of five: a connection beyond it waits
                // for the kernel's retransmission, seconds later.
                if (i >= 4 && !waitForClients(*listener, i - 3)) return;
                auto c = std::make_unique<TCPSocket>();
                if (!c->connectToHostName("127.0.0.1", port)) return;
                clients.push_back(std::move(c));
            }
        });
        bool all = runUntilAccepted(accepted, kClients);
        connector.join();
        ASSERT_TRUE(all);
        EXPECT_EQ(clients.size(), kClients);
        EXPECT_EQ(listener->clients().size(), kClients);
        // One descriptor per connection end and one for the listener: an accepted
        // client costs nothing extra.
        EXPECT_EQ(test::openDescriptorCount(), before + 2 * kClients + 1);
        for (auto& c : accepted) c->close();
        clients.clear();
        listener.reset();
    }
    EXPECT_EQ(test::openDescriptorCount(), before);
}

TEST_F(TCPSocketListen, DestroyingListenerWhileAcceptThreadWaitsForMainThread) {
    auto listener = std::make_unique<TCPSocket>();
    bool handled = false;
    listener->setNewClientHandler([&](auto, auto) { handled = true; });
    ASSERT_TRUE(listener->listenOnPort(0));
    TCPSocket client;
    ASSERT_TRUE(client.connectToHostName("127.0.0.1", listener->listeningPort()));
    // The main loop is not running, so the accept thread now waits for it.
    ASSERT_TRUE(waitForClients(*listener, 1));
    {
        test::Watchdog watchdog("destroying a listener blocked in the hand-off", 30);
        listener.reset();
    }
    test::drainMainLoop(0.1);
    EXPECT_FALSE(handled);
}

TEST_F(TCPSocketListen, StoppingListenerFromInsideItsHandler) {
    auto listener = std::make_unique<TCPSocket>();
    std::shared_ptr<TCPSocket> kept;
    listener->setNewClientHandler([&](std::shared_ptr<TCPSocket> c, auto) {
        kept = std::move(c);
        test::Watchdog watchdog("destroying a listener from its own handler", 30);
        listener.reset();
    });
    ASSERT_TRUE(listener->listenOnPort(0));
    std::uint16_t port = listener->listeningPort();
    TCPSocket client;
    ASSERT_TRUE(client.connectToHostName("127.0.0.1", port));
    ASSERT_TRUE(test::runUntil([&] { return kept != nullptr; }, 30));
    EXPECT_EQ(listener, nullptr);
    // The handler's reference outlives the listener.
    kept->writeString("still here", 5);
    EXPECT_EQ(asText(client.readData(10, 5)), "still here");
    // Nothing listens on the port any more.
    Log::Capture log;
    TCPSocket late;
    EXPECT_FALSE(late.connectToHostName("127.0.0.1", port));
}

TEST_F(TCPSocketListen, SweepSkipsTheClientThatSlidesIntoARemovedPlace) {
    TCPSocket listener;
    ASSERT_TRUE(listener.listenOnPort(0));
    // Without a handler clients are only listed; connecting one at a time keeps
    // them in order.
    std::vector<std::unique_ptr<TCPSocket>> peers;
    for (std::size_t i = 1; i <= 4; ++i) {
        peers.push_back(std::make_unique<TCPSocket>());
        ASSERT_TRUE(peers.back()->connectToHostName("127.0.0.1", listener.listeningPort()));
        ASSERT_TRUE(waitForClients(listener, i));
    }
    auto listed = listener.clients();
    listed[0]->close();
    listed[1]->close();
    listed[3]->setShouldDelete(true);

    listener.removeClosedSockets();
    auto afterFirst = listener.clients();
    ASSERT_EQ(afterFirst.size(), 2u);
    EXPECT_EQ(afterFirst[0], listed[1]);
    EXPECT_EQ(afterFirst[1], listed[2]);

    listener.removeClosedSockets();
    auto afterSecond = listener.clients();
    ASSERT_EQ(afterSecond.size(), 1u);
    EXPECT_EQ(afterSecond[0], listed[2]);
}

TEST_F(TCPSocketListen, ListensOnceClosesAndFreesThePortAtOnce) {
    TCPSocket first;
    ASSERT_TRUE(first.listenOnPort(0));
    const std::uint16_t port = first.listeningPort();
    Log::Capture log;
    EXPECT_FALSE(first.listenOnPort(0));
    EXPECT_TRUE(log.contains("TCP Listen error : already connected"));
    TCPSocket second;
    EXPECT_FALSE(second.listenOnPort(port));
    EXPECT_TRUE(log.contains("Unable to bind to address"));
    EXPECT_FALSE(second.isListening());

    Accepted accepted;
    collectInto(first, accepted);
    TCPSocket client;
    ASSERT_TRUE(client.connectToHostName("127.0.0.1", port));
    EXPECT_FALSE(client.listenOnPort(0));
    EXPECT_EQ(log.lines().back(), "TCP Listen error : already connected");
    ASSERT_TRUE(runUntilAccepted(accepted, 1));
    first.close();
    EXPECT_FALSE(first.isListening());
    EXPECT_TRUE(first.clients().empty());
    EXPECT_TRUE(accepted[0]->connected()) << "clients are released, not closed";
    TCPSocket late;
    EXPECT_FALSE(late.connectToHostName("127.0.0.1", port));
    EXPECT_TRUE(log.contains("TCP Connection error : connect failed"));

    // The server end closes first, which leaves its side of the connection in
    // TIME_WAIT on the listening port; a new listener takes the port all the same.
    accepted[0]->close();
    EXPECT_EQ(client.readData(1, 5).size(), 0u);
    TCPSocket again;
    EXPECT_TRUE(again.listenOnPort(port));
    EXPECT_EQ(again.listeningPort(), port);
}

}  // namespace
}  // namespace quillon
