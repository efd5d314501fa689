#pragma once
// Base of the blocking IPv4 socket family: the descriptor, the connection flags,
// the readiness probes, host look-up, and the listening side (bind, listen, the
// accept thread, the list of accepted clients and its sweep).
//
// Thread contract: a socket is used by one thread at a time (the thread that
// reads or writes it). The exceptions are the listening side: the accept thread
// owned by a listening socket sweeps closed clients out of `clients`, appends
// to it and reads the new-client handler, all under `clientsLock`; `clients()`,
// `removeClosedSockets()` and `setShouldDelete()`/`shouldDelete()` may be
// called from any thread. A listener
// may be stopped or destroyed from any thread except its own accept thread,
// including the main thread while the accept thread waits for it, and from inside
// the new-client handler itself.
//
// Sockets own their descriptor and are neither copied nor moved (a listening
// socket's thread refers to it); share them through std::shared_ptr.
#include <netinet/in.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/FileHandle.h"

namespace quillon {

class Socket {
public:
    using Clock = std::chrono::system_clock;
    using ClientHandler = std::function<void(std::shared_ptr<Socket> client, Clock::time_point acceptedAt)>;

    virtual ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    bool connected() const { return connected_; }
    void setConnected(bool on) { connected_ = on; }
    // Whether a read would not block; false at once when not connected.
    bool isReadable();
    bool isWritable();

    const std::string& remoteHostName() const { return remoteHost_; }
    std::uint16_t remotePort() const { return remotePort_; }
    // The peer of an accepted client.
    const sockaddr_in& inetAddress() const { return inetAddress_; }

    std::uint16_t listeningPort() const { return listeningPort_; }
    bool isListening() const { return listening_; }

    bool shouldDelete() const { return shouldDelete_; }
    void setShouldDelete(bool on) { shouldDelete_ = on; }

    // Resolves a host name or dotted literal; logs and returns false on failure.
    static bool lookupHost(const std::string& host, std::uint16_t port, sockaddr_in& out);
    // The dotted-literal reading used when the resolver finds nothing: only a
    // result of zero fails, so a malformed literal reads as 255.255.255.255.
    static bool addressFromLiteral(const std::string& host, in_addr& out);

    // The base socket cannot connect.
    virtual bool connectToHostName(const std::string& host, std::uint16_t port);

    // Blocking I/O without a time-out. The base read closes the socket at end of
    // stream; both raise NamedException on failure.
    void writeBytes(const void* bytes, std::size_t length);
    virtual std::size_t readBytesToBuffer(void* buffer, std::size_t length);

    // Where a listener accepts connections from.
    enum class Interfaces { loopback, all };

    // Binds to `port` (0 picks a free port, see listeningPort()) on the loopback
    // address or on every interface, and starts the accept thread; logs and
    // returns false on failure.
    bool listenOnPort(std::uint16_t port, Interfaces interfaces = Interfaces::loopback);
    // Ends the accept thread and closes the listening descriptor.
    void stopListen();
    // Drops clients marked shouldDelete (see the comment in the source about the
    // entry that slides into a removed one's place).
    void removeClosedSockets();
    virtual void close();
    // Wakes a thread blocked in this socket's I/O: its wait or call fails at once.
    // Unlike the rest, may be called from any thread while another one uses the
    // socket (a connection stopped by the user while its thread reads).
    void interrupt();

    // The accept calls this listener's thread has made, failed or not (tests:
    // an accept thread that backs off makes few while accepting fails).
    std::uint64_t acceptAttempts() const { return acceptAttempts_; }

    // A snapshot of the accepted clients.
    std::vector<std::shared_ptr<Socket>> clients() const;
    std::mutex& clientsLock() const { return clientsLock_; }

protected:
    Socket();
    // Opens the descriptor; the base version only warns.
    virtual bool createSocket();
    // A client of this socket's own class around an accepted descriptor, or none.
    virtual std::shared_ptr<Socket> newClientSocket(FileHandle fd, const sockaddr_in& address);
    // Called on the main thread for each accepted client.
    void setClientHandler(ClientHandler handler);

    // Takes over an accepted descriptor and the peer's address.
    void setFD(FileHandle fd, const sockaddr_in& address);
    int fd() const { return socket_.fd(); }
    void setDescriptor(FileHandle fd) { socket_ = std::move(fd); }
    // Waits for `events` (POLLIN or POLLOUT) for at most `timeout` seconds and
    // returns poll's result; `revents` receives what happened. A socket without
    // a descriptor reports POLLNVAL at once rather than sitting out the wait.
    int waitFor(short events, double timeout, short& revents) const;
    // Blocking read; `closeAtEnd` closes the socket when the peer ends the stream.
    std::size_t readUntilDone(void* buffer, std::size_t length, bool closeAtEnd);

    std::string remoteHost_;
    std::uint16_t remotePort_ = 0;

private:
    struct AcceptState;

    bool serverSocket(const sockaddr_in& address);
    bool bindToAddress(const sockaddr_in& address);
    bool listen();
    void acceptClients();
    void acceptInThread(std::shared_ptr<AcceptState> state);
    // Accepts the waiting client; not open when that fails (errno tells why).
    FileHandle acceptClient(sockaddr_in& address);
    // Lists the accepted client and runs the new-client handler on the main thread.
    void handOver(const std::shared_ptr<AcceptState>& state, FileHandle accepted, const sockaddr_in& address);
    void disconnectClients();

    FileHandle socket_;  // replaced or closed under descriptorMutex_
    mutable std::mutex descriptorMutex_;
    bool connected_ = false;
    bool isServer_ = false;
    std::atomic<bool> listening_{false};
    std::uint16_t listeningPort_ = 0;
    std::atomic<bool> shouldDelete_{false};
    std::atomic<std::uint64_t> acceptAttempts_{0};
    sockaddr_in inetAddress_{};

    mutable std::mutex clientsLock_;
    std::vector<std::shared_ptr<Socket>> clients_;  // guarded by clientsLock_
    ClientHandler clientHandler_;                   // guarded by clientsLock_

    std::shared_ptr<AcceptState> accept_;
    std::thread acceptThread_;
};

}  // namespace quillon
