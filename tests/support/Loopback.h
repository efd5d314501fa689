#pragma once
// Plain POSIX sockets on 127.0.0.1 for test peers and clients, so that our own
// socket code is checked against code that does not share its implementation.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <stdexcept>

#include "platform/FileHandle.h"

namespace quillon::test {

inline sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return a;
}

inline std::uint16_t boundPort(int fd) {
    sockaddr_in a{};
    socklen_t size = sizeof a;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &size);
    return ntohs(a.sin_port);
}

// A listening TCP socket on a port the system picks (read it with boundPort).
inline FileHandle listenOnLoopback() {
    FileHandle fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in a = loopback(0);
    if (!fd.isOpen() || ::bind(fd.fd(), reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
        ::listen(fd.fd(), 16) != 0)
        throw std::runtime_error("cannot listen on loopback");
    return fd;
}

// A TCP connection to 127.0.0.1:port; not open when nothing accepts there.
inline FileHandle connectToLoopback(std::uint16_t port) {
    FileHandle fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in a = loopback(port);
    if (fd.isOpen() && ::connect(fd.fd(), reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) fd.close();
    return fd;
}

// A port that nothing listens on (bound, then released).
inline std::uint16_t unusedPort() { return boundPort(listenOnLoopback().fd()); }

}  // namespace quillon::test
