// The music-library hand-off: which playlist a track goes to, playlist names
// that stay inside their folder, M3U playlists that are made, appended to and
// never lose an entry, and hand-off threads that never hold up the caller.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <future>
#include <thread>

#include "engine/LibraryHandOff.h"
#include "engine/M3uLibrary.h"
#include "engine/MpdLibrary.h"
#include "engine/PlaylistRule.h"
#include "platform/Log.h"
#include "support/Files.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

std::tm march5() {
    std::tm t{};
    t.tm_year = 2026 - 1900;
    t.tm_mon = 2;
    t.tm_mday = 5;
    return t;
}

TEST(PlaylistRuleTest, TypeNamesThePlaylist) {
    struct Case {
        int type;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {1, "Jazz"}, {2, "2026-3-5"}, {3, "Test Radio"}, {4, "My List"}, {0, {}}, {5, {}}, {-1, {}},
    };
    for (const Case& c : cases) {
        PlaylistRule rule{true, c.type, "My List"};
        EXPECT_EQ(rule.playlistFor("Jazz", "Test Radio", march5()), c.expected) << "type " << c.type;
    }
}

TEST(MusicLibraryTest, PlaylistNamesStayOneFileName) {
    const std::pair<std::string, std::string> cases[] = {
        {"Jazz", "Jazz"},
        {"AC/DC", "AC_DC"},
        {"../../etc/passwd", "_.._etc_passwd"},
        {".hidden", "hidden"},
        {"..", "Quillon"},
        {"", "Quillon"},
        {"line\nbreak", "line break"},
        {std::string(300, 'x'), std::string(250, 'x')},
    };
    for (const auto& [name, expected] : cases)
        EXPECT_EQ(MusicLibrary::safePlaylistName(name), expected) << name;
}

