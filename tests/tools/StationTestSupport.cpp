#include "StationTestSupport.h"

#include <poll.h>
#include <sys/socket.h>

#include <cstring>
#include <stdexcept>
#include <utility>

#include "support/Loopback.h"

namespace quillon::test {

IcyClient::IcyClient(std::uint16_t port) : socket_(connectToLoopback(port)) {
    if (!socket_.isOpen()) throw std::runtime_error(std::string("connect failed: ") + std::strerror(errno));
}

void IcyClient::send(const std::string& text) {
    if (::send(socket_.fd(), text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error("send failed");
    }
}

void IcyClient::sendRequest(const std::string& path, bool metadata) {
    send("GET " + path + " HTTP/1.1\r\nAccept: */*\r\n" + (metadata ? "Icy-MetaData: 1\r\n" : "") +
         "Connection: close\r\nHost: 127.0.0.1\r\n\r\n");
}

bool IcyClient::fill(int timeoutMs) {
    pollfd fd{socket_.fd(), POLLIN, 0};
    if (closed_ || ::poll(&fd, 1, timeoutMs) <= 0) return false;
    std::uint8_t chunk[65536];
    const ssize_t got = ::recv(socket_.fd(), chunk, sizeof chunk, 0);
    closed_ = got <= 0;
    if (got > 0) buffer_.insert(buffer_.end(), chunk, chunk + got);
    return got > 0;
}

std::string IcyClient::readHeader() {
    std::size_t end;
    while ((end = asText(buffer_).find("\r\n\r\n")) == std::string_view::npos && fill(kWaitMs)) {
    }
    end = end == std::string_view::npos ? buffer_.size() : end + 4;
    std::string header(asText(buffer_).substr(0, end));
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(end));
    return header;
}

Bytes IcyClient::read(std::size_t count) {
    while (buffer_.size() < count && fill(kWaitMs)) {
    }
    return std::exchange(buffer_, {});
}

IcyStream IcyClient::readStream(std::uint32_t metaint, std::size_t audioBytes) {
    while (parseIcy(buffer_, metaint).audio.size() < audioBytes && fill(kWaitMs)) {
    }
    return parseIcy(std::exchange(buffer_, {}), metaint);
}

bool IcyClient::peerClosed(int timeoutMs) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!closed_ && std::chrono::steady_clock::now() < end) {
        fill(static_cast<int>(
            std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now())
                .count()));
    }
    return closed_;
}

}  // namespace quillon::test
