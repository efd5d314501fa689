#include "cli/RecordSession.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>

#include <fmt/format.h>

#include "engine/RipperRelay.h"
#include "history/HistoryTrackLog.h"
#include "platform/DefaultsStore.h"
#include "platform/Home.h"
#include "platform/MainLoop.h"
#include "platform/TextUtil.h"
#include "store/Bookmark.h"
#include "store/Preferences.h"

namespace quillon {

namespace {
volatile std::sig_atomic_t interrupted = 0;
extern "C" void onInterrupt(int) { interrupted = 1; }

// Told on the connection's thread; printed on the main thread, which also draws
// the status line.
void announceRelay(std::uint16_t port) {
    MainLoop::main().post([port] {
        const char* clear = ::isatty(STDERR_FILENO) ? "\r\x1b[K" : "";
        std::fprintf(stderr, "%sRelay: http://127.0.0.1:%u/\n", clear, static_cast<unsigned>(port));
    });
}

std::string humanBytes(std::uint64_t bytes) {
    if (bytes < 1024 * 1024) return fmt::format("{:.1f} KiB", bytes / 1024.0);
    return fmt::format("{:.1f} MiB", bytes / (1024.0 * 1024.0));
}
}  // namespace

RecordSession::RecordSession(RecordOptions options) : options_(std::move(options)) {}

RecordSession::~RecordSession() = default;

std::string RecordSession::defaultFolder() {
    auto stored = DefaultsStore::standard().stringForKey("RECORDS_STORAGE_FOLDER");
    if (stored && !stored->empty()) return *stored;
    return homePath("Music");
}

std::uint16_t RecordSession::firstFreeRelay() {
    int port = intValue(Preferences::preferences()->getParam("relayPort"));
    return static_cast<std::uint16_t>(port > 0 ? port : 9000);
}

void RecordSession::refreshDetails(Ripper& changed) {
    if (changed.isStreaming()) everStreamed_ = true;
}

bool RecordSession::finished() {
    if (interrupted) return true;
    if (!ripper_) return true;
    if (options_.finishedTracks > 0 && ripper_->trackCount() > options_.finishedTracks) {
        // The cut into the newest file is made with the block after its title;
        // wait for that block so the previous track is closed.
        if (bytesAtLastTrack_ == 0) bytesAtLastTrack_ = ripper_->bytesRead();
        if (ripper_->bytesRead() > bytesAtLastTrack_ + ripper_->bufferSize()) return true;
    }
    return ripper_->stoppedForGood();
}

void RecordSession::drawStatusLine(bool final) {
    if (!options_.statusLine || !ripper_) return;
    if (!::isatty(STDERR_FILENO)) {
        // Into a log or a pipe: one line per change of status, no redrawing.
        std::string status = ripper_->status();
        if (status != lastStatus_) std::fprintf(stderr, "%s\n", status.c_str());
        lastStatus_ = status;
        return;
    }
    std::string line = fmt::format("{}  |  {}  |  buffer {}%", ripper_->status(),
                                   humanBytes(ripper_->bytesRead()), ripper_->filledValue());
    std::string padded = line;
    if (padded.size() < lastLineLength_) padded.append(lastLineLength_ - padded.size(), ' ');
    lastLineLength_ = line.size();
    std::fprintf(stderr, "\r%s%s", padded.c_str(), final ? "\n" : "");
    std::fflush(stderr);
}

int RecordSession::run(const Bookmark& bookmark) {
    if (!makeFolders(options_.folder)) {
        std::fprintf(stderr, "quillon: cannot create the recordings folder %s\n", options_.folder.c_str());
        return 1;
    }
    interrupted = 0;
    auto previousInt = std::signal(SIGINT, onInterrupt);
    auto previousTerm = std::signal(SIGTERM, onInterrupt);

    MainLoop& loop = MainLoop::main();
    loop.runUntil([] { return true; }, 0);  // this thread is the main thread from here on
    ConnectionServices services;
    services.history = std::make_shared<HistoryTrackLog>();  // the shared history, loaded when first used
    services.makeRelay = RipperRelay::factory(announceRelay);
    ripper_ =
        std::make_unique<Ripper>(*this, bookmark, options_.relayOnly, options_.listen, std::move(services));
    auto redraw = loop.addTimer(
        0.5, [this] { drawStatusLine(false); }, true);
    double limit = options_.seconds.value_or(1e9);
    loop.runUntil([this] { return finished(); }, limit);
    loop.cancelTimer(redraw);
    drawStatusLine(true);

    bool streamed = everStreamed_;
    ripper_->userClose();
    ripper_.reset();
    std::signal(SIGINT, previousInt);
    std::signal(SIGTERM, previousTerm);

    if (!streamed) {
        std::string reason;
        for (const auto& line : log_.lines()) reason = line;
        std::fprintf(stderr, "quillon: could not record %s:%s%s: %s\n", bookmark.host().value_or("").c_str(),
                     bookmark.port().value_or("").c_str(), bookmark.path().c_str(),
                     reason.empty() ? "no connection" : reason.c_str());
        return 1;
    }
    return 0;
}

}  // namespace quillon
