#include "app/ActivityController.h"

#include <algorithm>

#include "app/StorageFolder.h"
#include "app/UserInterface.h"
#include "engine/ConnectionTimer.h"
#include "engine/Live365TitleSource.h"
#include "engine/Ripper.h"
#include "net/RelayPlaylist.h"
#include "notify/MailNotifier.h"
#include "platform/Localization.h"
#include "platform/Log.h"
#include "platform/TextUtil.h"
#include "platform/Timing.h"
#include "store/Bookmark.h"
#include "store/Preferences.h"

namespace quillon {

namespace {
constexpr int kHighestRelayPort = 65534;
constexpr int kDefaultRelayPort = 9000;
}  // namespace

ActivityController::ActivityController(UserInterface& ui, ConnectionServices services,
                                       FreeSpace::Query freeSpaceQuery, std::string recentListPath)
    : ui_(ui),
      services_(std::move(services)),
      freeSpace_(std::move(freeSpaceQuery), [this] { return downloadPath(); }),
      recentMenu_(std::move(recentListPath)) {
    if (!services_.makeTitleSource) services_.makeTitleSource = Live365TitleSource::factory();
    connections_.reserve(10);
    recentMenu_.setOpenHandler([this](const std::string& path) { connectFromRecentMenu(path); });
}

ActivityController::~ActivityController() {
    stopDiskSpaceWatch();
    *alive_ = false;
    selected_ = nullptr;
    // Each connection's destruction stops it and joins its thread.
    connections_.clear();
}

// ---- starting ---------------------------------------------------------------

Ripper* ActivityController::addRecord(const Bookmark& bookmark, const std::shared_ptr<ConnectionTimer>& rule,
                                      bool relayOnly, bool autoListen) {
    const std::string name = bookmark.connName().value_or("");
    Ripper* existing = connectionWithName(name);
    const std::string& path = bookmark.filePath();

    if (!hasEnoughFreeSpace()) {
        alert("ERROR_DISK_ALMOST_FULL", "The recordings disk is almost full: recording has stopped.");
        return nullptr;
    }
    if (!verifyStorageFolder() || path.empty()) {
        alert("ERROR_CANNOT_START_RECORD", "The recording could not be started.");
        return nullptr;
    }
    if (existing) {
        if (existing->ripperState() == Ripper::State::Stopped) {
            existing->start();
            if (rule) existing->setTimer(rule);
            if (rule) scheduled_.insert(existing->id());
            return existing;
        }
        // One connection per bookmark: never record the same one twice.
        ui_.beep();
        return nullptr;
    }

    std::unique_ptr<Ripper> made;
    try {
        // It takes its relay port from firstFreeRelay while not yet listed.
        made = std::make_unique<Ripper>(*this, bookmark, relayOnly, autoListen, services_);
    } catch (const std::exception& e) {
        Log::info("Unable to start {}: {}", name, e.what());
        return nullptr;
    }
    Ripper* connection = made.get();
    if (rule) connection->setTimer(rule);
    if (rule) scheduled_.insert(connection->id());
    connections_.push_back(std::move(made));
    addToRecents(bookmark);

    sortBy(kSortTitle, true);
    selected_ = connection;
    refreshStatus();
    return connection;
}

void ActivityController::addToRecents(const Bookmark& bookmark) {
    auto folder = Preferences::recentFolderPath();
    if (!folder) return;
    auto copy = bookmark.copyAs<Bookmark>();
    if (!copy || !copy->saveToFile(*folder)) {
        Log::info("Unable to keep a copy of {} in {}", bookmark.description(), *folder);
        return;
    }
    recentMenu_.addRecent(copy->pathInFolder(*folder), bookmark.name().value_or(""));
}

void ActivityController::connectWithBookmark(const Bookmark* bookmark) {
    if (!bookmark) {
        ui_.beep();
        return;
    }
    addRecord(*bookmark, nullptr, false, false);
}

AbstractRule::Starter ActivityController::ruleStarter() {
    std::weak_ptr<bool> alive = alive_;
    return [this, alive](const Bookmark& bookmark, const std::shared_ptr<ConnectionTimer>& rule,
                         bool relayOnly, bool autoListen) -> Ripper* {
        auto a = alive.lock();
        if (!a || !*a) return nullptr;
        return addRecord(bookmark, rule, relayOnly, autoListen);
    };
}

void ActivityController::connectFromRecentMenu(const std::string& path) {
    auto bookmark = Bookmark::resourceFromPath<Bookmark>(path);
    connectWithBookmark(bookmark.get());
}

Ripper* ActivityController::connectionWithName(const std::string& name) const {
    for (const auto& connection : connections_)
        if (connection->connName() == name) return connection.get();
    return nullptr;
}

// ---- RipperOwner ------------------------------------------------------------

std::uint16_t ActivityController::firstFreeRelay() {
    std::string base = Preferences::preferences()->getParam("relayPort");
    // Unset until the first start writes it: the default then.
    int candidate = base.empty() ? kDefaultRelayPort : intValue(base);
    if (candidate <= 0) return 0;
    for (bool taken = true; taken && candidate <= kHighestRelayPort;) {
        taken = std::any_of(connections_.begin(), connections_.end(),
                            [&](const auto& c) { return c->servePort() == candidate; });
        if (taken) ++candidate;
    }
    if (candidate > kHighestRelayPort) return 0;
    return static_cast<std::uint16_t>(candidate);
}

std::string ActivityController::downloadPath() {
    return recordsFolder_ ? *recordsFolder_ : StorageFolder::records().storageFolder();
}

void ActivityController::refreshDetails(Ripper& changed) {
    ui_.connectionChanged(changed);
    noticeEnd(changed);
    refreshStatus();
}

void ActivityController::noticeEnd(const Ripper& connection) {
    if (!mail_) return;
    const std::uint64_t id = connection.id();
    // A connection that waits to reconnect is not over: its thread still runs
    // or its state says it is coming back.
    if (!connection.stoppedForGood() || connection.endReason() == Ripper::EndReason::None) {
        ended_.erase(id);
        return;
    }
    if (!ended_.insert(id).second) return;
    const bool scheduled = scheduled_.erase(id) > 0;
    const std::string name = connection.connName();
    const std::string body = MailNotifier::bodyLines({{"Station", name},
                                                      {"Ended", connection.endReasonText()},
                                                      {"Tracks", std::to_string(connection.trackCount())},
                                                      {"Folder", downloadPath()}});
    switch (connection.endReason()) {
        case Ripper::EndReason::UserStopped:
        case Ripper::EndReason::ServerEnded:
            if (scheduled)
                mail_->notice(MailNotifier::Event::scheduleFinished, "Recording finished: " + name, body);
            break;
        default:
            mail_->notice(MailNotifier::Event::gaveUp, "Connection gave up: " + name, body);
            break;
    }
}

// ---- the list ---------------------------------------------------------------

std::string ActivityController::objectValue(const std::string& column, std::size_t row) const {
    const Ripper& connection = connectionAt(row);
    if (column == "picture") return connection.bitrateImage();
    if (column == "title") return connection.title();
    if (column == "status") return connection.status();
    return {};
}

void ActivityController::sortConnections(const std::string& key, bool ascending) {
    if (key != kSortBitrate && key != kSortTitle && key != kSortStatus) return;
    sortKey_ = key;
    sortAscending_ = ascending;
    sortBy(key, ascending);
    refreshStatus();
}

void ActivityController::sortBy(const std::string& key, bool ascending) {
    auto before = [&](const std::unique_ptr<Ripper>& a, const std::unique_ptr<Ripper>& b) {
        if (key == kSortBitrate) return a->bitrate() < b->bitrate();
        if (key == kSortStatus) return a->status() < b->status();
        return a->title() < b->title();
    };
    std::stable_sort(connections_.begin(), connections_.end(),
                     [&](const auto& a, const auto& b) { return ascending ? before(a, b) : before(b, a); });
}

// ---- selection --------------------------------------------------------------

std::optional<std::size_t> ActivityController::selectedRow() const {
    for (std::size_t row = 0; row < connections_.size(); ++row)
        if (connections_[row].get() == selected_) return row;
    return std::nullopt;
}

void ActivityController::selectRow(std::optional<std::size_t> row) {
    selected_ = row && *row < connections_.size() ? connections_[*row].get() : nullptr;
    refreshDetails();
}

void ActivityController::selectConnection(const Ripper* connection) {
    selected_ = nullptr;
    for (const auto& c : connections_)
        if (c.get() == connection) selected_ = c.get();
    refreshDetails();
}

// ---- acting on the selected connection --------------------------------------

void ActivityController::stopButton() {
    Ripper* connection = activeConnection();
    if (!connection) return;
    if (connection->ripperState() < Ripper::State::Connecting)
        connection->start();
    else
        connection->userClose();
}

void ActivityController::clearConnection() {
    Ripper* connection = activeConnection();
    if (!connection) return;
    connection->userClose();
    removeRecord(*connection);
}

bool ActivityController::askCloseAndRemove() {
    return ui_.confirm(
        localized("TITLE_WARNING", "Warning"),
        localized("MSG_DELETE_CONNECTION", "Do you really want to disconnect and remove this connection ?"),
        localized("BTN_OK", "OK"), localized("BTN_CANCEL", "Cancel"));
}

void ActivityController::deleteItems() {
    if (!activeConnection()) return;
    if (askCloseAndRemove()) clearConnection();
}

void ActivityController::stopAfterThisTrack() {
    Ripper* connection = activeConnection();
    if (!connection) return;
    if (!connection->toggleCloseAfterThisTrack()) ui_.beep();
    refreshDetails();
}

void ActivityController::doubleClick() {
    Ripper* connection = activeConnection();
    if (!connection) return;
    bool opened = RelayPlaylist::write(connection->relayPort(), connection->connName()) &&
                  ui_.openWithPlayer(RelayPlaylist::path());
    if (!opened) alert("ERROR_UNABLE_TO_LOAD_ITUNES", "The player could not be opened.");
}

std::string ActivityController::revealInFinder() {
    Ripper* connection = activeConnection();
    std::string file = connection ? connection->downloadPath() : std::string();
    if (file.empty()) file = downloadPath();
    ui_.reveal(file);
    return file;
}

void ActivityController::getInfo() {
    detailsShown_ = !detailsShown_;
    refreshDetails();
}

// ---- every connection -------------------------------------------------------

void ActivityController::stopAllConnections() {
    for (const auto& connection : connections_) connection->userClose();
}

void ActivityController::removeRecord(Ripper& connection) {
    auto found = std::find_if(connections_.begin(), connections_.end(),
                              [&](const auto& c) { return c.get() == &connection; });
    if (found == connections_.end()) return;
    if (selected_ == &connection) selected_ = nullptr;
    scheduled_.erase(connection.id());
    ended_.erase(connection.id());
    std::unique_ptr<Ripper> gone = std::move(*found);
    connections_.erase(found);
    // Destroyed off the list: its end stops and joins its thread.
    gone.reset();
    refreshStatus();
}

void ActivityController::refreshStatus() {
    if (refreshPending_) return;
    refreshPending_ = true;
    std::weak_ptr<bool> alive = alive_;
    MainLoop::main().post([this, alive] {
        auto a = alive.lock();
        if (!a || !*a) return;
        refreshPending_ = false;
        ui_.activityChanged();
    });
}

void ActivityController::refreshDetails() { refreshStatus(); }

// ---- recordings folder and disk ---------------------------------------------

void ActivityController::setRecordsFolder(std::optional<std::string> folder) {
    recordsFolder_ = std::move(folder);
}

bool ActivityController::verifyStorageFolder() {
    if (recordsFolder_) return StorageFolder::isUsableFolder(*recordsFolder_);
    return StorageFolder::records().verifyStorageFolder(&ui_);
}

void ActivityController::checkDiskSpace() {
    if (hasEnoughFreeSpace() || connections_.empty()) return;
    stopAllConnections();
    alert("ERROR_DISK_ALMOST_FULL", "The recordings disk is almost full: recording has stopped.");
    if (mail_)
        mail_->notice(
            MailNotifier::Event::diskAlmostFull, "Recording stopped: the disk is almost full",
            MailNotifier::bodyLines(
                {{"Folder", downloadPath()}, {"Connections stopped", std::to_string(connections_.size())}}));
}

void ActivityController::startDiskSpaceWatch() {
    if (diskWatch_) return;
    std::weak_ptr<bool> alive = alive_;
    diskWatch_ = MainLoop::main().addTimer(
        timing().freeSpaceCheck,
        [this, alive] {
            if (auto a = alive.lock(); a && *a) checkDiskSpace();
        },
        true);
}

void ActivityController::stopDiskSpaceWatch() {
    if (!diskWatch_) return;
    MainLoop::main().cancelTimer(*diskWatch_);
    diskWatch_.reset();
}

void ActivityController::alert(const std::string& key, const std::string& defaultText) {
    ui_.alert(key, localized(key, defaultText));
}

}  // namespace quillon
