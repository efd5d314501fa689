// `quillon record` against what goes wrong on a user's machine: a full disk, a
// read-only folder, a disk almost full, a stop by signal, a kill, and titles
// that carry terminal escapes. What reached the disk must be exactly what the
// station sent, and every failure must be loud.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include "engine/TinyID3.h"
#include "platform/AtomicFile.h"
#include "station/Station.h"
#include "support/Files.h"
#include "support/Process.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

StationOptions counterStation(StationRate rate) {
    StationOptions o;
    o.payload = StationPayload::counter;
    o.rate = rate;
    o.metaint = 8000;
    o.titles = {"Solo - One"};
    o.titleEvery = 0;
    return o;
}

std::vector<fs::path> mp3Files(const fs::path& folder) {
    std::vector<fs::path> out;
    if (!fs::exists(folder)) return out;
    for (auto& e : fs::recursive_directory_iterator(folder))
        if (e.path().extension() == ".mp3") out.push_back(e.path());
    return out;
}

// The audio of a recorded file (what follows its tag) is the station's stream
// from its first byte, without a gap: the bytes it sent.
void expectStreamPrefix(const fs::path& file, std::uint64_t from, std::size_t atLeast) {
    SCOPED_TRACE(file.string());
    auto bytes = readWholeFile(file.string());
    ASSERT_TRUE(bytes);
    ASSERT_GE(bytes->size(), TinyID3::tagSize());
    EXPECT_EQ(std::string(bytes->begin(), bytes->begin() + 3), "ID3");
    const std::size_t audio = bytes->size() - TinyID3::tagSize();
    EXPECT_GE(audio, atLeast);
    for (std::size_t i = 0; i < audio; ++i)
        if ((*bytes)[TinyID3::tagSize() + i] != Station::counterByte(from + i)) {
            FAIL() << "byte " << i << " is not the station's";
        }
}

// Runs a shell command in a mount namespace of its own, with a fresh tmpfs
// mounted on `folder` (the options say how big and whether read-only): the
// machine's own mounts are never touched.
ProcessResult inOwnTmpfs(const fs::path& folder, const std::string& options, const std::string& command) {
    fs::create_directories(folder);
    return runProcess(
        {"unshare", "-m", "sh", "-c",
         "mount -t tmpfs -o " + options + " quillon-test '" + folder.string() + "' && " + command});
}

TEST(RecordFaultTest, DiskFailuresEndTheRecordingLoudly) {
    Station station(counterStation(StationRate::max));
    station.start();
    const std::string record = std::string(QUILLON_BINARY) + " record " + station.url() + " -q --to ";
    struct Case {
        const char* what;
        std::function<ProcessResult(const fs::path&)> run;
        const char* says;
        std::size_t keptAtLeast = 0;  // audio bytes of the stream in the one file; 0: not checked
    };
    const Case cases[] = {
        {"file size limit (a full disk as the writer meets it)",
         [&](const fs::path& folder) {
             return runProcess({"prlimit", "--fsize=300000", QUILLON_BINARY, "record", station.url(), "-q",
                                "--to", folder.string()});
         },
         "Disk error: File too large", 100000},
        {"read-only folder",
         [&](const fs::path& folder) { return inOwnTmpfs(folder, "ro,size=512m", record + folder.string()); },
         "Read-only file system"},
        {"disk almost full",
         [&](const fs::path& folder) { return inOwnTmpfs(folder, "size=1m", record + folder.string()); },
         "almost full"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        fs::path folder = testFolder("disk-faults");
        ProcessResult result = c.run(folder);
        EXPECT_EQ(result.status, 1) << result.err;
        EXPECT_NE(result.err.find(c.says), std::string::npos) << result.err;
        if (c.keptAtLeast == 0) continue;
        // What fit is the stream as sent, up to the limit.
        auto files = mp3Files(folder);
        ASSERT_EQ(files.size(), 1u);
        expectStreamPrefix(files[0], 0, c.keptAtLeast);
    }
}

TEST(RecordFaultTest, ASignalStopKeepsTheHeldAudioAndAKillLeavesAnIntactFile) {
    Station station(counterStation(StationRate::realtime));
    station.start();
    for (int signal : {SIGTERM, SIGKILL}) {
        SCOPED_TRACE(signal);
        fs::path folder = testFolder("signals");
        CapturedProcess recording({QUILLON_BINARY, "record", station.url(), "-q", "--to", folder.string()});
        // The first title has opened its file; the lookahead behind it (16 KiB)
        // and everything after it are held, nothing is written yet.
        for (int i = 0; i < 400 && mp3Files(folder).empty(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(25));
        recording.signal(signal);
        ProcessResult result = recording.wait();
        auto files = mp3Files(folder);
        ASSERT_EQ(files.size(), 1u);
        if (signal == SIGTERM) {
            EXPECT_EQ(result.status, 0) << result.err;
            EXPECT_NE(result.err.find("Ended: stopped by the user"), std::string::npos) << result.err;
            // The stop writes out what is held.
            expectStreamPrefix(files[0], 0, 16000);
        } else {
            expectStreamPrefix(files[0], 0, 0);
        }
    }
}

TEST(RecordFaultTest, TitlesCannotDriveTheTerminalOrNameFilesWithControls) {
    // A new title every block; then the station goes quiet but stays, so
    // that the status lines (drawn every half second) show the last one.
    StationOptions options = counterStation(StationRate::max);
    options.titles = {"Evil\x1b]0;pwned\x07 - One", "Clear\x1b[2J - Two"};
    options.titleEvery = 8000;
    options.closeAfter = 8000 * 8;
    options.holdOpen = true;
    Station station(options);
    station.start();
    fs::path folder = testFolder("escapes");
    ProcessResult result =
        runProcess({QUILLON_BINARY, "record", station.url(), "--to", folder.string(), "--for", "2s"});
    EXPECT_EQ(result.status, 0) << result.err;
    // Not a terminal: one status line per change.
    EXPECT_NE(result.err.find("Recording : "), std::string::npos) << result.err;
    for (char control : {'\x1b', '\x07'})
        EXPECT_EQ(result.err.find(control), std::string::npos) << result.err;
    auto files = mp3Files(folder);
    EXPECT_GE(files.size(), 2u) << result.err;
    for (const auto& file : files)
        for (char c : file.filename().string())
            EXPECT_FALSE(static_cast<unsigned char>(c) < 0x20 || c == 0x7f) << file;
}

}  // namespace
}  // namespace quillon::test
