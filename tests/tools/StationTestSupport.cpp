#include "StationTestSupport.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <utility>

extern char** environ;

namespace quillon::test {

IcyStream splitIcy(const Bytes& bytes, std::uint32_t metaint) {
    IcyStream stream;
    std::size_t pos = 0;
    while (pos < bytes.size()) {
        const std::size_t n =
            metaint == 0 ? bytes.size() - pos : std::min<std::size_t>(metaint, bytes.size() - pos);
        stream.audio.insert(stream.audio.end(), bytes.begin() + pos, bytes.begin() + pos + n);
        pos += n;
        if (metaint == 0 || n < metaint || pos == bytes.size()) break;
        const std::size_t length = bytes[pos] * 16u;
        if (pos + 1 + length > bytes.size()) break;
        std::string text(bytes.begin() + pos + 1, bytes.begin() + pos + 1 + length);
        text.erase(text.find_last_not_of('\0') + 1);
        stream.blocks.push_back({stream.audio.size(), bytes[pos], text});
        pos += 1 + length;
    }
    return stream;
}

std::optional<std::string> streamTitle(const std::string& text) {
    const std::string open = "StreamTitle='";
    const auto start = text.find(open);
    const auto end = start == std::string::npos ? start : text.find("';", start);
    if (end == std::string::npos) return std::nullopt;
    return text.substr(start + open.size(), end - start - open.size());
}

IcyClient::IcyClient(std::uint16_t port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(socket_.fd(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error(std::string("connect failed: ") + std::strerror(errno));
    }
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
    while (splitIcy(buffer_, metaint).audio.size() < audioBytes && fill(kWaitMs)) {
    }
    return splitIcy(std::exchange(buffer_, {}), metaint);
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
