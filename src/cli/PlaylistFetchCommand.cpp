#include "cli/PlaylistFetchCommand.h"

#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include <fmt/format.h>

#include "engine/M3URipper.h"
#include "platform/InterruptWatcher.h"
#include "platform/MainLoop.h"
#include "platform/TextUtil.h"

namespace quillon {

namespace {

struct PlaylistFetchArgs {
    std::string playlist;
    int from = 1;
};

std::string megabytes(std::uint64_t bytes) { return fmt::format("{:.1f} MB", bytes / 1e6); }

// The command that picks up at `entry` (1 = the first).
std::string resumeCommand(const std::string& playlist, int entry) {
    return fmt::format("quillon playlist-fetch '{}' --from {}", printable(playlist), entry);
}

int runPlaylistFetch(const PlaylistFetchArgs& args) {
    MainLoop& loop = MainLoop::main();
    loop.runUntil([] { return true; }, 0);  // this thread is the main thread from here on
    InterruptWatcher interrupts([] {});

    M3URipper ripper;
    if (!ripper.parseFile(args.playlist)) {
        std::fprintf(stderr, "quillon: %s cannot be read or lists no http(s) URL of an .mp3 file\n",
                     printable(args.playlist).c_str());
        return 1;
    }
    if (ripper.partialParse())
        std::fprintf(stderr, "quillon: the playlist's last line has no line end and was not used\n");
    const int count = ripper.trackMax();
    if (args.from > count)
        throw UsageError(
            fmt::format("--from {}: the playlist has {} entr{}", args.from, count, count == 1 ? "y" : "ies"));
    ripper.setInt(args.from - 1, M3URipper::kCurrentFileKey);

    const bool tty = ::isatty(STDERR_FILENO) != 0;
    bool lineOpen = false;
    auto progress = [&] {
        if (!ripper.downloading()) return;
        std::fprintf(
            stderr, "\r[%d/%d] %s  %s\033[K", ripper.trackNo() + 1, count,
            printable(M3URipper::getFileNameFromURL(ripper.pendingFiles()[ripper.trackNo()])).c_str(),
            megabytes(ripper.bytesReceived()).c_str());
        lineOpen = true;
    };
    auto endLine = [&] {
        if (lineOpen) std::fputc('\n', stderr);
        lineOpen = false;
    };
    int lastSaved = -1;
    ripper.setChangeHandler([&] {
        // A finished file is reported once, when the next step is known.
        if (!ripper.lastSavedPath().empty() && lastSaved != ripper.trackNo()) {
            endLine();
            std::fprintf(stderr, "saved %s\n", printable(ripper.lastSavedPath()).c_str());
            lastSaved = ripper.trackNo();
        }
        if (ripper.downloading()) {
            if (tty) {
                progress();
            } else {
                std::fprintf(stderr, "[%d/%d] %s\n", ripper.trackNo() + 1, count,
                             printable(ripper.pendingFiles()[ripper.trackNo()]).c_str());
            }
        }
    });
    std::optional<MainLoop::TimerId> redraw;
    if (tty) redraw = loop.addTimer(0.5, progress, true);

    ripper.startDownload();
    // Every step and Ctrl-C are posted to the loop, which re-checks after each.
    loop.runUntil([&] { return !ripper.downloading() || interrupts.interrupted(); }, 1e9, 5);
    if (redraw) loop.cancelTimer(*redraw);
    endLine();

    if (ripper.done()) {
        std::fprintf(stderr, "all %d file(s) downloaded\n", count);
        return 0;
    }
    const int entry = ripper.trackNo() + 1;
    const std::vector<std::string> urls = ripper.pendingFiles();
    const std::string url = entry <= count ? urls[static_cast<std::size_t>(entry - 1)] : "";
    if (interrupts.interrupted()) {
        std::fprintf(stderr, "quillon: interrupted during entry %d of %d (%s)\n", entry, count,
                     printable(url).c_str());
    } else {
        std::fprintf(stderr, "quillon: entry %d of %d failed (%s): %s\n", entry, count,
                     printable(url).c_str(), printable(ripper.lastFailure()).c_str());
    }
    std::fprintf(stderr, "Resume with: %s\n", resumeCommand(args.playlist, entry).c_str());
    return 1;
}

}  // namespace

void addPlaylistFetchCommand(CLI::App& app, CommandRunner& runner) {
    auto args = std::make_shared<PlaylistFetchArgs>();
    CLI::App* cmd = app.add_subcommand(
        "playlist-fetch",
        "Download the MP3 files of an M3U playlist into the home folder, one after another");
    cmd->add_option("playlist", args->playlist, "The M3U playlist file")->required();
    cmd->add_option("--from", args->from, "Start at this entry (1: the first); resumes after a failure")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    cmd->callback([&runner, args] { runner = [args] { return runPlaylistFetch(*args); }; });
}

}  // namespace quillon
