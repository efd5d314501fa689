// Records from a real Icecast server on loopback, fed by ezstream from a
// playlist of tagged MP3 files: one file per title, named after it, decoding
// cleanly in real players, with tags that TagLib reads back.
#include <gtest/gtest.h>
#include <unistd.h>

#include <taglib/fileref.h>
#include <taglib/mpegfile.h>
#include <taglib/tag.h>

#include <filesystem>

#include "engine/RipperTestSupport.h"
#include "support/Loopback.h"
#include "support/Process.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

bool acceptsConnections(std::uint16_t port) { return connectToLoopback(port).isOpen(); }

// Whether the server answers a request for `path` with a 200 status line.
bool mountIsLive(std::uint16_t port, const std::string& path) {
    FileHandle fd = connectToLoopback(port);
    std::string reply;
    const std::string request = "GET " + path + " HTTP/1.0\r\n\r\n";
    if (fd.isOpen() && ::send(fd.fd(), request.data(), request.size(), MSG_NOSIGNAL) > 0) {
        char buf[64];
        ssize_t n = ::recv(fd.fd(), buf, sizeof buf, 0);
        if (n > 0) reply.assign(buf, static_cast<std::size_t>(n));
    }
    return reply.find(" 200 ") != std::string::npos;
}

// An Icecast server and an ezstream source playing `tracks` tagged tones.
class IcecastStation {
public:
    // Works in a folder of its own in the temp folder: the server drops to its own
    // user, which must reach its log folder (the test's home is private).
    explicit IcecastStation(int tracks) : dir_(makeTempFolder()), port_(unusedPort()) {
        fs::permissions(dir_, fs::perms::all);
        std::string playlist;
        for (int i = 1; i <= tracks; ++i) {
            fs::path mp3 = dir_ / ("t" + std::to_string(i) + ".mp3");
            auto made =
                runProcess({"ffmpeg", "-loglevel", "error", "-y", "-f", "lavfi", "-i",
                            "sine=frequency=" + std::to_string(220 * i) + ":duration=3", "-ac", "2", "-ar",
                            "44100", "-b:a", "128k", "-metadata", "artist=Artist " + std::to_string(i),
                            "-metadata", "title=Song " + std::to_string(i), mp3.string()});
            if (made.status != 0) throw std::runtime_error("ffmpeg failed: " + made.err);
            playlist += mp3.string() + "\n";
        }
        writeText(dir_ / "playlist.m3u", playlist);
        std::string user =
            ::getuid() == 0 ? "<changeowner><user>icecast2</user><group>icecast</group></changeowner>" : "";
        writeText(dir_ / "icecast.xml",
                  "<icecast><limits><sources>2</sources><burst-size>0</burst-size></limits>"
                  "<authentication><source-password>hackme</source-password>"
                  "<admin-user>admin</admin-user><admin-password>hackme</admin-password></authentication>"
                  "<hostname>127.0.0.1</hostname><listen-socket><port>" +
                      std::to_string(port_) +
                      "</port><bind-address>127.0.0.1</bind-address></listen-socket>"
                      "<paths><basedir>" +
                      dir_.string() + "</basedir><logdir>" + dir_.string() +
                      "</logdir><webroot>/usr/share/icecast2/web</webroot>"
                      "<adminroot>/usr/share/icecast2/admin</adminroot></paths>"
                      "<logging><accesslog>access.log</accesslog><errorlog>error.log</errorlog>"
                      "<loglevel>2</loglevel></logging><security><chroot>0</chroot>" +
                      user + "</security></icecast>");
        writeText(dir_ / "ezstream.xml",
                  "<ezstream><servers><server><hostname>127.0.0.1</hostname><port>" + std::to_string(port_) +
                      "</port><password>hackme</password></server></servers>"
                      "<streams><stream><mountpoint>/live.mp3</mountpoint><format>MP3</format>"
                      "<stream_name>Loopback FM</stream_name><stream_genre>Jazz</stream_genre>"
                      "<stream_bitrate>128</stream_bitrate></stream></streams>"
                      "<intakes><intake><filename>" +
                      (dir_ / "playlist.m3u").string() + "</filename></intake></intakes></ezstream>");
        fs::permissions(dir_ / "ezstream.xml", fs::perms::owner_read | fs::perms::owner_write);
        server_ = std::make_unique<ServerProcess>(
            std::vector<std::string>{"icecast2", "-c", (dir_ / "icecast.xml").string()},
            (dir_ / "server.out").string());
        for (int i = 0; i < 100 && !acceptsConnections(port_); ++i) usleep(50000);
        source_ = std::make_unique<ServerProcess>(
            std::vector<std::string>{"ezstream", "-c", (dir_ / "ezstream.xml").string()},
            (dir_ / "source.out").string());
        for (int i = 0; i < 100 && !mountIsLive(port_, "/live.mp3"); ++i) usleep(50000);
    }
    ~IcecastStation() {
        source_.reset();  // the source first, so the server sees it leave
        server_.reset();
        std::error_code ec;
        fs::remove_all(dir_, ec);
    }

