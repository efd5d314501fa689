#include "net/TCPSocket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>

#include "platform/Log.h"
#include "platform/NamedException.h"

namespace quillon {

namespace {

constexpr short kTrouble = POLLERR | POLLHUP | POLLNVAL;
// The most a read waits to gather: well inside any receive buffer.
constexpr std::size_t kMaxLowWater = 64 * 1024;

NamedException withErrno(const char* name) {
    return NamedException(name, std::string(name) + " (" + NamedException::errnoText() + ")");
}

bool endsWithDelimiter(const Bytes& data, std::size_t n, std::span<const std::uint8_t> delimiter) {
    return std::equal(delimiter.begin(), delimiter.end(),
                      data.begin() + static_cast<std::ptrdiff_t>(n - delimiter.size()));
}

}  // namespace

TCPSocket::TCPSocket() { createSocket(); }

TCPSocket::TCPSocket(FileHandle fd, const sockaddr_in& address) { setFD(std::move(fd), address); }

// Stops a listener's accept thread while this object is still a TCPSocket: the
// thread makes clients through the virtual newClientSocket.
TCPSocket::~TCPSocket() { close(); }

bool TCPSocket::createSocket() {
    try {
        FileHandle fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (!fd.isOpen())
            throw NamedException("Socket error", fmt::format("Can't create TCP socket ({})", errno));
        setDescriptor(std::move(fd));
        return true;
    } catch (const NamedException&) {
        setDescriptor(FileHandle());
        return false;
    }
}

std::shared_ptr<Socket> TCPSocket::newClientSocket(FileHandle fd, const sockaddr_in& address) {
    return std::shared_ptr<TCPSocket>(new TCPSocket(std::move(fd), address));
}

void TCPSocket::setNewClientHandler(NewClientHandler handler) {
    if (!handler) {
        setClientHandler(nullptr);
        return;
    }
    setClientHandler([handler = std::move(handler)](std::shared_ptr<Socket> client, Clock::time_point at) {
        handler(std::static_pointer_cast<TCPSocket>(std::move(client)), at);
    });
}

bool TCPSocket::connectToHostName(const std::string& host, std::uint16_t port) {
    try {
        const char* name = "TCP Socket : connexion error";
        if (fd() < 0) throw NamedException(name, "bad descriptor");
        if (connected()) throw NamedException(name, "already connected");
        sockaddr_in address{};
        if (!lookupHost(host, port, address)) throw NamedException(name, "can't resolve host");
        if (::connect(fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            throw NamedException(name, "connect failed");
        remoteHost_ = host;
        remotePort_ = port;
        setConnected(true);
        return true;
    } catch (const NamedException& e) {
        Log::info("TCP Connection error : {}", e.reason());
        return false;
    }
}

std::size_t TCPSocket::readBytesToBuffer(void* buffer, std::size_t length) {
    if (tls_) return tlsRead(static_cast<std::uint8_t*>(buffer), length, INT_MAX / 1000.0, nullptr);
    return readUntilDone(buffer, length, false);
}

std::string TCPSocket::startTls(const std::string& host, bool allowUntrusted, double timeout) {
    if (fd() < 0 || !connected()) throw NamedException("TLS error", "TLS error (not connected)");
    if (tls_) throw NamedException("TLS error", "TLS error (already started)");
    // Each step of the session must return rather than block: the waits are ours.
    const int flags = ::fcntl(fd(), F_GETFL);
    if (flags < 0 || ::fcntl(fd(), F_SETFL, flags | O_NONBLOCK) != 0) throw withErrno("TLS error");
    // Record sizes are not the reader's sizes: any arrival may complete one.
    setLowWater(1);
    tls_ = TLSSession::client(fd(), host, allowUntrusted);
    while (true) {
        const TLSSession::Result result = tls_->handshake();
        if (result.step == TLSSession::Step::Done) break;
        if (result.step == TLSSession::Step::WantRead || result.step == TLSSession::Step::WantWrite) {
            if (!waitForStep(result.step, timeout, "TCP read error")) throw withErrno("TCP read timeout");
            continue;
        }
        const std::string why = tls_->verifyError();
        if (!why.empty() && why != "no certificate")
            throw NamedException("certificate not trusted", "certificate not trusted: " + why);
        const std::string& error = tls_->error();
        throw NamedException("TLS error", fmt::format("TLS handshake with {} failed: {}", host,
                                                      error.empty() ? "the server hung up" : error));
    }
    return tls_->verifyError();
}

bool TCPSocket::waitForStep(TLSSession::Step step, double timeout, const char* troubleName) {
    const short events = step == TLSSession::Step::WantWrite ? POLLOUT : POLLIN;
    short revents = 0;
    if (waitFor(events, timeout, revents) < 1) return false;
    if (!(revents & events) && (revents & kTrouble)) throw withErrno(troubleName);
    return true;
}

std::size_t TCPSocket::tlsRead(std::uint8_t* out, std::size_t wanted, double timeout, std::size_t* received) {
    std::size_t done = 0;
    while (done < wanted) {
        const TLSSession::Result result = tls_->read(out + done, wanted - done);
        switch (result.step) {
            case TLSSession::Step::Done:
                done += result.count;
                if (received) *received = done;
                break;
            case TLSSession::Step::Closed:
                return done;
            case TLSSession::Step::Failed:
                throw NamedException("TCP Read Error", "TCP Read Error (" + tls_->error() + ")");
            case TLSSession::Step::WantRead:
            case TLSSession::Step::WantWrite:
                if (!waitForStep(result.step, timeout, "TCP read error")) throw withErrno("TCP read timeout");
                break;
        }
    }
    return done;
}

void TCPSocket::tlsWrite(const std::uint8_t* bytes, std::size_t length, double timeout) {
    while (length > 0) {
        const TLSSession::Result result = tls_->write(bytes, length);
        switch (result.step) {
            case TLSSession::Step::Done:
                bytes += result.count;
                length -= result.count;
                break;
            case TLSSession::Step::Closed:
                throw NamedException("TCP Write Error", "TCP Write Error (the peer ended the session)");
            case TLSSession::Step::Failed:
                throw NamedException("TCP Write Error", "TCP Write Error (" + tls_->error() + ")");
            case TLSSession::Step::WantRead:
            case TLSSession::Step::WantWrite:
                if (!waitForStep(result.step, timeout, "TCP Write error"))
                    throw withErrno("TCP Write timeout");
                break;
        }
    }
}

void TCPSocket::writeBytes(const void* bytes, std::int32_t length, double timeout) {
    auto* next = static_cast<const std::uint8_t*>(bytes);
    std::size_t remaining = length > 0 ? static_cast<std::size_t>(length) : 0;
    if (tls_) return tlsWrite(next, remaining, timeout);
    while (remaining > 0) {
        short revents = 0;
        if (waitFor(POLLOUT, timeout, revents) < 1) throw withErrno("TCP Write timeout");
        if (revents & POLLOUT) {
            ssize_t sent = ::send(fd(), next, remaining, 0);
            if (sent < 0) {
                if (errno == EINTR) continue;
                throw withErrno("TCP Write Error");
            }
            next += sent;
            remaining -= static_cast<std::size_t>(sent);
        } else if (revents & kTrouble) {
            throw withErrno("TCP Write error");
        }
    }
}

std::size_t TCPSocket::readArrived(void* buffer, std::size_t length) {
    if (fd() < 0 || length == 0) return 0;
    if (tls_) {
        const TLSSession::Result result = tls_->read(buffer, length);
        return result.step == TLSSession::Step::Done ? result.count : 0;
    }
    while (true) {
        const ssize_t got = ::recv(fd(), buffer, length, MSG_DONTWAIT);
        if (got >= 0) return static_cast<std::size_t>(got);
        if (errno != EINTR) return 0;
    }
}

std::size_t TCPSocket::readBytesToBuffer(void* buffer, std::int64_t length, double timeout,
                                         std::size_t* received) {
    if (received) *received = 0;
    if (length < 1) return 0;
    auto* out = static_cast<std::uint8_t*>(buffer);
    auto wanted = static_cast<std::size_t>(length);
    if (tls_) return tlsRead(out, wanted, timeout, received);
    std::size_t done = 0;
    while (done < wanted) {
        // What has already arrived is taken without a wait: a fast stream then
        // costs one call per read, and the mark is set only when it must wait.
        if (fd() >= 0) {
            ssize_t got = ::recv(fd(), out + done, wanted - done, MSG_DONTWAIT);
            if (got > 0) {
                done += static_cast<std::size_t>(got);
                if (received) *received = done;
                continue;
            }
            if (got == 0) return done;
            if (errno == EINTR) continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK) throw withErrno("TCP Read Error");
        }
        short revents = 0;
        setLowWater(wanted - done);
        if (waitFor(POLLIN, timeout, revents) < 1) {
            // Fewer bytes than the mark came within the wait: still a stream.
            if (lowWater_ == 1 || pendingBytes() == 0) throw withErrno("TCP read timeout");
            revents = POLLIN;
        }
        if (revents & POLLIN) {
            // Without waiting: a blocking read would wait for the low-water mark.
            ssize_t got = ::recv(fd(), out + done, wanted - done, MSG_DONTWAIT);
            if (got == 0) return done;
            if (got < 0) {
                if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) continue;
                throw withErrno("TCP Read Error");
            }
            done += static_cast<std::size_t>(got);
            if (received) *received = done;
        } else if (revents & kTrouble) {
            throw withErrno("TCP read error");
        }
    }
    return done;
}

void TCPSocket::setLowWater(std::size_t bytes) {
    const int mark = static_cast<int>(std::clamp<std::size_t>(bytes, 1, kMaxLowWater));
    if (mark == lowWater_ || fd() < 0) return;
    // Without it the read still works, one wake-up per packet.
    if (::setsockopt(fd(), SOL_SOCKET, SO_RCVLOWAT, &mark, sizeof mark) == 0) lowWater_ = mark;
}

std::size_t TCPSocket::pendingBytes() const {
    int count = 0;
    if (fd() < 0 || ::ioctl(fd(), FIONREAD, &count) != 0) return 0;
    return static_cast<std::size_t>(std::max(count, 0));
}

Bytes TCPSocket::readData(std::size_t length, double timeout) {
    Bytes data(length, 0);
    data.resize(readBytesToBuffer(data.data(), static_cast<std::int64_t>(length), timeout));
    return data;
}

Bytes TCPSocket::readDataUpToData(std::span<const std::uint8_t> delimiter, std::size_t max, double timeout) {
    const std::size_t d = delimiter.size();
    Bytes data(max, 0);
    // The first read's count is not checked: bytes missing at end of stream stay zero.
    readBytesToBuffer(data.data(), static_cast<std::int64_t>(std::min(d, max)), timeout);
    if (d >= max) return data;
    std::size_t n = d;
    while (true) {
        if (endsWithDelimiter(data, n, delimiter)) {
            data.resize(n);
            return data;
        }
        readBytesToBuffer(data.data() + n, 1, timeout);
        ++n;
        // A delimiter completed by the very last byte is not looked for.
        if (n == max) return data;
    }
}

Bytes TCPSocket::readDataUpToData(std::string_view delimiter, std::size_t max, double timeout) {
    return readDataUpToData(asBytes(delimiter), max, timeout);
}

Bytes TCPSocket::readDataUpToString(std::string_view delimiter, double timeout) {
    auto wanted = asBytes(delimiter);
    const std::size_t d = wanted.size();
    Bytes data;
    data.reserve(1024);
    data.resize(d);
    std::size_t got = readBytesToBuffer(data.data(), static_cast<std::int64_t>(d), timeout);
    if (got < d) {
        data.resize(got);
        return data;
    }
    while (!endsWithDelimiter(data, data.size(), wanted)) {
        std::uint8_t byte = 0;
        // Without this stop a peer that hangs up would have us append for ever.
        if (readBytesToBuffer(&byte, 1, timeout) == 0) return data;
        data.push_back(byte);
    }
    return data;
}

Bytes TCPSocket::readBoundedUpToString(std::string_view delimiter, std::size_t max, double limit) {
    using Clock = std::chrono::steady_clock;
    const auto wanted = asBytes(delimiter);
    const std::size_t d = wanted.size();
    if (tls_) throw NamedException("TCP Read Error", "TCP Read Error (a bounded read needs a plain socket)");
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                             std::chrono::duration<double>(std::max(limit, 0.0)));
    setLowWater(1);
    Bytes data;
    while (data.size() < d || !endsWithDelimiter(data, data.size(), wanted)) {
        if (data.size() >= max)
            throw NamedException("TCP read limit",
                                 fmt::format("TCP read limit (no end within {} bytes)", max));
        // As many bytes as cannot run past the earliest place the delimiter
        // could end: its length less the part of it the data already ends with.
        std::size_t partial = std::min(d - 1, data.size());
        while (partial > 0 &&
               !std::equal(wanted.begin(), wanted.begin() + static_cast<std::ptrdiff_t>(partial),
                           data.end() - static_cast<std::ptrdiff_t>(partial)))
            --partial;
        const std::size_t step = std::min(d - partial, max - data.size());
        const double left = std::chrono::duration<double>(deadline - Clock::now()).count();
        short revents = 0;
        if (left <= 0 || waitFor(POLLIN, left, revents) < 1)
            throw NamedException("TCP read timeout",
                                 fmt::format("TCP read timeout (no end within {} seconds)", limit));
        if (revents & POLLIN) {
            std::uint8_t chunk[64];
            ssize_t got = ::recv(fd(), chunk, std::min(step, sizeof chunk), MSG_DONTWAIT);
            if (got == 0) return data;
            if (got < 0) {
                if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) continue;
                throw withErrno("TCP Read Error");
            }
            data.insert(data.end(), chunk, chunk + got);
        } else if (revents & kTrouble) {
            throw withErrno("TCP read error");
        }
    }
    return data;
}

