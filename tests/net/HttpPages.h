#pragma once
// A small HTTP server on 127.0.0.1 for download tests: it answers GET requests
// from a table of paths and bodies (404 for the rest), one connection at a
// time, and counts the requests it served. The table may change while it runs.
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

#include "net/NetTestSupport.h"

namespace quillon::test {

class HttpPages {
public:
    HttpPages() : peer_([this](int fd, LoopbackPeer&) { answer(fd); }) {}

    std::string url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(peer_.port()) + path;
    }
    std::string host() const { return "127.0.0.1:" + std::to_string(peer_.port()); }
    void set(const std::string& path, std::string body) {
        std::lock_guard lock(mutex_);
        pages_[path] = std::move(body);
    }
    // Waits until `count` requests were answered; false after `seconds`.
    bool waitForRequests(int count, double seconds = 20) {
        std::unique_lock lock(mutex_);
        return served_.wait_for(lock, std::chrono::duration<double>(seconds),
                                [&] { return requests_ >= count; });
    }
    int requests() {
        std::lock_guard lock(mutex_);
        return requests_;
    }

private:
    void answer(int fd) {
        auto received = receiveRequest(fd);
        if (!received) return;
        const std::string& request = *received;
        // "GET /path?query HTTP/1.1": the table is keyed by the path alone.
        std::size_t start = request.find(' ') + 1;
        std::string target = request.substr(start, request.find(' ', start) - start);
        std::string path = target.substr(0, target.find('?'));
        std::string reply;
        {
            std::lock_guard lock(mutex_);
            auto page = pages_.find(path);
            if (page == pages_.end()) {
                reply = "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
            } else {
                reply = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(page->second.size()) +
                        "\r\nConnection: close\r\n\r\n" + page->second;
            }
        }
        sendAll(fd, reply);
        std::lock_guard lock(mutex_);
        ++requests_;
        served_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable served_;
    std::map<std::string, std::string> pages_;
    int requests_ = 0;
    LoopbackPeer peer_;  // last: stopped and joined before the table goes
};

}  // namespace quillon::test
