#pragma once
// The command line's view of the activity list: records one or more bookmarks
// side by side in the foreground through an ActivityController, shows one
// status line per connection and each connection's relay address, and ends on
// Ctrl-C, after a set duration, or when every connection has stopped for good.
// Alerts and beeps become messages on stderr; the player and the file browser
// are the configured desktop programs.
//
// Thread contract: main thread only (run() runs the main loop). The relay
// announcements come from connection threads and are posted to the main loop.
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/UserInterface.h"

namespace quillon {

class ActivityController;
class InterruptWatcher;
class Bookmark;

struct RecordOptions {
    std::optional<double> seconds;  // stop after this long
    bool relayOnly = false;
    bool listen = false;     // open the relay in the player once streaming starts
    std::string folder;      // the recordings folder
    bool statusLine = true;  // redraw the status lines on stderr
    // Stop once every connection has finished this many tracks, i.e. cut and
    // closed them (the demo); 0: no limit.
    int finishedTracks = 0;
};

class RecordSession : public UserInterface {
public:
    explicit RecordSession(RecordOptions options);
    ~RecordSession() override;

    // Records until done and says why each connection ended; returns the exit
    // status: 0 when every connection ended by the user's stop, the set
    // duration or the end of the stream; 1 otherwise (never reached, refused,
    // lost, a disk error, the disk almost full).
    int run(const std::vector<std::shared_ptr<Bookmark>>& bookmarks);
    int run(const Bookmark& bookmark);

    // The recordings folder of the command line: --to, else the defaults-store
    // key "RECORDS_STORAGE_FOLDER", else home + "/Music".
    static std::string defaultFolder();
    // The bookmarks to record, each named apart ("Name", "Name 2", ...): the
    // activity list holds one connection per name, and locations named after
    // their host may share one. The same location given twice is kept once,
    // with a message.
    static std::vector<std::shared_ptr<Bookmark>> namedApart(
        const std::vector<std::shared_ptr<Bookmark>>& given);

    // UserInterface
    void alert(const std::string& key, const std::string& text) override;
    void beep() override;
    bool confirm(const std::string& title, const std::string& message, const std::string& defaultButton,
                 const std::string& alternateButton) override;
    std::optional<std::string> chooseFolder(const std::string& key, const std::string& message) override;
    bool reveal(const std::string& path) override;
    bool openWithPlayer(const std::string& path) override;
    void connectionChanged(const Ripper& connection) override;

private:
    // Prints a message line above the status lines.
    void message(const std::string& text);
    void drawStatusLines(bool final);
    void eraseStatusLines();
    bool finished();

    RecordOptions options_;
    std::unique_ptr<ActivityController> controller_;
    std::unique_ptr<InterruptWatcher> interrupts_;
    std::map<const Ripper*, bool> streamed_;  // every connection made, and whether it ever streamed
    std::map<const Ripper*, std::uint64_t> bytesAtLastTrack_;
    bool tty_ = false;
    bool diskAlmostFull_ = false;  // the free-space guard stopped the recording
    int linesDrawn_ = 0;
    std::map<const Ripper*, std::string> lastStatus_;
};

}  // namespace quillon
