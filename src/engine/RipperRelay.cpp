#include "engine/RipperRelay.h"

#include "engine/Ripper.h"
#include "net/BroadcastController.h"
#include "net/RelayPlaylist.h"
#include "platform/Desktop.h"
#include "store/Preferences.h"

namespace quillon {

namespace {

BroadcastController::Settings relaySettings() {
    auto prefs = Preferences::preferences();
    BroadcastController::Settings settings;
    settings.allInterfaces = prefs->getState("relayAllInterfaces");
    settings.maxPlayers = BroadcastController::Settings::maxPlayersFrom(prefs->getParam("relayMaxPlayers"));
    return settings;
}

}  // namespace

RipperRelay::RipperRelay(Ripper& ripper, ListeningHandler onListening)
    : ripper_(ripper), onListening_(std::move(onListening)) {
    controller_ = std::make_unique<BroadcastController>(*this, relaySettings());
}

// The controller goes first: its threads still ask this object.
RipperRelay::~RipperRelay() { controller_.reset(); }

std::function<std::unique_ptr<ConnectionRelay>(Ripper&)> RipperRelay::factory(ListeningHandler onListening) {
    return [onListening](Ripper& ripper) { return std::make_unique<RipperRelay>(ripper, onListening); };
}

void RipperRelay::startFeeding() {
    controller_->startFeeding();
    if (controller_->isStreaming() && onListening_) onListening_(controller_->listeningPort());
}

int RipperRelay::count() const { return controller_->count(); }

void RipperRelay::listenOnce() {
    // The port actually listened on, which differs when the system chose it.
    std::uint16_t port = controller_->listeningPort();
    if (port == 0) port = ripper_.servePort();
    RelayPlaylist::write(port, ripper_.connName());
    Desktop::openWith(Preferences::preferences()->getParam("playerCommand"), RelayPlaylist::path());
}

void RipperRelay::disposeOwner() { controller_->disposeOwner(); }

void RipperRelay::feed(std::shared_ptr<const Bytes> block) { controller_->feed(std::move(block)); }

std::uint16_t RipperRelay::port() const { return controller_->listeningPort(); }

int RipperRelay::ripperState() const { return static_cast<int>(ripper_.ripperState()); }

unsigned RipperRelay::bufferSize() const { return ripper_.bufferSize(); }

bool RipperRelay::hasMeta() const { return ripper_.hasMeta(); }

std::string RipperRelay::currentTrack() const { return ripper_.currentTrack(); }

std::string RipperRelay::streamHeader() const { return ripper_.streamHeader().header(); }

std::uint16_t RipperRelay::servePort() const { return ripper_.servePort(); }

unsigned RipperRelay::bitrate() const { return ripper_.bitrate(); }

void RipperRelay::refreshStatus() { ripper_.refreshStatus(); }

}  // namespace quillon
