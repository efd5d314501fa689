#pragma once
// A raw-socket ICY client on loopback that reads on demand, for tests that talk
// to the test station without going through our own socket code.
//
// Thread contract: one thread at a time; owns its socket.
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/ByteBuffer.h"
#include "platform/FileHandle.h"
#include "support/Icy.h"
#include "support/Loopback.h"
#include "support/Process.h"

namespace quillon::test {

class IcyClient {
public:
    // Connects to 127.0.0.1:port; throws when refused.
    explicit IcyClient(std::uint16_t port) : socket_(connectToLoopback(port)) {
        if (!socket_.isOpen())
            throw std::runtime_error(std::string("connect failed: ") + std::strerror(errno));
    }
    void send(const std::string& text) {
        if (::send(socket_.fd(), text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size()))
            throw std::runtime_error("send failed");
    }
    void sendRequest(const std::string& path = "/", bool metadata = true) {
        send("GET " + path + " HTTP/1.1\r\nAccept: */*\r\n" + (metadata ? "Icy-MetaData: 1\r\n" : "") +
             "Connection: close\r\nHost: 127.0.0.1\r\n\r\n");
    }
    // The header through its blank line (or whatever came before the close).
    std::string readHeader() {
        std::size_t end;
        while ((end = asText(buffer_).find("\r\n\r\n")) == std::string_view::npos && fill(kWaitMs)) {
        }
        end = end == std::string_view::npos ? buffer_.size() : end + 4;
        std::string header(asText(buffer_).substr(0, end));
        buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(end));
        return header;
    }
    // Reads until `count` bytes are buffered or the peer closes; returns and empties the buffer.
    Bytes read(std::size_t count) {
        while (buffer_.size() < count && fill(kWaitMs)) {
        }
        return std::exchange(buffer_, {});
    }
    // Reads (after the header) until `audioBytes` audio bytes arrived or the peer closed.
    IcyStream readStream(std::uint32_t metaint, std::size_t audioBytes) {
        while (parseIcy(buffer_, metaint).audio.size() < audioBytes && fill(kWaitMs)) {
        }
        return parseIcy(std::exchange(buffer_, {}), metaint);
    }
    // Whether the peer closes within timeoutMs; data that arrives meanwhile is kept.
    bool peerClosed(int timeoutMs = kWaitMs) {
        using Clock = std::chrono::steady_clock;
        const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
        while (!closed_ && Clock::now() < end)
            fill(static_cast<int>(
                std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count()));
        return closed_;
    }
    void close() { socket_.close(); }

private:
    bool fill(int timeoutMs) {
        pollfd fd{socket_.fd(), POLLIN, 0};
        if (closed_ || ::poll(&fd, 1, timeoutMs) <= 0) return false;
        std::uint8_t chunk[65536];
        const ssize_t got = ::recv(socket_.fd(), chunk, sizeof chunk, 0);
        closed_ = got <= 0;
        if (got > 0) buffer_.insert(buffer_.end(), chunk, chunk + got);
        return got > 0;
    }

    FileHandle socket_;
    Bytes buffer_;
    bool closed_ = false;
};

}  // namespace quillon::test
