#pragma once
// The owner of every live connection. Every way of starting a recording (a
// bookmark, the recent list, a notification, a schedule rule, the command line)
// ends in addRecord, which refuses a full disk or a missing recordings folder,
// restarts a stopped connection of the same name instead of making a second
// one, and otherwise makes, lists and starts a Ripper and puts its bookmark on
// the recent list. The controller also hands out relay ports, acts on the
// selected connection (stop or restart, stop after this track, remove, listen,
// reveal), stops everything when the disk is almost full, and keeps the list
// sorted. It draws nothing: a UserInterface shows its alerts and renders
// ActivityViewModel snapshots whenever activityChanged is called.
//
// Thread contract: main thread only, construction and destruction included.
// Connections reach it through RipperOwner on the main thread; their refreshes
// are batched into one posted activityChanged. Connections are destroyed only
// from actions posted to the main loop, never from inside a refresh.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/FreeSpace.h"
#include "app/RecentMenu.h"
#include "engine/ConnectionServices.h"
#include "engine/RipperOwner.h"
#include "platform/MainLoop.h"
#include "schedule/AbstractRule.h"

namespace quillon {

class Bookmark;
class ConnectionTimer;
class MailNotifier;
class Ripper;
class UserInterface;

class ActivityController : public RipperOwner {
public:
    // Sort keys of the list's columns.
    static constexpr const char* kSortBitrate = "bitrate";
    static constexpr const char* kSortTitle = "title";
    static constexpr const char* kSortStatus = "status";

    // `services` goes to every connection; an empty free-space query measures
    // the real volume; an empty recent-list path means the user's.
    explicit ActivityController(UserInterface& ui, ConnectionServices services = {},
                                FreeSpace::Query freeSpaceQuery = {}, std::string recentListPath = {});
    // Stops the disk watch and ends every connection; the recent list is saved.
    ~ActivityController() override;
    ActivityController(const ActivityController&) = delete;
    ActivityController& operator=(const ActivityController&) = delete;

    // ---- starting
    // The one entry point. Nothing when refused (after an alert or a beep);
    // the connection otherwise, which may be a restarted stopped one. `rule`
    // (may be null): the schedule rule that asks, which the connection then
    // refers to until it closes.
    Ripper* addRecord(const Bookmark& bookmark, const std::shared_ptr<ConnectionTimer>& rule, bool relayOnly,
                      bool autoListen);
    // How schedule rules open their connections: addRecord, while this
    // controller lives (null afterwards).
    AbstractRule::Starter ruleStarter();
    // No bookmark: a beep. Else addRecord, recording, without listening.
    void connectWithBookmark(const Bookmark* bookmark);
    // Loads the bookmark file (a beep when it cannot be read), then as above.
    void connectFromRecentMenu(const std::string& path);
    // The first connection, in list order, of that connection name.
    Ripper* connectionWithName(const std::string& name) const;

    // ---- RipperOwner
    // From the preference "relayPort" upwards, the first port no listed
    // connection serves on; 0 when "relayPort" is 0 (any port) or nothing up
    // to 65534 is free.
    std::uint16_t firstFreeRelay() override;
    // The recordings folder.
    std::string downloadPath() override;
    void refreshDetails(Ripper& changed) override;

    // ---- the list
    std::size_t numberOfRows() const { return connections_.size(); }
    Ripper& connectionAt(std::size_t row) const { return *connections_.at(row); }
    // The table's cell: "picture" the bit-rate image, "title", "status".
    std::string objectValue(const std::string& column, std::size_t row) const;
    // Sorts by "bitrate", "title" or "status" (other keys are ignored) and
    // redraws; later additions sort by title again, as the list always did.
    void sortConnections(const std::string& key, bool ascending);
    const std::string& sortKey() const { return sortKey_; }
    bool sortAscending() const { return sortAscending_; }

    // ---- selection
    // The connection of the selected row; none without a selection.
    Ripper* activeConnection() const { return selected_; }
    Ripper* selectedItem() const { return selected_; }
    std::optional<std::size_t> selectedRow() const;
    // A row outside the list clears the selection.
    void selectRow(std::optional<std::size_t> row);
    void selectConnection(const Ripper* connection);

    // ---- acting on the selected connection
    // Stopped: starts it again; otherwise stops it.
    void stopButton();
    void disconnect() { stopButton(); }
    // Stops and removes it, without asking.
    void clearConnection();
    void disconnectAndRemove() { clearConnection(); }
    // Asks first; removes on the default button.
    void deleteItems();
    bool askCloseAndRemove();
    // Flips stop-after-this-track; a beep when the stream has no tracks.
    void stopAfterThisTrack();
    // Points the relay playlist at the connection and opens it with the player.
    void doubleClick();
    void listen() { doubleClick(); }
    // Shows the selected connection's file (else the recordings folder) in the
    // file manager where there is one; returns the path shown.
    std::string revealInFinder();
    // Shows or hides the detail panel.
    void getInfo();
    bool detailsShown() const { return detailsShown_; }

    // ---- every connection
    void stopAllConnections();
    // Removes and ends the connection when listed.
    void removeRecord(Ripper& connection);
    void ripperDidStop(Ripper& connection) { removeRecord(connection); }
    // Has the user interface render the list again (batched).
    void refreshStatus();
    void refreshDetails();

    // ---- recordings folder and disk
    // A folder for this run only (the command line's --to); nothing for the
    // stored one.
    void setRecordsFolder(std::optional<std::string> folder);
    // The recordings folder is usable (asking the user when interactive).
    bool verifyStorageFolder();
    bool hasEnoughFreeSpace() const { return freeSpace_.hasEnoughFreeSpace(); }
    // Not enough room and connections listed: stops them all and alerts.
    void checkDiskSpace();
    // checkDiskSpace every timing().freeSpaceCheck seconds until stopped.
    void startDiskSpaceWatch();
    void stopDiskSpaceWatch();

    // ---- mail notices
    // Where notices of scheduled recordings that finished, connections that
    // gave up and a full disk go (each sent only when switched on); none: no
    // notices. The notifier must outlive this controller.
    void setMailNotifier(MailNotifier* notifier) { mail_ = notifier; }

    RecentMenu& recentMenu() { return recentMenu_; }
    const RecentMenu& recentMenu() const { return recentMenu_; }
    UserInterface& userInterface() const { return ui_; }

private:
    void alert(const std::string& key, const std::string& defaultText);
    void addToRecents(const Bookmark& bookmark);
    void sortBy(const std::string& key, bool ascending);
    // Mails the end of a connection once per run, when it is over for good.
    void noticeEnd(const Ripper& connection);

    UserInterface& ui_;
    ConnectionServices services_;
    FreeSpace freeSpace_;
    RecentMenu recentMenu_;
    std::vector<std::unique_ptr<Ripper>> connections_;
    Ripper* selected_ = nullptr;
    std::optional<std::string> recordsFolder_;
    std::string sortKey_ = kSortTitle;
    bool sortAscending_ = true;
    bool detailsShown_ = false;
    bool refreshPending_ = false;
    std::optional<MainLoop::TimerId> diskWatch_;
    MailNotifier* mail_ = nullptr;
    std::set<std::uint64_t> scheduled_;  // connections a rule started, until their end is told
    std::set<std::uint64_t> ended_;      // connections whose end of this run was told
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace quillon
