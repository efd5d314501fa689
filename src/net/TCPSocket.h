#pragma once
// A blocking IPv4 stream socket: the client side (connect, reads and writes with
// a time-out per wait, delimiter reads for header lines) and, through Socket,
// the listening side that hands each accepted client to a handler on the main
// thread.
//
// A connected client may go over to TLS (startTls); from then on its timed
// reads and writes, the delimiter reads built on them and readArrived carry
// the session's plain bytes, with the same time-outs and end-of-stream
// behaviour as without it, so that the code above does not care.
//
// Thread contract: as Socket. One thread at a time reads, writes, connects or
// closes a socket; the new-client handler runs on the main thread while the
// accept thread waits for it. Failures of the I/O operations are raised as
// NamedException for the caller to catch; connect and listen log and return
// false.
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "net/Socket.h"
#include "net/TLSSession.h"
#include "platform/ByteBuffer.h"

namespace quillon {

class TCPSocket : public Socket {
public:
    using NewClientHandler = std::function<void(std::shared_ptr<TCPSocket> client,
                                                std::chrono::system_clock::time_point acceptedAt)>;

    // Never fails: without a descriptor the first operation fails instead.
    TCPSocket();
    ~TCPSocket() override;

    // Resolves and connects (the system's blocking connect); logs and returns
    // false on failure, leaving the descriptor as it is.
    bool connectToHostName(const std::string& host, std::uint16_t port) override;

    // Without a time-out. The read returns short at end of stream without closing.
    using Socket::writeBytes;
    std::size_t readBytesToBuffer(void* buffer, std::size_t length) override;

    // With a time-out of `timeout` seconds for each wait, not for the whole call.
    // A timed read waits for as much of the rest as the kernel can gather (the
    // receive low-water mark), so a stream arriving in small packets wakes the
    // reader once per call rather than once per packet; a wait that times out
    // with some bytes arrived takes them and goes on.
    void writeBytes(const void* bytes, std::int32_t length, double timeout);
    // Returns the count read: short when the peer ends the stream. When it
    // raises (a time-out, a read error), `received`, if given, holds the count
    // that did arrive in the buffer before the failure.
    std::size_t readBytesToBuffer(void* buffer, std::int64_t length, double timeout,
                                  std::size_t* received = nullptr);
    // What has arrived (and, over TLS, been decrypted), up to `length` bytes, without waiting; 0 when nothing
    // has, at the stream's end, or on a failure.
    std::size_t readArrived(void* buffer, std::size_t length);
    // Up to `length` bytes; shorter when the peer ends the stream.
    Bytes readData(std::size_t length, double timeout);
    // Reads up to and including the delimiter, at most `max` bytes. A result of
    // exactly `max` bytes means the delimiter was not found before; when the peer
    // ends the stream the rest of the `max` bytes stay zero.
    Bytes readDataUpToData(std::span<const std::uint8_t> delimiter, std::size_t max, double timeout);
    Bytes readDataUpToData(std::string_view delimiter, std::size_t max, double timeout);
    // Reads up to and including the delimiter, without a bound. Ends early,
    // without the delimiter, when the peer ends the stream.
    Bytes readDataUpToString(std::string_view delimiter, double timeout);
    // Plain sockets only (the relay's players), like writeWithoutWaiting.
    // Reads up to and including the delimiter and never past it, with bounds
    // for a peer that is not to be trusted: at most `max` bytes (else raises
    // NamedException "TCP read limit") within `limit` seconds for the whole call
    // (else "TCP read timeout"). Ends early, without the delimiter, when the
    // peer ends the stream.
    Bytes readBoundedUpToString(std::string_view delimiter, std::size_t max, double limit);
    void writeData(std::span<const std::uint8_t> bytes, double timeout);
    // Sends as much of the parts, in order, as the socket takes at once without
    // waiting; returns the count sent (0 when it takes nothing now). Raises
    // NamedException when the peer is gone.
    std::size_t writeWithoutWaiting(std::span<const std::span<const std::uint8_t>> parts);
    // Sends the text up to its first NUL character.
    void writeString(std::string_view text, double timeout);

    // Runs the TLS handshake on a connected socket, waiting at most `timeout`
    // seconds for each step. Raises NamedException "certificate not trusted"
    // (reason "certificate not trusted: " and OpenSSL's reason) when the
    // server's certificate fails verification for `host`, "TLS error" when
    // the handshake fails otherwise, and the timed reads' failures. With
    // `allowUntrusted` an untrusted certificate is taken: the result is then
    // why it is not trusted (empty when it is).
    std::string startTls(const std::string& host, bool allowUntrusted, double timeout);
    bool secure() const { return tls_ != nullptr; }

    // Called on the main thread for each accepted client of a listening socket.
    void setNewClientHandler(NewClientHandler handler);

    // Also ends a TLS session and forgets the remote host and port.
    void close() override;

protected:
    bool createSocket() override;
    std::shared_ptr<Socket> newClientSocket(FileHandle fd, const sockaddr_in& address) override;

private:
    // An accepted client: takes over the accepted descriptor.
    TCPSocket(FileHandle fd, const sockaddr_in& address);
    // Sets the receive low-water mark when it differs from the one set last.
    void setLowWater(std::size_t bytes);
    // Bytes waiting in the receive queue.
    std::size_t pendingBytes() const;

    // One step of the session at a time, waiting `timeout` seconds for what it needs.
    std::size_t tlsRead(std::uint8_t* out, std::size_t wanted, double timeout, std::size_t* received);
    void tlsWrite(const std::uint8_t* bytes, std::size_t length, double timeout);
    // Waits for what a session step asked for; false when the wait timed out.
    bool waitForStep(TLSSession::Step step, double timeout, const char* troubleName);

    int lowWater_ = 1;                 // the kernel's default
    std::unique_ptr<TLSSession> tls_;  // ended before the descriptor closes
};

}  // namespace quillon
