#pragma once
// Players for the relay tests: plain POSIX clients on 127.0.0.1 that send a
// request and read what the relay serves on a thread of their own, and a reader
// of the ICY layout (header, audio blocks, metadata blocks) they received.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace quillon::test {

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
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(port);
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
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

// What a player received, cut as an ICY stream: the header, then audio blocks
// of the meta interval each followed by a metadata block (when `withMeta`). A
// block cut off by the end of the data is left out.
struct IcyStream {
    std::string header;
    std::vector<std::string> audio;
    std::vector<std::string> meta;  // the block's text area, zeros included
    bool wellFormed = true;         // every length byte and padding as the format wants
};

inline IcyStream readIcy(const std::string& data, std::size_t metaint, bool withMeta) {
    IcyStream out;
    std::size_t end = data.find("\r\n\r\n");
    if (end == std::string::npos) return out;
    out.header = data.substr(0, end + 4);
    std::size_t pos = end + 4;
    while (pos + metaint <= data.size()) {
        std::string block = data.substr(pos, metaint);
        std::size_t next = pos + metaint;
        std::string meta;
        if (withMeta) {
            if (next >= data.size()) break;
            std::size_t length = static_cast<std::uint8_t>(data[next]) * std::size_t{16};
            if (next + 1 + length > data.size()) break;
            meta = data.substr(next + 1, length);
            // A text is followed by zero bytes only, and always by at least one.
            std::size_t text = meta.find('\0');
            if (length > 0 &&
                (text == std::string::npos || meta.find_first_not_of('\0', text) != std::string::npos))
                out.wellFormed = false;
            next += 1 + length;
        }
        out.audio.push_back(std::move(block));
        out.meta.push_back(std::move(meta));
        pos = next;
    }
    return out;
}

// The title a metadata text area announces, or "" for a no-change block.
inline std::string titleIn(const std::string& meta) {
    const std::string_view start = "StreamTitle='";
    std::size_t from = meta.find(start);
    if (from == std::string::npos) return "";
    from += start.size();
    std::size_t to = meta.find("';", from);
    return to == std::string::npos ? "" : meta.substr(from, to - from);
}

inline std::size_t countEntries(const char* folder) {
    std::size_t n = 0;
    for ([[maybe_unused]] auto& entry : std::filesystem::directory_iterator(folder)) ++n;
    return n;
}

}  // namespace quillon::test
