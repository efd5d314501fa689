#pragma once
// For the relay tests: a connection scripted by the test, and players: plain
// POSIX clients on 127.0.0.1 that send a request and read what the relay serves
// on a thread of their own (parseIcyReply cuts what they received), or that
// keep sending and never finish their request.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include <gtest/gtest.h>

#include "net/RelaySource.h"
#include "platform/Timing.h"
#include "support/Icy.h"
#include "support/Loopback.h"
#include "support/MainThread.h"

namespace quillon::test {

// A connection as the relay sees it, set by the test.
class ScriptedSource : public RelaySource {
public:
    std::atomic<int> state{5};
    std::atomic<unsigned> blockSize{1000};
    std::atomic<bool> meta{true};
    std::atomic<std::uint16_t> port{0};
    std::atomic<unsigned> kbps{128};
    std::atomic<int> refreshes{0};

    void setTitle(std::string t) {
        std::lock_guard lock(mutex_);
        title_ = std::move(t);
    }
    int ripperState() const override { return state; }
    unsigned bufferSize() const override { return blockSize; }
    bool hasMeta() const override { return meta; }
    std::string currentTrack() const override {
        std::lock_guard lock(mutex_);
        return title_;
    }
    std::string streamHeader() const override { return "ICY 200 OK\r\nicy-metaint:1000\r\n\r\n"; }
    std::uint16_t servePort() const override { return port; }
    unsigned bitrate() const override { return kbps; }
    void refreshStatus() override { ++refreshes; }

private:
    mutable std::mutex mutex_;
    std::string title_ = "First - Title";
};

// A client that sends `prefix`, then `chunk` again and again, resting `rest`
// seconds after each, until the other side hangs up (a send fails) or the
// client is destroyed.
class EndlessSender {
public:
    EndlessSender(std::uint16_t port, std::string prefix, std::string chunk, double rest)
        : fd_(connectToLoopback(port)) {
        if (!fd_.isOpen()) {
            hungUp_ = true;
            return;
        }
        thread_ = std::thread([this, prefix = std::move(prefix), chunk = std::move(chunk), rest] {
            bool ok = sendAll(prefix);
            while (ok && !stop_) {
                ok = sendAll(chunk);
                if (rest > 0) std::this_thread::sleep_for(std::chrono::duration<double>(rest));
            }
            hungUp_ = !ok;
        });
    }
    ~EndlessSender() {
        stop_ = true;
        if (fd_.isOpen()) ::shutdown(fd_.fd(), SHUT_RDWR);  // frees a blocked send
        if (thread_.joinable()) thread_.join();
    }
    EndlessSender(const EndlessSender&) = delete;
    EndlessSender& operator=(const EndlessSender&) = delete;

    // The other side closed or reset the connection.
    bool hungUp() const { return hungUp_; }
    std::size_t sent() const { return sent_; }

private:
    bool sendAll(std::string_view bytes) {
        while (!bytes.empty()) {
            ssize_t n = ::send(fd_.fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (n <= 0) return false;
            sent_ += static_cast<std::size_t>(n);
            bytes.remove_prefix(static_cast<std::size_t>(n));
        }
        return true;
    }

    FileHandle fd_;
    std::atomic<bool> stop_{false};
    std::atomic<bool> hungUp_{false};
    std::atomic<std::size_t> sent_{0};
    std::thread thread_;
};

// A player. `reading` false: connects, sends its request and then never reads,
// with a small receive buffer so that it stalls early.
class RelayClient {
public:
    struct Options {
        bool reading = true;
        bool sendRequest = true;
        // A small receive buffer and a rest after each read: the relay's
        // sends then often go only in part.
        double restAfterRead = 0;
    };

    RelayClient(std::uint16_t port, Options options) : options_(options) {
        fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (!options.reading || options.restAfterRead > 0) {
            int small = 4096;
            ::setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
        }
        sockaddr_in a = loopback(port);
        connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
        if (connected_ && options.sendRequest) {
            std::string_view request = "GET /any/path HTTP/1.0\r\nIcy-MetaData: 1\r\n\r\n";
            ::send(fd_, request.data(), request.size(), MSG_NOSIGNAL);
        }
        if (connected_ && options.reading) thread_ = std::thread([this] { readLoop(); });
    }
    explicit RelayClient(std::uint16_t port) : RelayClient(port, Options{}) {}
    ~RelayClient() { close(); }
    RelayClient(const RelayClient&) = delete;
    RelayClient& operator=(const RelayClient&) = delete;

    bool connected() const { return connected_; }
    // The relay closed the connection (end of stream or reset).
    bool ended() const { return ended_; }
    std::string received() const {
        std::lock_guard lock(mutex_);
        return data_;
    }
    std::size_t receivedSize() const {
        std::lock_guard lock(mutex_);
        return data_.size();
    }
    // Vanishes at once: a reset, as a player that is killed.
    void vanish() {
        linger l{1, 0};
        ::setsockopt(fd_, SOL_SOCKET, SO_LINGER, &l, sizeof l);
        close();
    }
    void close() {
        stop_ = true;
        if (thread_.joinable()) thread_.join();
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

private:
    void readLoop() {
        char chunk[65536];
        while (!stop_) {
            pollfd p{fd_, POLLIN, 0};
            if (::poll(&p, 1, 20) <= 0) continue;
            ssize_t n = ::recv(fd_, chunk, options_.restAfterRead > 0 ? 1500 : sizeof chunk, 0);
            if (n <= 0) break;
            {
                std::lock_guard lock(mutex_);
                data_.append(chunk, static_cast<std::size_t>(n));
            }
            if (options_.restAfterRead > 0)
                std::this_thread::sleep_for(std::chrono::duration<double>(options_.restAfterRead));
        }
        ended_ = !stop_;
    }

    Options options_;
    int fd_ = -1;
    bool connected_ = false;
    std::atomic<bool> stop_{false};
    std::atomic<bool> ended_{false};
    mutable std::mutex mutex_;
    std::string data_;
    std::thread thread_;
};

// Relay tests: a quick feed cadence and accept wait, and the test's thread as
// the main thread, whose queued tasks are run before the next test.
class RelayFixture : public ::testing::Test {
protected:
    void SetUp() override {
        timing().relayCadence = 0.005;
        timing().acceptWait = 0.2;
        timing().streamReadTimeout = 5;
        becomeMainThread();
    }
    void TearDown() override { drainMainLoop(); }
};

}  // namespace quillon::test
