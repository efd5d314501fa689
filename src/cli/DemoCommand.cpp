#include "cli/DemoCommand.h"

#include <cstdio>
#include <filesystem>
#include <memory>

#include "cli/RecordSession.h"
#include "engine/Id3Text.h"
#include "platform/AtomicFile.h"
#include "platform/Home.h"
#include "station/Station.h"
#include "store/Bookmark.h"

namespace quillon {

namespace {

struct DemoArgs {
    std::string folder;
};

constexpr int kFinishedTracks = 3;

std::string freshDemoFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "quillon-demo-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) return "";
    return pattern;
}

// The recorded files with the tags read back from them, oldest track first.
void printTree(const std::string& folder) {
    std::vector<std::filesystem::path> files;
    for (auto& entry : std::filesystem::recursive_directory_iterator(folder))
        if (entry.is_regular_file()) files.push_back(entry.path());
    // In the order they were recorded: each file is last written at its cut.
    std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) {
        return std::filesystem::last_write_time(a) < std::filesystem::last_write_time(b);
    });
    std::printf("\n%s\n", folder.c_str());
    for (const auto& file : files) {
        auto bytes = readWholeFile(file.string());
        auto tags = bytes ? readId3Text(*bytes) : std::map<std::string, std::string>{};
        std::printf("  %s  (%.1f KiB)\n", std::filesystem::relative(file, folder).c_str(),
                    bytes ? bytes->size() / 1024.0 : 0.0);
        std::printf("      artist: %s | title: %s | genre: %s | comment: %s\n", tags["TPE1"].c_str(),
                    tags["TIT2"].c_str(), tags["TCON"].c_str(), tags["COMM"].c_str());
    }
}

int runDemo(const DemoArgs& args) {
    std::string folder = args.folder.empty() ? freshDemoFolder() : args.folder;
    if (folder.empty()) {
        std::fprintf(stderr, "quillon: cannot make a folder for the demo\n");
        return 1;
    }
    StationOptions station;
    station.payload = StationPayload::mp3;
    // Real time, with two-second tracks: the demo takes about ten seconds and
    // every track is cut exactly where its title arrives.
    station.rate = StationRate::realtime;
    station.metaint = 8000;
    station.bitrate = 128;
    station.titleEvery = 16000 * 2;
    station.name = "Quillon Demo Radio";
    station.genre = "Demo";
    station.titles = {"The Loopbacks - First Light", "Port Nine Thousand - Delay Line",
                      "ICY Metadata - Sixteen Bytes", "The Loopbacks - Last Call", "Encore - Once More"};
    Station server(station);
    server.start();
    std::printf("Built-in station playing on %s\n", server.url().c_str());

    auto bookmark = Bookmark::bookmark();
    bookmark->setName(std::string("Quillon Demo Radio"));
    bookmark->setHost(std::string("127.0.0.1"));
    bookmark->setPort(std::to_string(server.port()));
    bookmark->setPath(std::string("/demo"));
    bookmark->setGenre(std::string("Demo"));

    RecordOptions options;
    options.folder = folder;
    options.finishedTracks = kFinishedTracks;
    options.seconds = 60;
    RecordSession session(options);
    int status = session.run(*bookmark);
    server.stop();
    if (status != 0) return status;
    printTree(folder);
    std::printf("\nThe first %d tracks are finished; the last one was still being recorded.\n",
                kFinishedTracks);
    return 0;
}

}  // namespace

void addDemoCommand(CLI::App& app, CommandRunner& runner) {
    auto args = std::make_shared<DemoArgs>();
    CLI::App* cmd = app.add_subcommand(
        "demo",
        "Record the built-in test station until three tracks are finished, then show the files and tags");
    cmd->add_option("--to", args->folder,
                    "Folder for the recordings (default: a new folder in the temp folder)");
    cmd->callback([args, &runner] { runner = [args] { return runDemo(*args); }; });
}

}  // namespace quillon