void TCPSocket::writeData(std::span<const std::uint8_t> bytes, double timeout) {
    writeBytes(bytes.data(), static_cast<std::int32_t>(bytes.size()), timeout);
}

std::size_t TCPSocket::writeWithoutWaiting(std::span<const std::span<const std::uint8_t>> parts) {
    constexpr std::size_t kMaxParts = 16;
    if (tls_)
        throw NamedException("TCP Write Error", "TCP Write Error (a gathered send needs a plain socket)");
    iovec vectors[kMaxParts];
    msghdr message{};
    for (const auto& part : parts.first(std::min(parts.size(), kMaxParts))) {
        if (part.empty()) continue;
        vectors[message.msg_iovlen++] = iovec{const_cast<std::uint8_t*>(part.data()), part.size()};
    }
    if (message.msg_iovlen == 0) return 0;
    message.msg_iov = vectors;
    while (true) {
        ssize_t sent = ::sendmsg(fd(), &message, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent >= 0) return static_cast<std::size_t>(sent);
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) return 0;
        throw withErrno("TCP Write Error");
    }
}

void TCPSocket::writeString(std::string_view text, double timeout) {
    text = text.substr(0, text.find('\0'));
    writeBytes(text.data(), static_cast<std::int32_t>(text.size()), timeout);
}

void TCPSocket::close() {
    if (tls_) {
        tls_->shutdown();
        tls_.reset();
    }
    remoteHost_.clear();
    remotePort_ = 0;
    lowWater_ = 1;  // a new descriptor starts from the kernel's default
    Socket::close();
}

}  // namespace quillon
