#include "net/Socket.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <condition_variable>
#include <csignal>

#include "platform/Log.h"
#include "platform/MainLoop.h"
#include "platform/NamedException.h"
#include "platform/Timing.h"

namespace quillon {

namespace {

constexpr int kBacklog = 5;
constexpr std::size_t kClientsCapacity = 50;

int waitMillis(double seconds) {
    if (!(seconds > 0)) return 0;
    double ms = std::ceil(seconds * 1000.0);
    return ms >= INT_MAX ? INT_MAX : static_cast<int>(ms);
}

// Writing to a peer that has gone must give an error return, not end the process.
void ignoreBrokenPipe() {
    static std::once_flag once;
    std::call_once(once, [] { std::signal(SIGPIPE, SIG_IGN); });
}

}  // namespace

// What the accept thread shares with the socket; it outlives the socket when a
// listener is stopped from inside its own new-client handler.
struct Socket::AcceptState {
    std::atomic<bool> listening{true};
    std::atomic<bool> inHandler{false};
    InvokeGuard guard;
    std::mutex mutex;  // with `stopped`: wakes a back-off at once when listening ends
    std::condition_variable stopped;

    // Waits `seconds` unless listening ends first; false when it has.
    bool pause(double seconds) {
        std::unique_lock lock(mutex);
        stopped.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return !listening; });
        return listening;
    }
    void stop() {
        {
            std::lock_guard lock(mutex);
            listening = false;
        }
        stopped.notify_all();
    }
};

Socket::Socket() { ignoreBrokenPipe(); }

Socket::~Socket() {
    close();
    { std::lock_guard wait(clientsLock_); }
    if (listening_ || accept_) stopListen();
    std::lock_guard lock(clientsLock_);
    clients_.clear();
    clientHandler_ = nullptr;
}

bool Socket::createSocket() {
    Log::line("Warning : abstract, use one of the subclasses");
    return false;
}

std::shared_ptr<Socket> Socket::newClientSocket(FileHandle, const sockaddr_in&) { return nullptr; }

void Socket::setClientHandler(ClientHandler handler) {
    std::lock_guard lock(clientsLock_);
    clientHandler_ = std::move(handler);
}

void Socket::setFD(FileHandle fd, const sockaddr_in& address) {
    std::lock_guard lock(descriptorMutex_);
    socket_ = std::move(fd);
    inetAddress_ = address;
}

int Socket::waitFor(short events, double timeout, short& revents) const {
    revents = 0;
    if (fd() < 0) {
        errno = EBADF;
        revents = POLLNVAL;
        return 1;
    }
    pollfd p{fd(), events, 0};
    int result;
    do {
        result = ::poll(&p, 1, waitMillis(timeout));
    } while (result < 0 && errno == EINTR);
    revents = p.revents;
    return result;
}

bool Socket::isReadable() {
    if (!connected_) return false;
    try {
        if (fd() < 0) throw NamedException("Socket : isReadable error", "bad descriptor");
        pollfd p{fd(), POLLIN, 0};
        int result = ::poll(&p, 1, 0);
        if (result < 0) throw NamedException("Socket : isReadable error", "select error");
        return result == 1;
    } catch (const NamedException& e) {
        Log::info("Socket isReadable error {}", e.reason());
        return false;
    }
}

bool Socket::isWritable() {
    try {
        if (fd() < 0) throw NamedException("TCP Socket : connexion error", "bad descriptor");
        pollfd p{fd(), POLLOUT, 0};
        int result = ::poll(&p, 1, 0);
        if (result < 0) throw NamedException("TCP Socket : isWritable error", "select error");
        return result == 1;
    } catch (const NamedException&) {
        return false;
    }
}

bool Socket::addressFromLiteral(const std::string& host, in_addr& out) {
    in_addr_t address = ::inet_addr(host.c_str());
    if (address == 0) return false;
    out.s_addr = address;
    return true;
}

bool Socket::lookupHost(const std::string& host, std::uint16_t port, sockaddr_in& out) {
    try {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        addrinfo hints{};
        hints.ai_family = AF_INET;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) == 0 && found) {
            address.sin_addr = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr;
            ::freeaddrinfo(found);
        } else {
            if (found) ::freeaddrinfo(found);
            if (!addressFromLiteral(host, address.sin_addr))
                throw NamedException("Socket error", fmt::format("Can't resolve host {}", errno));
        }
        address.sin_port = htons(port);
        out = address;
        return true;
    } catch (const NamedException& e) {
        Log::info("Lookup failed : {}", e.reason());
        return false;
    }
}

