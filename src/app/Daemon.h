#pragma once
// `quillon serve` as an object: the application (Controller) with its change
// feed, question board and user interface, and the API server in front of it,
// put together in order and taken apart in the reverse order. One process
// owns the activity list, the schedules, the history and the relay ports.
//
// Thread contract: main thread only; run the main loop between start and stop.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "app/Controller.h"

namespace quillon {

class ApiServer;
class BookmarkApi;
class MailApi;
class DirectoryApi;
class DaemonUserInterface;
class EventHub;
class History;
class HistoryFileApi;
class LibraryApi;
class LoginLinks;
class RelayAudioApi;

class Daemon {
public:
    static constexpr std::uint16_t kDefaultPort = 8642;

    struct Options {
        std::optional<std::uint16_t> port;  // else the preference "webPort"
        Controller::Options controller;
    };

    explicit Daemon(Options options = {});
    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    // The token, the application's start-up and the API; false with the
    // reason when the daemon cannot serve (no token, port taken).
    bool start(std::string& failure);
    // Stops serving, then quits the application (window state, preferences).
    void stop();

    std::uint16_t port() const;
    std::string pageUrl() const;
    Controller& controller() { return *controller_; }
    EventHub& events() { return *events_; }

private:
    Options options_;
    std::unique_ptr<EventHub> events_;
    std::unique_ptr<LoginLinks> logins_;
    std::unique_ptr<QuestionBoard> questions_;
    std::unique_ptr<DaemonUserInterface> ui_;
    std::unique_ptr<Controller> controller_;
    std::shared_ptr<History> history_;  // the routes hold it by reference
    std::unique_ptr<ApiServer> server_;
    std::unique_ptr<BookmarkApi> bookmarks_;
    std::unique_ptr<LibraryApi> library_;
    std::unique_ptr<MailApi> mail_;
    std::unique_ptr<DirectoryApi> directory_;
    std::unique_ptr<RelayAudioApi> relayAudio_;
    std::unique_ptr<HistoryFileApi> historyFile_;
    bool stopped_ = false;
};

}  // namespace quillon
