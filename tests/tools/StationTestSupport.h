#pragma once
// Helpers for the station tests: a raw-socket ICY client on loopback that reads
// on demand, and a wait for a condition that the station's threads bring about.
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/ByteBuffer.h"
#include "platform/FileHandle.h"
#include "support/Icy.h"
#include "support/Process.h"

namespace quillon::test {

class IcyClient {
public:
    explicit IcyClient(std::uint16_t port);  // connects to 127.0.0.1:port, throws when refused
    void send(const std::string& text);
    void sendRequest(const std::string& path = "/", bool metadata = true);
    // The header through its blank line (or whatever came before the close).
    std::string readHeader();
    // Reads until `count` bytes are buffered or the peer closes; returns and empties the buffer.
    Bytes read(std::size_t count);
    // Reads (after the header) until `audioBytes` audio bytes arrived or the peer closed.
    IcyStream readStream(std::uint32_t metaint, std::size_t audioBytes);
    // Whether the peer closes within timeoutMs; data that arrives meanwhile is kept.
    bool peerClosed(int timeoutMs = kWaitMs);
    void close() { socket_.close(); }

private:
    bool fill(int timeoutMs);
    FileHandle socket_;
    Bytes buffer_;
    bool closed_ = false;
};

// Polls `condition` until it holds or kWaitMs passes.
template <typename Condition>
bool eventually(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWaitMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

}  // namespace quillon::test