    std::uint16_t port() const { return port_; }
    bool running() { return server_->running() && source_->running(); }
    // What the server and the source said, for a failure message.
    std::string output() const {
        std::string out;
        for (const char* name : {"server.out", "source.out", "error.log"})
            out += std::string("--- ") + name + "\n" + readText(dir_ / name);
        return out;
    }

private:
    static fs::path makeTempFolder() {
        std::string pattern = (fs::temp_directory_path() / "quillon-icecast-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) throw std::runtime_error("cannot make a temp folder");
        return pattern;
    }

    fs::path dir_;
    std::uint16_t port_;
    std::unique_ptr<ServerProcess> server_, source_;
};

TEST(IcecastRecordingTest, OneDecodableTaggedFilePerTitle) {
    IcecastStation station(5);
    ASSERT_TRUE(station.running()) << "icecast2 or ezstream did not start\n" << station.output();

    Preferences::resetShared();
    Preferences::preferences()->setState(true, "incomplete");
    std::string folder = homePath("recordings-icecast");
    Bookmark bookmark;
    bookmark.setName(std::string("Loopback FM"));
    bookmark.setHost(std::string("127.0.0.1"));
    bookmark.setPort(std::to_string(station.port()));
    bookmark.setPath(std::string("/live.mp3"));
    bookmark.setGenre(std::string("Jazz"));

    RecordingOwner owner(folder);
    becomeMainThread();
    {
        Ripper ripper(owner, bookmark, false, false);
        // Three title changes after the first title: tracks two and three are
        // then whole, cut where their titles arrived.
        ASSERT_TRUE(runUntil([&] { return ripper.trackCount() >= 4; }, 40)) << ripper.status();
        EXPECT_EQ(ripper.streamHeader().name(), "Loopback FM");
        EXPECT_EQ(ripper.bitrate(), 128u);
        // One more block so that the newest cut is reached.
        std::uint64_t reached = ripper.bytesRead();
        runUntil([&] { return ripper.bytesRead() > reached + 2 * 16000; }, 10);
        ripper.userClose();
    }

    std::vector<std::string> finished;
    for (auto& e : fs::directory_iterator(folder))
        if (e.is_regular_file()) finished.push_back(e.path().filename().string());
    std::sort(finished.begin(), finished.end());
    ASSERT_GE(finished.size(), 2u) << "finished tracks move out of Incomplete";
    ASSERT_TRUE(fs::is_directory(fs::path(folder) / "Incomplete"));

    for (const auto& name : std::vector<std::string>(finished.begin(), finished.begin() + 2)) {
        SCOPED_TRACE(name);
        fs::path file = fs::path(folder) / name;
        // Named "Artist N - Song N.mp3" after the stream title.
        ASSERT_EQ(name.rfind("Artist ", 0), 0u);
        std::string n = name.substr(7, 1);
        EXPECT_EQ(name, "Artist " + n + " - Song " + n + ".mp3");

        auto probe = runProcess(
            {"ffprobe", "-v", "error", "-show_entries", "format=duration", "-of", "csv=p=0", file.string()});
        EXPECT_EQ(probe.status, 0) << probe.err;
        EXPECT_EQ(probe.err, "");
        double seconds = std::stod(probe.out.empty() ? "0" : probe.out);
        EXPECT_GT(seconds, 2.0) << probe.out;  // a whole three-second track, give or take a block
        EXPECT_LT(seconds, 4.5) << probe.out;
        auto decoded = runProcess({"mpg123", "-q", "-t", file.string()});
        EXPECT_EQ(decoded.status, 0) << decoded.err;
        EXPECT_EQ(decoded.err.find("error"), std::string::npos) << decoded.err;

        TagLib::FileRef ref(file.c_str());
        ASSERT_FALSE(ref.isNull());
        EXPECT_EQ(ref.tag()->artist().to8Bit(true), "Artist " + n);
        EXPECT_EQ(ref.tag()->title().to8Bit(true), "Song " + n);
        EXPECT_EQ(ref.tag()->genre().to8Bit(true), "Jazz");
        EXPECT_EQ(ref.tag()->comment().to8Bit(true), "Recorded by Quillon for Mac OS X");
    }
    Preferences::resetShared();
}

}  // namespace
}  // namespace quillon::test
