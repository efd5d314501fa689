#include "app/Daemon.h"

#include "app/ActivityApi.h"
#include "app/ApiServer.h"
#include "app/ApiToken.h"
#include "app/ApplicationApi.h"
#include "app/BookmarkApi.h"
#include "app/DaemonUserInterface.h"
#include "app/DirectoryApi.h"
#include "app/EventHub.h"
#include "app/HistoryApi.h"
#include "app/HistoryFileApi.h"
#include "app/LibraryApi.h"
#include "app/LoginLinks.h"
#include "app/MailApi.h"
#include "app/RecentApi.h"
#include "app/RelayAudioApi.h"
#include "app/ScheduleApi.h"
#include "app/SettingsApi.h"
#include "engine/RipperRelay.h"
#include "history/History.h"
#include "history/HistoryTrackLog.h"
#include "platform/Log.h"
#include "platform/TextUtil.h"
#include "store/Preferences.h"

namespace quillon {

Daemon::Daemon(Options options)
    : options_(std::move(options)),
      events_(std::make_unique<EventHub>()),
      logins_(std::make_unique<LoginLinks>()),
      questions_(std::make_unique<QuestionBoard>([this](const nlohmann::json& e) { events_->publish(e); })),
      ui_(std::make_unique<DaemonUserInterface>(*events_)) {}

Daemon::~Daemon() { stop(); }

bool Daemon::start(std::string& failure) {
    auto prefs = Preferences::preferences();
    auto token = ApiToken::loadOrCreate(ApiToken::path(), failure);
    if (!token) {
        failure = "no API token, so no API: " + failure;
        return false;
    }
    ApiServer::Options server;
    server.token = *token;
    int port = options_.port ? *options_.port : intValue(prefs->getParam("webPort"));
    server.port = port >= 1 && port <= 65535 ? static_cast<std::uint16_t>(port) : kDefaultPort;
    if (prefs->getState("webAllInterfaces")) {
        server.host = "0.0.0.0";
        server.anyHost = true;
    }

    // Every connection of the daemon relays to local players (and the web
    // page's audio element), enters its tracks in the history and hands them
    // to the music library, as one in the foreground does; a test may bring
    // its own.
    auto& services = options_.controller.services;
    if (!services.makeRelay) services.makeRelay = RipperRelay::factory();
    if (!services.history) services.history = std::make_shared<HistoryTrackLog>();
    if (!services.handToLibrary) services.handToLibrary = LibraryApi::handOffService();
    controller_ = std::make_unique<Controller>(*ui_, *questions_, std::move(options_.controller));
    ui_->setActivity(&controller_->activity());
    server_ = std::make_unique<ApiServer>(server, *events_, *logins_);
    addActivityRoutes(*server_, *controller_);
    addRecentRoutes(*server_, *controller_);
    addApplicationRoutes(*server_, *controller_, *logins_);
    addScheduleRoutes(*server_, *controller_, *events_);
    bookmarks_ = std::make_unique<BookmarkApi>(*server_, *events_);
    directory_ = std::make_unique<DirectoryApi>(*server_, *events_);
    relayAudio_ = std::make_unique<RelayAudioApi>(*server_, *controller_);
    history_ = History::history();
    addHistoryRoutes(*server_, *history_, *events_);
    historyFile_ = std::make_unique<HistoryFileApi>(*server_, *history_);
    // Tracks the recordings add; the event hub outlives the handler (stop()).
    history_->setRefreshHandler([events = events_.get()] { events->publish({{"type", "history"}}); });
    addSettingsRoutes(*server_, *controller_, *events_);
    library_ = std::make_unique<LibraryApi>(*server_, *events_);
    mail_ = std::make_unique<MailApi>(*server_, *events_);
    if (!server_->start(failure)) return false;
    controller_->start();
    Log::info("Quillon serves its API on {}:{}", server.host, server_->port());
    return true;
}

void Daemon::stop() {
    if (stopped_ || !controller_) return;
    stopped_ = true;
    if (server_) server_->stop();
    bookmarks_.reset();  // ends the fetches of new bookmarks
    directory_.reset();  // ends the directory's update, filter and playlist fetches
    if (history_) history_->setRefreshHandler({});
    controller_->quit();
    ui_->setActivity(nullptr);
}

std::uint16_t Daemon::port() const { return server_ ? server_->port() : 0; }

std::string Daemon::pageUrl() const { return "http://127.0.0.1:" + std::to_string(port()) + "/"; }

}  // namespace quillon