bool Socket::connectToHostName(const std::string&, std::uint16_t) { return false; }

void Socket::writeBytes(const void* bytes, std::size_t length) {
    auto* next = static_cast<const std::uint8_t*>(bytes);
    while (length > 0) {
        ssize_t sent = ::send(fd(), next, length, 0);
        if (sent < 0) {
            if (errno == EINTR) continue;
            throw NamedException("TCP Write Error", "TCP Write Error (" + NamedException::errnoText() + ")");
        }
        next += sent;
        length -= static_cast<std::size_t>(sent);
    }
}

std::size_t Socket::readBytesToBuffer(void* buffer, std::size_t length) {
    return readUntilDone(buffer, length, true);
}

std::size_t Socket::readUntilDone(void* buffer, std::size_t length, bool closeAtEnd) {
    auto* out = static_cast<std::uint8_t*>(buffer);
    std::size_t done = 0;
    while (done < length) {
        ssize_t got = ::read(fd(), out + done, length - done);
        if (got < 0) {
            if (errno == EINTR) continue;
            throw NamedException("TCP Read Error", "TCP Read Error (" + NamedException::errnoText() + ")");
        }
        if (got == 0) {
            if (closeAtEnd) close();
            return done;
        }
        done += static_cast<std::size_t>(got);
    }
    return done;
}

