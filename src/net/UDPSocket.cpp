#include "net/UDPSocket.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "platform/Log.h"
#include "platform/NamedException.h"

namespace quillon {

namespace {
constexpr std::size_t kDatagramMax = 65535;
}  // namespace

UDPSocket::UDPSocket() : buffer_(kDatagramMax) { createSocket(); }

UDPSocket::~UDPSocket() { close(); }

bool UDPSocket::createSocket() {
    try {
        FileHandle fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        if (!fd.isOpen())
            throw NamedException("Socket error", fmt::format("Can't create UDP socket ({})", errno));
        setDescriptor(std::move(fd));
        return true;
    } catch (const NamedException&) {
        setDescriptor(FileHandle());
        return false;
    }
}

void UDPSocket::write(std::span<const std::uint8_t> bytes, const std::string& host, std::uint16_t port) {
    sockaddr_in address{};
    if (!lookupHost(host, port, address)) {
        Log::info("Lookup {} port {}, failed", host, port);
        return;
    }
    if (::sendto(fd(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                 sizeof address) < 0)
        Log::line("Sendto command failed");
}

std::optional<Bytes> UDPSocket::readBytesSenderIP(std::string& senderIP, std::uint16_t& senderPort) {
    sockaddr_in sender{};
    socklen_t size = sizeof sender;
    ssize_t got;
    do {
        got =
            ::recvfrom(fd(), buffer_.data(), buffer_.size(), 0, reinterpret_cast<sockaddr*>(&sender), &size);
    } while (got < 0 && errno == EINTR);
    if (got < 0) return std::nullopt;
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &sender.sin_addr, text, sizeof text);
    senderIP = text;
    senderPort = ntohs(sender.sin_port);
    return Bytes(buffer_.begin(), buffer_.begin() + got);
}

std::optional<Bytes> UDPSocket::readBytesSenderIP(std::string& senderIP, std::uint16_t& senderPort,
                                                  double timeout) {
    short revents = 0;
    if (waitFor(POLLIN, timeout, revents) < 1) return std::nullopt;
    if (revents & POLLIN) return readBytesSenderIP(senderIP, senderPort);
    if (revents & (POLLERR | POLLHUP | POLLNVAL)) Log::line("An error occured while receiving data");
    return std::nullopt;
}

}  // namespace quillon
