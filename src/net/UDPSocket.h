#pragma once
// A blocking IPv4 datagram socket: send one datagram to a host and port, receive
// one datagram with its sender. Nothing is raised: failures are logged or give
// no datagram.
//
// Thread contract: as Socket; one thread at a time sends or receives.
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "net/Socket.h"
#include "platform/ByteBuffer.h"

namespace quillon {

class UDPSocket : public Socket {
public:
    // Never fails: without a descriptor sends and receives fail instead.
    UDPSocket();
    ~UDPSocket() override;

    void write(std::span<const std::uint8_t> bytes, const std::string& host, std::uint16_t port);
    // Waits for one datagram (at most 65535 bytes); none when the receive fails.
    std::optional<Bytes> readBytesSenderIP(std::string& senderIP, std::uint16_t& senderPort);
    // As above, waiting at most `timeout` seconds.
    std::optional<Bytes> readBytesSenderIP(std::string& senderIP, std::uint16_t& senderPort, double timeout);

protected:
    bool createSocket() override;

private:
    Bytes buffer_;
};

}  // namespace quillon
