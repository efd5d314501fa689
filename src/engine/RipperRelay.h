#pragma once
// The relay of one recording connection: a BroadcastController fed by the
// connection's audio blocks and answering from the connection's state, plus the
// connection's side of listening (the playlist file opened in the player). The
// preferences "relayAllInterfaces" and "relayMaxPlayers" are read when it is made.
//
// Thread contract: made by the connection's set-up on the main thread through
// the factory; startFeeding runs on the connection's thread, feed on its reader
// thread (under the connection's buffer lock), the rest on the main thread. The
// relay asks the connection for nothing after disposeOwner. Destruction stops
// the listener and joins the relay's threads.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "engine/ConnectionServices.h"
#include "net/RelaySource.h"

namespace quillon {

class BroadcastController;
class Ripper;

class RipperRelay : public ConnectionRelay, public RelaySource {
public:
    // Told the port once the relay listens (on the connection's thread).
    using ListeningHandler = std::function<void(std::uint16_t port)>;

    explicit RipperRelay(Ripper& ripper, ListeningHandler onListening = {});
    ~RipperRelay() override;

    // What ConnectionServices::makeRelay is set to.
    static std::function<std::unique_ptr<ConnectionRelay>(Ripper&)> factory(
        ListeningHandler onListening = {});

    // ConnectionRelay
    void startFeeding() override;
    int count() const override;
    // Writes the titled playlist and opens it with the preference
    // "playerCommand" (default xdg-open); the outcome is not examined.
    void listenOnce() override;
    void disposeOwner() override;
    void feed(std::shared_ptr<const Bytes> block) override;
    std::uint16_t port() const override;

    // RelaySource
    int ripperState() const override;
    unsigned bufferSize() const override;
    bool hasMeta() const override;
    std::string currentTrack() const override;
    std::string streamHeader() const override;
    std::uint16_t servePort() const override;
    unsigned bitrate() const override;
    void refreshStatus() override;

private:
    Ripper& ripper_;
    ListeningHandler onListening_;
    std::unique_ptr<BroadcastController> controller_;
};

}  // namespace quillon
