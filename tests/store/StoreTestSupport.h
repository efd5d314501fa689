#pragma once
// Test helpers of the store tests: a loopback fake HTTP/ICY server and a scoped
// QUILLON_HOME.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "store/Preferences.h"
#include "support/Files.h"
#include "support/Loopback.h"
#include "support/MainThread.h"

namespace quillon::test {

// Serves one canned reply per connection on 127.0.0.1, one connection at a
// time. With `stream` set, it keeps sending filler bytes after the reply until
// the client hangs up (a live stream). `silent` accepts and never answers.
class FakeServer {
public:
    struct Options {
        std::string reply;
        bool stream = false;
        bool silent = false;
    };

    explicit FakeServer(Options options)
        : options_(std::move(options)), listener_(listenOnLoopback()), port_(boundPort(listener_.fd())) {
        thread_ = std::thread([this] { serve(); });
    }
    ~FakeServer() { stop(); }
    FakeServer(const FakeServer&) = delete;
    FakeServer& operator=(const FakeServer&) = delete;

    int port() const { return port_; }
    std::string url(const std::string& path = "/") const {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }
    std::vector<std::string> requests() const {
        std::lock_guard lock(mutex_);
        return requests_;
    }
    void stop() {
        stopping_ = true;
        if (thread_.joinable()) thread_.join();
        listener_.close();
    }

private:
    bool waitFor(int fd, short events) {
        while (!stopping_) {
            pollfd p{fd, events, 0};
            int n = ::poll(&p, 1, 20);
            if (n > 0) return true;
            if (n < 0 && errno != EINTR) return false;
        }
        return false;
    }

    void serve() {
        while (waitFor(listener_.fd(), POLLIN)) {
            int client = ::accept(listener_.fd(), nullptr, nullptr);
            if (client < 0) continue;
            handle(client);
            ::close(client);
        }
    }

    void handle(int client) {
        std::string request;
        char buf[4096];
        while (request.find("\r\n\r\n") == std::string::npos && waitFor(client, POLLIN)) {
            ssize_t n = ::recv(client, buf, sizeof buf, 0);
            if (n <= 0) break;
            request.append(buf, static_cast<std::size_t>(n));
        }
        {
            std::lock_guard lock(mutex_);
            requests_.push_back(request);
        }
        if (options_.silent) {
            while (waitFor(client, POLLIN)) {
                if (::recv(client, buf, sizeof buf, 0) <= 0) return;
            }
            return;
        }
        if (!sendAll(client, options_.reply)) return;
        const std::string filler(512, 'x');
        while (options_.stream && !stopping_) {
            if (!sendAll(client, filler)) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

    bool sendAll(int fd, const std::string& data) {
        std::size_t sent = 0;
        while (sent < data.size()) {
            if (!waitFor(fd, POLLOUT)) return false;
            ssize_t n = ::send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
            if (n <= 0) return false;
            sent += static_cast<std::size_t>(n);
        }
        return true;
    }

    Options options_;
    FileHandle listener_;
    int port_ = 0;
    std::atomic<bool> stopping_{false};
    mutable std::mutex mutex_;
    std::vector<std::string> requests_;
    std::thread thread_;
};

// Points QUILLON_HOME at a fresh folder for the scope, and forgets the shared
// preferences on entry and exit.
class ScopedHome {
public:
    ScopedHome() {
        const char* previous = std::getenv("QUILLON_HOME");
        previous_ = previous ? previous : "";
        std::string base = previous_.empty() ? std::filesystem::temp_directory_path().string() : previous_;
        std::string pattern = base + "/home-XXXXXX";
        path_ = ::mkdtemp(pattern.data()) ? pattern : base;
        ::setenv("QUILLON_HOME", path_.c_str(), 1);
        Preferences::resetShared();
    }
    ~ScopedHome() {
        Preferences::resetShared();
        if (previous_.empty()) {
            ::unsetenv("QUILLON_HOME");
        } else {
            ::setenv("QUILLON_HOME", previous_.c_str(), 1);
        }
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    ScopedHome(const ScopedHome&) = delete;
    ScopedHome& operator=(const ScopedHome&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& relative) const { return path_ + "/" + relative; }

private:
    std::string previous_;
    std::string path_;
};

}  // namespace quillon::test
