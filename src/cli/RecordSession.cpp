#include "cli/RecordSession.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <optional>

#include <fmt/format.h>

#include "app/ActivityController.h"
#include "engine/LibraryHandOff.h"
#include "engine/LibrarySettings.h"
#include "engine/Ripper.h"
#include "engine/RipperRelay.h"
#include "history/HistoryTrackLog.h"
#include "platform/DefaultsStore.h"
#include "platform/Desktop.h"
#include "platform/Home.h"
#include "platform/InterruptWatcher.h"
#include "platform/MainLoop.h"
#include "platform/TextUtil.h"
#include "store/Bookmark.h"
#include "store/Preferences.h"

namespace quillon {

namespace {

std::string humanBytes(std::uint64_t bytes) {
    if (bytes < 1024 * 1024) return fmt::format("{:.1f} KiB", bytes / 1024.0);
    return fmt::format("{:.1f} MiB", bytes / (1024.0 * 1024.0));
}

std::string location(const Bookmark& b) {
    return b.host().value_or("") + ":" + b.port().value_or("") + b.path();
}

bool sameLocation(const Bookmark& a, const Bookmark& b) {
    return a.host() == b.host() && a.port() == b.port() && a.path() == b.path();
}

}  // namespace

RecordSession::RecordSession(RecordOptions options) : options_(std::move(options)) {}

RecordSession::~RecordSession() = default;

std::string RecordSession::defaultFolder() {
    auto stored = DefaultsStore::standard().stringForKey("RECORDS_STORAGE_FOLDER");
    if (stored && !stored->empty()) return *stored;
    return homePath("Music");
}

std::vector<std::shared_ptr<Bookmark>> RecordSession::namedApart(
    const std::vector<std::shared_ptr<Bookmark>>& given) {
    std::vector<std::shared_ptr<Bookmark>> out;
    for (const auto& original : given) {
        auto b = original->copyAs<Bookmark>();
        b->setFilePath(original->filePath());
        const std::string base = b->name().value_or("");
        bool repeated = false;
        for (int n = 2;; ++n) {
            auto clash =
                std::find_if(out.begin(), out.end(), [&](const auto& o) { return o->name() == b->name(); });
            if (clash == out.end()) break;
            if (sameLocation(**clash, *b)) {
                repeated = true;
                break;
            }
            b->setName(base + " " + std::to_string(n));
            b->setFilePath("");
        }
        if (repeated) {
            std::fprintf(stderr, "quillon: %s is given twice; it is recorded once\n", location(*b).c_str());
            continue;
        }
        out.push_back(std::move(b));
    }
    return out;
}
// ---- UserInterface ----------------------------------------------------------

void RecordSession::alert(const std::string& key, const std::string& text) {
    if (key == "ERROR_DISK_ALMOST_FULL") diskAlmostFull_ = true;
    message("quillon: " + text);
}

void RecordSession::beep() {
    if (tty_) std::fputc('\a', stderr);
}

bool RecordSession::confirm(const std::string&, const std::string&, const std::string&, const std::string&) {
    return false;  // nothing here asks; never remove unasked
}

std::optional<std::string> RecordSession::chooseFolder(const std::string&, const std::string& text) {
    message("quillon: " + text);
    return std::nullopt;
}

bool RecordSession::reveal(const std::string& path) { return Desktop::reveal(path); }

bool RecordSession::openWithPlayer(const std::string& path) {
    return Desktop::openWith(Preferences::preferences()->getParam("playerCommand"), path);
}

void RecordSession::connectionChanged(const Ripper& connection) {
    bool& streamed = streamed_[&connection];
    streamed = streamed || connection.isStreaming();
}

// ---- the view ---------------------------------------------------------------

void RecordSession::eraseStatusLines() {
    if (!tty_ || linesDrawn_ == 0) return;
    std::fprintf(stderr, "\r\x1b[K");
    for (int i = 1; i < linesDrawn_; ++i) std::fprintf(stderr, "\x1b[1A\x1b[K");
    linesDrawn_ = 0;
}

void RecordSession::message(const std::string& text) {
    eraseStatusLines();
    std::fprintf(stderr, "%s\n", printable(text).c_str());
    std::fflush(stderr);
}

void RecordSession::drawStatusLines(bool final) {
    if (!options_.statusLine || !controller_) return;
    const std::size_t rows = controller_->numberOfRows();
    // Titles come from the server: their control characters (escape
    // sequences that retitle or clear the terminal) are shown, not obeyed.
    auto named = [&](const Ripper& c, const std::string& text) {
        return printable(rows > 1 ? c.connName() + ": " + text : text);
    };
    if (!tty_) {
        // Into a log or a pipe: one line per change of status, no redrawing.
        for (std::size_t row = 0; row < rows; ++row) {
            const Ripper& c = controller_->connectionAt(row);
            std::string status = c.status();
            std::string& last = lastStatus_[&c];
            if (status != last) std::fprintf(stderr, "%s\n", named(c, status).c_str());
            last = status;
        }
        return;
    }
    eraseStatusLines();
    for (std::size_t row = 0; row < rows; ++row) {
        const Ripper& c = controller_->connectionAt(row);
        std::string line = named(c, fmt::format("{}  |  {}  |  buffer {}%", c.status(),
                                                humanBytes(c.bytesRead()), c.filledValue()));
        std::fprintf(stderr, "\x1b[K%s%s", line.c_str(), row + 1 < rows ? "\n" : "");
    }
    linesDrawn_ = static_cast<int>(rows);
    if (final && rows > 0) {
        std::fprintf(stderr, "\n");
        linesDrawn_ = 0;
    }
    std::fflush(stderr);
}

bool RecordSession::finished() {
    if ((interrupts_ && interrupts_->interrupted()) || !controller_) return true;
    const std::size_t rows = controller_->numberOfRows();
    if (rows == 0) return true;
    bool allStopped = true;
    bool allTracksDone = options_.finishedTracks > 0;
    for (std::size_t row = 0; row < rows; ++row) {
        Ripper& c = controller_->connectionAt(row);
        allStopped = allStopped && c.stoppedForGood();
        if (!allTracksDone) continue;
        if (c.trackCount() <= options_.finishedTracks) {
            allTracksDone = false;
            continue;
        }
        // The cut into the newest file is made with the block after its title;
        // wait for that block so the previous track is closed.
        std::uint64_t& mark = bytesAtLastTrack_[&c];
        if (mark == 0) mark = c.bytesRead();
        if (c.bytesRead() <= mark + c.bufferSize()) allTracksDone = false;
    }
    return allStopped || allTracksDone;
}

// ---- running ----------------------------------------------------------------

int RecordSession::run(const Bookmark& bookmark) {
    auto copy = bookmark.copyAs<Bookmark>();
    copy->setFilePath(bookmark.filePath());
    return run(std::vector<std::shared_ptr<Bookmark>>{copy});
}

int RecordSession::run(const std::vector<std::shared_ptr<Bookmark>>& bookmarks) {
    if (!makeFolders(options_.folder)) {
        std::fprintf(stderr, "quillon: cannot create the recordings folder %s\n", options_.folder.c_str());
        return 1;
    }
    tty_ = ::isatty(STDERR_FILENO) != 0;
    // Ctrl-C arrives as a task on the loop, which then finds the run finished.
    interrupts_ = std::make_unique<InterruptWatcher>([] {});

    MainLoop& loop = MainLoop::main();
    loop.runUntil([] { return true; }, 0);  // this thread is the main thread from here on
    auto alive = std::make_shared<bool>(true);
    std::weak_ptr<bool> weak = alive;
    ConnectionServices services;
    services.history = std::make_shared<HistoryTrackLog>();  // the shared history, loaded when first used
    services.makeRelay = [this, weak](Ripper& ripper) -> std::unique_ptr<ConnectionRelay> {
        std::string name = ripper.connName();
        // Told on the connection's thread; printed on the main thread.
        return std::make_unique<RipperRelay>(ripper, [this, weak, name](std::uint16_t port) {
            MainLoop::main().post([this, weak, name, port] {
                if (weak.lock()) message(fmt::format("Relay: http://127.0.0.1:{}/  ({})", port, name));
            });
        });
    };
    // The run's folder is where M3U playlists go unless "libraryFolder" says
    // otherwise; the controller's end waits for the hand-offs still running.
    services.handToLibrary = LibraryHandOff::service([folder = options_.folder](std::string& failure) {
        return LibrarySettings::fromPreferences(*Preferences::preferences()).makeLibrary(folder, failure);
    });
    controller_ = std::make_unique<ActivityController>(*this, std::move(services));
    controller_->setRecordsFolder(options_.folder);
    // Every process that records watches the free space, not only the daemon.
    if (!options_.relayOnly) controller_->startDiskSpaceWatch();

    bool refused = false;
    auto recentFolder = Preferences::recentFolderPath();
    for (const auto& b : namedApart(bookmarks)) {
        // A connection needs a bookmark file; one typed as a location gets
        // the copy that the recent list keeps of it.
        if (b->filePath().empty()) b->setFilePath(b->pathInFolder(recentFolder.value_or(options_.folder)));
        if (Ripper* c = controller_->addRecord(*b, nullptr, options_.relayOnly, options_.listen)) {
            streamed_.try_emplace(c, c->isStreaming());
        } else {
            refused = true;
        }
    }

    std::optional<MainLoop::TimerId> redraw;
    if (options_.statusLine)
        redraw = loop.addTimer(
            0.5, [this] { drawStatusLines(false); }, true);
    double limit = options_.seconds.value_or(1e9);
    // Status changes and Ctrl-C are posted to the loop, which re-checks after
    // each; a timed check is needed only while waiting for the block after a
    // track (bytes read are not posted), so an idle recorder sleeps.
    loop.runUntil([this] { return finished(); }, limit, options_.finishedTracks > 0 ? 0.1 : 5);
    if (redraw) loop.cancelTimer(*redraw);
    drawStatusLines(true);

    std::vector<std::string> failed;
    std::vector<std::string> ends;
    bool allEndedWell = true;
    const std::size_t rows = controller_->numberOfRows();
    for (std::size_t row = 0; row < rows; ++row) {
        const Ripper& c = controller_->connectionAt(row);
        if (!streamed_[&c]) {
            const std::string why = c.endReasonText();
            failed.push_back(location(c.bookmark()) + ": " + (why.empty() ? "no connection" : why));
            continue;
        }
        // Still running here means the run's end (--for, Ctrl-C) stops it.
        const Ripper::EndReason reason = c.endReason();
        const bool well = reason == Ripper::EndReason::None || reason == Ripper::EndReason::UserStopped ||
                          reason == Ripper::EndReason::ServerEnded;
        allEndedWell = allEndedWell && well;
        const std::string text =
            reason == Ripper::EndReason::None ? std::string("stopped by the user") : c.endReasonText();
        ends.push_back(rows > 1 ? c.connName() + ": " + text : text);
    }
    *alive = false;
    controller_.reset();  // ends every connection
    interrupts_.reset();

    for (const auto& end : ends) std::fprintf(stderr, "Ended: %s\n", printable(end).c_str());
    for (const auto& what : failed)
        std::fprintf(stderr, "quillon: could not record %s\n", printable(what).c_str());
    if (diskAlmostFull_) std::fprintf(stderr, "quillon: stopped: the recordings disk is almost full\n");
    return failed.empty() && !refused && allEndedWell && !diskAlmostFull_ ? 0 : 1;
}

}  // namespace quillon
