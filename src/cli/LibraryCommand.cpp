#include "cli/LibraryCommand.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

#include "cli/RecordSession.h"
#include "engine/LibrarySettings.h"
#include "engine/MusicLibrary.h"
#include "platform/AtomicFile.h"
#include "platform/Home.h"
#include "platform/TextUtil.h"
#include "station/Mp3Tones.h"
#include "store/Preferences.h"

namespace quillon {

namespace {

constexpr const char* kTestFileName = "Quillon library test.mp3";

struct LibraryTestArgs {
    std::string file;
    std::string playlist = "Quillon test";
};

// A second or so of a sine tone in the recordings folder; a file of that name
// that exists is used as it is, never replaced.
std::optional<std::string> testFile(const std::string& folder) {
    const std::string path = joinPath(folder, kTestFileName);
    if (!makeFolders(folder)) {
        std::fprintf(stderr, "quillon: cannot create %s: %s\n", folder.c_str(), std::strerror(errno));
        return std::nullopt;
    }
    Bytes audio;
    try {
        for (const Bytes& frame : Mp3Tones::loops(128)->front())
            audio.insert(audio.end(), frame.begin(), frame.end());
    } catch (const std::exception& e) {
        std::fprintf(stderr, "quillon: cannot make a test MP3: %s\n", e.what());
        return std::nullopt;
    }
    if (writeNewFileAtomically(path, audio) == WriteResult::Failed) {
        std::fprintf(stderr, "quillon: cannot write %s: %s\n", path.c_str(), std::strerror(errno));
        return std::nullopt;
    }
    return path;
}

int runLibraryTest(const LibraryTestArgs& args) {
    const std::string records = RecordSession::defaultFolder();
    std::string path;
    if (!args.file.empty()) {
        std::error_code ec;
        path = std::filesystem::absolute(args.file, ec).lexically_normal().string();
        if (ec || !std::filesystem::is_regular_file(path, ec))
            throw UsageError("not a file: " + printable(args.file));
    } else {
        auto made = testFile(records);
        if (!made) return 1;
        path = *made;
    }
    std::string failure;
    auto library =
        LibrarySettings::fromPreferences(*Preferences::preferences()).makeLibrary(records, failure);
    if (!library) {
        std::fprintf(stderr, "quillon: %s\n", failure.c_str());
        return 1;
    }
    std::printf("Adding %s to the playlist %s (%s) ...\n", printable(path).c_str(),
                printable(args.playlist).c_str(), library->description().c_str());
    std::fflush(stdout);
    MusicLibrary::Result result = library->addTrack(path, args.playlist);
    if (!result.ok) {
        std::fprintf(stderr, "quillon: the music library did not take it: %s\n",
                     printable(result.failure).c_str());
        return 1;
    }
    std::printf("Added.\n");
    return 0;
}

}  // namespace

void addLibraryCommand(CLI::App& app, CommandRunner& runner) {
    auto* cmd = app.add_subcommand("library", "The music library that finished tracks are handed to");
    cmd->require_subcommand(1);
    auto* test =
        cmd->add_subcommand("test", "Hand a file to the configured music library and report the result");
    auto args = std::make_shared<LibraryTestArgs>();
    test->add_option("FILE", args->file,
                     "The file to add (default: a short MP3 made in the recordings folder)");
    test->add_option("--playlist", args->playlist, "The playlist to add it to")->capture_default_str();
    cmd->footer(
        "Preferences: feediTunes (hand tracks over), playlistType (1 genre, 2 date, 3 station, 4 "
        "playlistname),\n"
        "libraryBackend (m3u, the default, or mpd), libraryFolder (M3U playlists; default: the recordings\n"
        "folder), mpdHost, mpdPort, mpdPassword, mpdMusicFolder (default: asked from MPD over its local "
        "socket).");
    test->callback([&runner, args] { runner = [args] { return runLibraryTest(*args); }; });
}

}  // namespace quillon
