#pragma once
// The optional collaborators of a recording connection: the relay to local
// players, the music-library hand-off and the web-page title source. Each is
// absent until its subsystem provides it; the connection calls them where the
// recording flow needs them.
#include <functional>
#include <memory>
#include <string>

#include "platform/ByteBuffer.h"

namespace quillon {

class Ripper;
class TrackHistory;

// The relay of one connection (made per connection set-up).
class ConnectionRelay {
public:
    virtual ~ConnectionRelay() = default;
    virtual void startFeeding() = 0;
    virtual int count() const = 0;
    virtual void listenOnce() = 0;
    // The port actually listened on (the system's choice when asked for 0);
    // 0 while not feeding.
    virtual std::uint16_t port() const = 0;
    // Called before the relay is dropped, while the connection still exists.
    virtual void disposeOwner() = 0;
    // Each audio block as it is cut from the stream (metadata removed), shared
    // read-only with every player. Called by the connection's reader thread
    // under its buffer lock: must not block.
    virtual void feed(std::shared_ptr<const Bytes> block) = 0;
};

// A title source that polls a station's web page for track titles.
class TitleSource {
public:
    virtual ~TitleSource() = default;
    virtual bool enabled() const = 0;
};

struct ConnectionServices {
    std::function<std::unique_ptr<ConnectionRelay>(Ripper&)> makeRelay;
    std::function<std::unique_ptr<TitleSource>(Ripper&, const std::string& requestText)> makeTitleSource;
    // Hands a finished track file to the playlist of that name in the music
    // library; returns at once (the hand-off runs on a thread of its own).
    std::function<void(const std::string& path, const std::string& playlist)> handToLibrary;
    std::shared_ptr<TrackHistory> history;
};

}  // namespace quillon