bool Socket::listenOnPort(std::uint16_t port, Interfaces interfaces) {
    try {
        if (fd() < 0) throw NamedException("TCP Socket : connexion error", "bad descriptor");
        if (connected_ || listening_)
            throw NamedException("TCP Socket : Listening error", "already connected");
        // SO_REUSEADDR lets a new listener take a port whose old connections
        // linger in TIME_WAIT; unlike SO_REUSEPORT it never shares a live port.
        int one = 1;
        if (::setsockopt(fd(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) != 0)
            throw NamedException("TCP Socket : Listening error", "setsockopt failed");
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        // Deliberate: loopback unless asked otherwise, not the any-address,
        // because a relay meant for this machine's players must not be open to
        // the whole network.
        address.sin_addr.s_addr = htonl(interfaces == Interfaces::all ? INADDR_ANY : INADDR_LOOPBACK);
        return serverSocket(address);
    } catch (const NamedException& e) {
        Log::info("TCP Listen error : {}", e.reason());
        return false;
    }
}

bool Socket::serverSocket(const sockaddr_in& address) {
    isServer_ = true;
    if (!bindToAddress(address)) {
        Log::line("Unable to bind to address");
        return false;
    }
    if (!listen()) {
        Log::line("Unable to listen");
        return false;
    }
    acceptClients();
    return true;
}

bool Socket::bindToAddress(const sockaddr_in& address) {
    if (::bind(fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return false;
    sockaddr_in bound{};
    socklen_t size = sizeof bound;
    if (::getsockname(fd(), reinterpret_cast<sockaddr*>(&bound), &size) == 0)
        listeningPort_ = ntohs(bound.sin_port);
    return true;
}

bool Socket::listen() {
    if (!isServer_ || listening_ || ::listen(fd(), kBacklog) != 0) return false;
    listening_ = true;
    return true;
}

void Socket::acceptClients() {
    {
        std::lock_guard lock(clientsLock_);
        clients_.clear();
        clients_.reserve(kClientsCapacity);
    }
    accept_ = std::make_shared<AcceptState>();
    acceptThread_ = std::thread(&Socket::acceptInThread, this, accept_);
}

void Socket::acceptInThread(std::shared_ptr<AcceptState> state) {
    // Deliberate: a failing accept (EMFILE and ENFILE above all: the waiting
    // client stays queued and the socket readable) backs off and is logged once
    // per run of failures, because retrying at once spins a core and floods the
    // log until descriptors come free.
    double backoff = 0;
    bool failing = false;
    auto failed = [&](const std::string& reason) {
        if (!failing) Log::info("Accept failed (in thread) {}", reason);
        failing = true;
        const double first = timing().acceptRetryDelay;
        backoff = backoff > 0 ? std::min(backoff * 2, first * 10) : first;
    };
    // Once `listening` is clear this thread touches nothing but `state`: the
    // socket may already be gone (stopped from inside the handler, see stopListen).
    while (state->listening) {
        if (backoff > 0 && !state->pause(backoff)) break;
        short revents = 0;
        int result = waitFor(POLLIN, timing().acceptWait, revents);
        if (!state->listening) break;
        try {
            if (result == 0) {
                // Nobody waiting: whatever failed before has passed.
                failing = false;
                backoff = 0;
                continue;
            }
            if (result < 0)
                throw NamedException("Accept Error", "Accept Error (" + NamedException::errnoText() + ")");
            if (revents & POLLIN) {
                sockaddr_in address{};
                FileHandle accepted = acceptClient(address);
                // A full descriptor table is told without an exception: the
                // loop meets it over and over until descriptors come free.
                if (!accepted.isOpen()) {
                    failed("Accept Error (" + NamedException::errnoText() + ")");
                    continue;
                }
                if (failing) Log::line("Accepting clients again");
                failing = false;
                backoff = 0;
                handOver(state, std::move(accepted), address);
            } else if (revents & (POLLERR | POLLHUP | POLLNVAL)) {
                throw NamedException("Accept Write error",
                                     "Accept Write error (" + NamedException::errnoText() + ")");
            }
        } catch (const NamedException& e) {
            failed(e.reason());
        }
    }
}

FileHandle Socket::acceptClient(sockaddr_in& address) {
    socklen_t size = sizeof address;
    ++acceptAttempts_;
    return FileHandle(::accept4(fd(), reinterpret_cast<sockaddr*>(&address), &size, SOCK_CLOEXEC));
}

void Socket::handOver(const std::shared_ptr<AcceptState>& state, FileHandle accepted,
                      const sockaddr_in& address) {
    auto client = newClientSocket(std::move(accepted), address);
    if (!client) throw NamedException("Accept error", "Accept error (can't create socket)");
    client->setConnected(true);
    auto acceptedAt = Clock::now();
    ClientHandler handler;
    {
        std::lock_guard lock(clientsLock_);
        // Clients closed since are dropped here too, so that the list holds
        // about the live ones even when nothing else sweeps it (refused players).
        std::erase_if(clients_, [](const std::shared_ptr<Socket>& c) { return c->shouldDelete(); });
        clients_.push_back(client);
        handler = clientHandler_;
    }
    if (!handler) return;
    // The handler is copied into the task so that it survives the socket's
    // destruction from within itself.
    MainLoop::main().invoke(
        [state, handler, client, acceptedAt] {
            state->inHandler = true;
            struct Reset {
                AcceptState& s;
                ~Reset() { s.inHandler = false; }
            } reset{*state};
            handler(client, acceptedAt);
        },
        state->guard);
}

void Socket::stopListen() {
    std::shared_ptr<AcceptState> state = std::move(accept_);
    listening_ = false;
    if (!state) return;
    state->stop();
    // Wakes the accept thread's wait at once instead of after its time-out.
    if (fd() >= 0) ::shutdown(fd(), SHUT_RDWR);
    // Frees the accept thread if it waits for the main thread to run the handler.
    state->guard.cancel();
    if (acceptThread_.joinable()) {
        // Called from inside the handler, the accept thread waits for us: it
        // ends on its own once the handler returns, touching only `state`.
        if (state->inHandler && MainLoop::main().isMainThread())
            acceptThread_.detach();
        else
            acceptThread_.join();
    }
    std::lock_guard lock(descriptorMutex_);
    socket_.close();
}

void Socket::disconnectClients() {
    std::lock_guard lock(clientsLock_);
    clients_.clear();
}

void Socket::removeClosedSockets() {
    std::lock_guard lock(clientsLock_);
    // The index advances past a removed entry, so the client that slides into
    // its place waits for the next sweep.
    for (std::size_t i = 0; i < clients_.size(); ++i) {
        if (clients_[i]->shouldDelete()) clients_.erase(clients_.begin() + static_cast<std::ptrdiff_t>(i));
    }
}

void Socket::close() {
    if (listening_ || accept_) {
        stopListen();
        disconnectClients();
    } else if (connected_) {
        {
            std::lock_guard lock(descriptorMutex_);
            socket_.close();
        }
        connected_ = false;
        shouldDelete_ = true;
    }
}

void Socket::interrupt() {
    std::lock_guard lock(descriptorMutex_);
    if (socket_.isOpen()) ::shutdown(socket_.fd(), SHUT_RDWR);
}

std::vector<std::shared_ptr<Socket>> Socket::clients() const {
    std::lock_guard lock(clientsLock_);
    return clients_;
}

}  // namespace quillon
