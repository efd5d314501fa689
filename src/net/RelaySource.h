#pragma once
// What a relay needs from the connection it serves: the connection's state, its
// block size and whether its stream carries metadata, the current title, the
// upstream header to repeat to players, and a way to have its status redrawn.
//
// Thread contract: called from the relay's feed thread, its players' writer
// threads and the main thread, one call at a time per relay (the relay
// serialises them with its owner mutex). Implementations answer from any thread
// and never block: refreshStatus only schedules the redraw.
#include <cstdint>
#include <string>

namespace quillon {

class RelaySource {
public:
    // The connection states at and above this one stream (recording or relaying).
    static constexpr int kStreaming = 5;

    virtual ~RelaySource() = default;

    virtual int ripperState() const = 0;
    // Audio bytes between two metadata blocks (8192 when the stream has none).
    virtual unsigned bufferSize() const = 0;
    virtual bool hasMeta() const = 0;
    virtual std::string currentTrack() const = 0;
    // The upstream response header as rebuilt for players, blank line included.
    virtual std::string streamHeader() const = 0;
    // The port the relay is to listen on; 0 lets the system choose.
    virtual std::uint16_t servePort() const = 0;
    // kbit/s as announced upstream; 0 when unknown.
    virtual unsigned bitrate() const = 0;
    virtual void refreshStatus() = 0;
};

}  // namespace quillon
