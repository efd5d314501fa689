#pragma once
// Loopback peers for the socket tests: plain POSIX servers on 127.0.0.1 that
// run a script per connection on their own thread, so that our sockets are
// checked against code that does not share their implementation.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "support/Loopback.h"

namespace quillon::test {

inline void sendAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t n = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (n <= 0) return;
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
}

// An HTTP request's header, through its blank line; nothing when the other
// side closes first.
inline std::optional<std::string> receiveRequest(int fd) {
    std::string request;
    char buf[4096];
    while (request.find("\r\n\r\n") == std::string::npos) {
        ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n <= 0) return std::nullopt;
        request.append(buf, static_cast<std::size_t>(n));
    }
    return request;
}

// Everything the peer receives until the other side closes (or `limit` seconds pass).
inline std::string receiveAll(int fd, double limit = 10) {
    std::string out;
    char chunk[65536];
    auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    while (std::chrono::steady_clock::now() < end) {
        pollfd p{fd, POLLIN, 0};
        if (::poll(&p, 1, 50) <= 0) continue;
        ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
        if (n <= 0) break;
        out.append(chunk, static_cast<std::size_t>(n));
    }
    return out;
}

// Makes the next close send a reset instead of an orderly end of stream.
inline void resetOnClose(int fd) {
    linger l{1, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &l, sizeof l);
}

// A TCP server on 127.0.0.1 that accepts connections one after another and runs
// the script on each; the connection is closed when the script returns. The
// destructor stops the server and joins its thread.
class LoopbackPeer {
public:
    using Script = std::function<void(int fd, LoopbackPeer& peer)>;

    explicit LoopbackPeer(Script script)
        : script_(std::move(script)), listener_(listenOnLoopback()), port_(boundPort(listener_.fd())) {
        thread_ = std::thread([this] { run(); });
    }
    ~LoopbackPeer() {
        stop();
        thread_.join();
    }
    LoopbackPeer(const LoopbackPeer&) = delete;
    LoopbackPeer& operator=(const LoopbackPeer&) = delete;

    std::uint16_t port() const { return port_; }
    void stop() {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        changed_.notify_all();
    }
    // Keeps a connection open, silent, until the peer is stopped.
    void holdUntilStopped() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return stopping_; });
    }
    // Pauses a script; false when the peer is stopped meanwhile.
    bool pause(double seconds) {
        std::unique_lock lock(mutex_);
        return !changed_.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return stopping_; });
    }

private:
    void run() {
        while (true) {
            {
                std::lock_guard lock(mutex_);
                if (stopping_) return;
            }
            pollfd p{listener_.fd(), POLLIN, 0};
            if (::poll(&p, 1, 20) <= 0) continue;
            int fd = ::accept(listener_.fd(), nullptr, nullptr);
            if (fd < 0) continue;
            script_(fd, *this);
            ::close(fd);
        }
    }

    Script script_;
    FileHandle listener_;
    std::uint16_t port_ = 0;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool stopping_ = false;
    std::thread thread_;
};

// Ends the test binary with a message when a step hangs (a deadlock would
// otherwise only show as the test runner's time-out).
class Watchdog {
public:
    Watchdog(const char* what, double seconds) : what_(what) {
        thread_ = std::thread([this, seconds] {
            std::unique_lock lock(mutex_);
            if (!changed_.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return done_; })) {
                std::fprintf(stderr, "hung: %s\n", what_);
                std::_Exit(2);
            }
        });
    }
    ~Watchdog() {
        {
            std::lock_guard lock(mutex_);
            done_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }

private:
    const char* what_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool done_ = false;
    std::thread thread_;
};

}  // namespace quillon::test