TEST(MusicLibraryTest, MpdPathsAreRelativeToTheMusicFolder) {
    const std::string folder = testFolder("mpdpaths");
    makeFolders(folder + "/real/sub");
    fs::create_directory_symlink(folder + "/real", folder + "/link");
    struct Case {
        std::string file, music;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {"/m/a.mp3", "/m", "a.mp3"},
        {"/m/x/a b.mp3", "/m/", "x/a b.mp3"},
        {"/m/./x/../a.mp3", "/m", "a.mp3"},
        {"/other/a.mp3", "/m", {}},
        {"/m2/a.mp3", "/m", {}},
        {"/m", "/m", {}},
        {"relative.mp3", "/m", {}},
        // The music folder reached through a link, the track through its real path.
        {folder + "/real/sub/t.mp3", folder + "/link", "sub/t.mp3"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(MpdLibrary::pathInMusicFolder(c.file, c.music), c.expected) << c.file << " in " << c.music;
}

class M3uLibraryTest : public ::testing::Test {
protected:
    void SetUp() override {
        folder_ = testFolder("m3u");
        tracks_ = testFolder("m3u-tracks");
    }
    std::string track(const std::string& name) {
        std::string path = joinPath(tracks_, name);
        writeText(path, "audio");
        return path;
    }
    std::string folder_, tracks_;
};

TEST_F(M3uLibraryTest, MakesThePlaylistThenAppendsOnce) {
    M3uLibrary library(folder_);
    const std::string a = track("A - One.mp3"), b = track("B - Two.mp3");
    ASSERT_TRUE(library.addTrack(a, "Jazz").ok);
    const std::string playlist = joinPath(folder_, "Jazz.m3u8");
    EXPECT_EQ(readText(playlist), "#EXTM3U\n#EXTINF:-1,A - One\n" + a + "\n");
    ASSERT_TRUE(library.addTrack(b, "Jazz").ok);
    ASSERT_TRUE(library.addTrack(a, "Jazz").ok);  // already listed: not twice
    EXPECT_EQ(readText(playlist), "#EXTM3U\n#EXTINF:-1,A - One\n" + a + "\n#EXTINF:-1,B - Two\n" + b + "\n");
}

TEST_F(M3uLibraryTest, KeepsEveryLineOfAPlaylistTheUserWrote) {
    M3uLibrary library(folder_);
    const std::string a = track("a.mp3");
    struct Case {
        std::string before, after;
    };
    const Case cases[] = {
        {"/music/x.mp3", "#EXTM3U\n/music/x.mp3\n"},                            // no header, no last newline
        {"#EXTM3U\r\n/music/x.mp3\r\n", "#EXTM3U\r\n/music/x.mp3\r\n"},         // CRLF
        {"\xEF\xBB\xBF/music/x.mp3\n", "\xEF\xBB\xBF#EXTM3U\n/music/x.mp3\n"},  // byte-order mark
    };
    for (const Case& c : cases) {
        writeText(joinPath(folder_, "Mine.m3u8"), c.before);
        ASSERT_TRUE(library.addTrack(a, "Mine").ok);
        EXPECT_EQ(readText(joinPath(folder_, "Mine.m3u8")), c.after + "#EXTINF:-1,a\n" + a + "\n");
    }
}

TEST_F(M3uLibraryTest, UnsafeNamesStayInTheFolder) {
    M3uLibrary library(folder_);
    const std::string a = track("a.mp3");
    for (const char* name : {"../escape", "a/b", ".hidden", "..", ""})
        ASSERT_TRUE(library.addTrack(a, name).ok) << name;
    std::vector<std::string> made;
    for (auto& e : fs::directory_iterator(folder_)) made.push_back(e.path().filename().string());
    std::sort(made.begin(), made.end());
    EXPECT_EQ(made, (std::vector<std::string>{"Quillon.m3u8", "_escape.m3u8", "a_b.m3u8", "hidden.m3u8"}));
    EXPECT_FALSE(fs::exists(fs::path(folder_).parent_path() / "escape.m3u8"));
}

TEST_F(M3uLibraryTest, RefusesWhatWouldBreakOrLoseAPlaylist) {
    M3uLibrary library(folder_);
    const std::string a = track("a.mp3");
    fs::create_directory(joinPath(folder_, "Taken.m3u8"));
    writeText(joinPath(folder_, "Locked.m3u8"), "#EXTM3U\n/music/keep.mp3\n");
    ::chmod(joinPath(folder_, "Locked.m3u8").c_str(), 0);
    const bool root = ::access(joinPath(folder_, "Locked.m3u8").c_str(), R_OK) == 0;
    struct Case {
        std::string path, playlist, failure;
    };
    const Case cases[] = {
        {track("new\nline.mp3"), "L", "line break"},
        {joinPath(tracks_, "missing.mp3"), "L", "No such file"},
        {tracks_, "L", "not a file"},
        {"relative.mp3", "L", "not an absolute path"},
        {a, "Taken", "not a playlist file"},
    };
    for (const Case& c : cases) {
        auto result = library.addTrack(c.path, c.playlist);
        EXPECT_FALSE(result.ok) << c.path;
        EXPECT_NE(result.failure.find(c.failure), std::string::npos) << result.failure;
    }
    EXPECT_FALSE(fs::exists(joinPath(folder_, "L.m3u8")));
    if (!root) {
        auto result = library.addTrack(a, "Locked");
        EXPECT_FALSE(result.ok);
        ::chmod(joinPath(folder_, "Locked.m3u8").c_str(), 0644);
        EXPECT_EQ(readText(joinPath(folder_, "Locked.m3u8")), "#EXTM3U\n/music/keep.mp3\n");
    }
}

TEST_F(M3uLibraryTest, APlaylistLinkIsUpdatedWhereItLeads) {
    const std::string elsewhere = testFolder("m3u-elsewhere");
    writeText(joinPath(elsewhere, "real.m3u8"), "#EXTM3U\n");
    fs::create_symlink(joinPath(elsewhere, "real.m3u8"), joinPath(folder_, "Linked.m3u8"));
    const std::string a = track("a.mp3");
    ASSERT_TRUE(M3uLibrary(folder_).addTrack(a, "Linked").ok);
    EXPECT_TRUE(fs::is_symlink(joinPath(folder_, "Linked.m3u8")));
    EXPECT_EQ(readText(joinPath(elsewhere, "real.m3u8")), "#EXTM3U\n#EXTINF:-1,a\n" + a + "\n");
}

// Hand-offs to one playlist at the same time, each from its own library
// object as separate processes would: every entry survives, and only the
// playlist is left in the folder (no temporary files).
TEST_F(M3uLibraryTest, ConcurrentHandOffsLoseNoEntry) {
    constexpr int kTracks = 24;
    std::vector<std::string> paths;
    for (int i = 0; i < kTracks; ++i) paths.push_back(track("t" + std::to_string(i) + ".mp3"));
    std::vector<std::thread> threads;
    std::atomic<int> failed{0};
    for (const auto& path : paths)
        threads.emplace_back([&, path] {
            if (!M3uLibrary(folder_).addTrack(path, "Busy").ok) ++failed;
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(failed, 0);
    const std::string text = readText(joinPath(folder_, "Busy.m3u8"));
    for (const auto& path : paths) EXPECT_NE(text.find("\n" + path + "\n"), std::string::npos) << path;
    EXPECT_EQ(countEntries(folder_), 1u);
}

// A back-end that holds every hand-off until the test lets it go.
class GatedLibrary : public MusicLibrary {
public:
    explicit GatedLibrary(std::shared_future<void> gate) : gate_(std::move(gate)) {}
    Result addTrack(const std::string& path, const std::string&) override {
        gate_.wait();
        return path.ends_with("bad") ? Result::failed("refused " + path) : Result::done();
    }
    std::string description() const override { return "gated"; }

private:
    std::shared_future<void> gate_;
};

TEST(LibraryHandOffTest, RunsEachHandOffOnItsOwnThreadAndReportsIt) {
    std::promise<void> open;
    std::shared_future<void> gate = open.get_future().share();
    std::mutex mutex;
    std::vector<std::string> outcomes;
    Log::Capture log;
    {
        LibraryHandOff handOff(
            [gate](std::string&) { return std::make_unique<GatedLibrary>(gate); },
            [&](const std::string& path, const std::string& playlist, const MusicLibrary::Result& r) {
                std::lock_guard lock(mutex);
                outcomes.push_back(path + ">" + playlist + (r.ok ? " ok" : " " + r.failure));
            });
        // Both return while the library holds them: the caller never waits.
        handOff.addTrack("/t/good", "P");
        handOff.addTrack("/t/bad", "Q");
        open.set_value();
        handOff.waitUntilIdle();
    }
    std::sort(outcomes.begin(), outcomes.end());
    EXPECT_EQ(outcomes, (std::vector<std::string>{"/t/bad>Q refused /t/bad", "/t/good>P ok"}));
    EXPECT_TRUE(log.contains("Add to iTunes playlist error : refused /t/bad"));
}

TEST(LibraryHandOffTest, ABackEndThatCannotBeMadeIsLogged) {
    Log::Capture log;
    {
        LibraryHandOff handOff([](std::string& failure) -> std::unique_ptr<MusicLibrary> {
            failure = "unknown music-library back-end 'x'";
            return nullptr;
        });
        handOff.addTrack("/t/a.mp3", "P");
    }  // the destructor waits for the hand-off
    EXPECT_TRUE(log.contains("Add to iTunes playlist error : unknown music-library back-end 'x'"));
}

TEST(LibraryHandOffTest, DropsHandOffsPastTheLimitLoudly) {
    std::promise<void> open;
    std::shared_future<void> gate = open.get_future().share();
    std::atomic<int> done{0};
    Log::Capture log;
    {
        LibraryHandOff handOff(
            [gate](std::string&) { return std::make_unique<GatedLibrary>(gate); },
            [&](const std::string&, const std::string&, const MusicLibrary::Result&) { ++done; });
        for (std::size_t i = 0; i <= LibraryHandOff::kMaxRunning; ++i)
            handOff.addTrack("/t/" + std::to_string(i), "P");
        open.set_value();
    }
    EXPECT_EQ(done, static_cast<int>(LibraryHandOff::kMaxRunning));
    EXPECT_TRUE(log.contains("hand-offs still running"));
}

}  // namespace
}  // namespace quillon::test
