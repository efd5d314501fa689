// The music-library hand-off against a real Music Player Daemon on loopback:
// a recorded track reaches MPD's database and the stored playlist, which MPD
// makes when missing; refusals come back as clear failure texts.
#include <gtest/gtest.h>
#include <mpd/client.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>

#include "engine/LibraryHandOff.h"
#include "engine/MpdLibrary.h"
#include "engine/RipperTestSupport.h"
#include "support/Loopback.h"
#include "support/Process.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

// An MPD of the test's own: temporary music, playlist and state folders, the
// null audio output, 127.0.0.1 on a free port. Ready once it tells the
// notification socket (as it tells systemd) "READY=1".
class MpdServer {
public:
    explicit MpdServer(std::string password = {}) : dir_(makeTempFolder()), port_(unusedPort()) {
        fs::create_directories(dir_ / "music");
        fs::create_directories(dir_ / "playlists");
        std::string conf = "music_directory \"" + (dir_ / "music").string() + "\"\n" +
                           "playlist_directory \"" + (dir_ / "playlists").string() + "\"\n" + "db_file \"" +
                           (dir_ / "db").string() + "\"\n" + "state_file \"" + (dir_ / "state").string() +
                           "\"\n" + "bind_to_address \"127.0.0.1\"\nport \"" + std::to_string(port_) +
                           "\"\n" + "audio_output {\n type \"null\"\n name \"null\"\n}\n";
        if (!password.empty()) conf += "password \"" + password + "@read,add,control,admin\"\n";
        writeText(dir_ / "mpd.conf", conf);

        const fs::path notify = dir_ / "notify";
        notify_ = FileHandle(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::snprintf(address.sun_path, sizeof address.sun_path, "%s", notify.c_str());
        if (!notify_.isOpen() ||
            ::bind(notify_.fd(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("cannot bind the notification socket");
        server_ = std::make_unique<ServerProcess>(
            std::vector<std::string>{"env", "NOTIFY_SOCKET=" + notify.string(), "mpd", "--no-daemon",
                                     (dir_ / "mpd.conf").string()},
            (dir_ / "mpd.out").string());
        ready_ = waitReady();
    }
    ~MpdServer() {
        server_.reset();
        std::error_code ec;
        fs::remove_all(dir_, ec);
    }

    bool ready() const { return ready_; }
    std::uint16_t port() const { return port_; }
    std::string musicFolder() const { return (dir_ / "music").string(); }
    std::string output() const { return readText(dir_ / "mpd.out"); }

    // The songs of a stored playlist, as MPD lists them.
    std::vector<std::string> playlist(const std::string& name) const {
        std::vector<std::string> songs;
        mpd_connection* c = mpd_connection_new("127.0.0.1", port_, kWaitMs);
        if (c && mpd_send_list_playlist(c, name.c_str())) {
            while (mpd_pair* pair = mpd_recv_pair_named(c, "file")) {
                songs.emplace_back(pair->value);
                mpd_return_pair(c, pair);
            }
            mpd_response_finish(c);
        }
        if (c) mpd_connection_free(c);
        return songs;
    }

    MpdLibrary::Settings settings() const {
        MpdLibrary::Settings s;
        s.host = "127.0.0.1";
        s.port = port_;
        s.musicFolder = musicFolder();
        s.timeoutSeconds = 10;
        return s;
    }

private:
    static fs::path makeTempFolder() {
        std::string pattern = (fs::temp_directory_path() / "quillon-mpd-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) throw std::runtime_error("cannot make a temp folder");
        return pattern;
    }

    bool waitReady() {
        pollfd p{notify_.fd(), POLLIN, 0};
        char buffer[512];
        while (::poll(&p, 1, kWaitMs) == 1) {
            ssize_t n = ::recv(notify_.fd(), buffer, sizeof buffer, 0);
            if (n > 0 && std::string_view(buffer, static_cast<std::size_t>(n)).find("READY=1") !=
                             std::string_view::npos)
                return true;
        }
        return false;
    }

    fs::path dir_;
    std::uint16_t port_;
    FileHandle notify_;
    std::unique_ptr<ServerProcess> server_;
    bool ready_ = false;
};

class MpdLibraryTest : public RipperFixture {};

TEST_F(MpdLibraryTest, RecordedTracksReachTheStoredPlaylist) {
    MpdServer mpd;
    ASSERT_TRUE(mpd.ready()) << mpd.output();
    // The recordings lie in a folder inside MPD's music folder.
    folder_ = joinPath(mpd.musicFolder(), "Recordings");
    prefs().setState(true, "incomplete");
    prefs().setState(true, "feediTunes");
    prefs().setParam("3", "playlistType");

    std::vector<std::string> handed;
    std::mutex mutex;
    {
        LibraryHandOff library(
            [&](std::string&) { return std::make_unique<MpdLibrary>(mpd.settings()); },
            [&](const std::string& path, const std::string&, const MusicLibrary::Result& r) {
                std::lock_guard lock(mutex);
                EXPECT_TRUE(r.ok) << r.failure;
                handed.push_back(path);
            });
        ConnectionServices services;
        services.handToLibrary = [&library](const std::string& path, const std::string& playlist) {
            library.addTrack(path, playlist);
        };
        StationOptions options;
        options.payload = StationPayload::mp3;
        options.rate = StationRate::max;
        options.titleEvery = 100000;
        Station station(options);
        station.start();
        RecordingOwner owner(folder_);
        {
            Ripper ripper(owner, *bookmarkFor(station.port(), "Loopback FM"), false, false, services);
            ASSERT_TRUE(runUntil([&] { return ripper.trackCount() >= 4; }));
            ripper.userClose();
        }
        library.waitUntilIdle();
    }
    ASSERT_GE(handed.size(), 2u);
    std::vector<std::string> expected;
    for (const auto& path : handed)
        expected.push_back(*MpdLibrary::pathInMusicFolder(path, mpd.musicFolder()));
    std::sort(expected.begin(), expected.end());
    auto songs = mpd.playlist("Loopback FM");
    std::sort(songs.begin(), songs.end());
    EXPECT_EQ(songs, expected);
}

TEST_F(MpdLibraryTest, FailuresSayWhatWentWrong) {
    MpdServer mpd("secret");
    ASSERT_TRUE(mpd.ready()) << mpd.output();
    const std::string inside = joinPath(mpd.musicFolder(), "song.mp3");
    writeText(inside, "not audio at all");
    const std::string outside = joinPath(testFolder("elsewhere"), "song.mp3");
    writeText(outside, "x");

    struct Case {
        std::string name, path, password, failure;
        std::uint16_t port;
    };
    const Case cases[] = {
        {"no server", inside, "secret", "cannot reach MPD at 127.0.0.1", unusedPort()},
        {"wrong password", inside, "wrong", "refused the password", mpd.port()},
        {"outside the music folder", outside, "secret", "is not inside MPD's music folder", mpd.port()},
        {"not a song", inside, "secret", "cannot add song.mp3 to the playlist P", mpd.port()},
    };
    for (const Case& c : cases) {
        MpdLibrary::Settings s = mpd.settings();
        s.port = c.port;
        s.password = c.password;
        auto result = MpdLibrary(s).addTrack(c.path, "P");
        EXPECT_FALSE(result.ok) << c.name;
        EXPECT_NE(result.failure.find(c.failure), std::string::npos) << c.name << ": " << result.failure;
    }
}

}  // namespace
}  // namespace quillon::test
