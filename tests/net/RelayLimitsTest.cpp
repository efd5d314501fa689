// The relay against hostile or careless clients: where it listens, requests
// that never end, too many players, a process out of descriptors, and a link
// planted where the playlist file goes.
#include <arpa/inet.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "net/BroadcastController.h"
#include "net/RelayPlaylist.h"
#include "net/RelayTestSupport.h"
#include "platform/AtomicFile.h"
#include "platform/Home.h"
#include "platform/Log.h"
#include "support/MainThread.h"

namespace quillon {
namespace {

using test::EndlessSender;
using test::RelayClient;
using test::runUntil;
using test::ScriptedSource;

constexpr std::string_view kRequestStart = "GET / HTTP/1.0\r\nIcy-MetaData: 1\r\n";

// The local address of this process's listening IPv4 socket on `port`, read
// with getsockname from the descriptor table.
std::optional<sockaddr_in> listenerAddress(std::uint16_t port) {
    std::optional<sockaddr_in> found;
    DIR* dir = ::opendir("/proc/self/fd");
    if (!dir) return found;
    while (dirent* entry = ::readdir(dir)) {
        const int fd = std::atoi(entry->d_name);
        if (fd <= 2 || fd == ::dirfd(dir)) continue;
        int listening = 0;
        socklen_t optionSize = sizeof listening;
        sockaddr_in address{};
        socklen_t size = sizeof address;
        if (::getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &optionSize) == 0 && listening &&
            ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
            address.sin_family == AF_INET && ntohs(address.sin_port) == port)
            found = address;
    }
    ::closedir(dir);
    return found;
}

// Whether a connection to `host` (a loopback address) on `port` is accepted.
bool reachable(const char* host, std::uint16_t port) {
    FileHandle fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in a = test::loopback(port);
    ::inet_pton(AF_INET, host, &a.sin_addr);
    return ::connect(fd.fd(), reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
}

std::size_t countLines(const Log::Capture& log, std::string_view text) {
    const auto lines = log.lines();
    return static_cast<std::size_t>(std::count_if(
        lines.begin(), lines.end(), [&](const std::string& l) { return l.find(text) != l.npos; }));
}

class RelayLimits : public test::RelayFixture {
protected:
    // Feeds blocks on the main loop (which also hands players over) until the
    // condition holds.
    bool feedUntil(BroadcastController& relay, const std::function<bool()>& done) {
        auto timer = MainLoop::main().addTimer(
            0.01, [&] { relay.feed(std::make_shared<const Bytes>(Bytes(1000, 7))); }, true);
        bool ok = runUntil(done, 20);
        MainLoop::main().cancelTimer(timer);
        return ok;
    }

    ScriptedSource source_;

private:
    test::ScopedTiming savedTiming_;
};

TEST_F(RelayLimits, ListensOnLoopbackOnlyUnlessAllInterfacesAreAsked) {
    struct Case {
        bool allInterfaces;
        in_addr_t bound;
        bool reachableOnAnotherLoopbackAddress;
    };
    for (const Case& c : {Case{false, INADDR_LOOPBACK, false}, Case{true, INADDR_ANY, true}}) {
        BroadcastController relay(source_, {.allInterfaces = c.allInterfaces});
        relay.startFeeding();
        ASSERT_TRUE(relay.isStreaming());
        auto address = listenerAddress(relay.listeningPort());
        ASSERT_TRUE(address) << c.allInterfaces;
        EXPECT_EQ(ntohl(address->sin_addr.s_addr), c.bound) << c.allInterfaces;
        EXPECT_TRUE(reachable("127.0.0.1", relay.listeningPort()));
        EXPECT_EQ(reachable("127.0.0.2", relay.listeningPort()), c.reachableOnAnotherLoopbackAddress)
            << c.allInterfaces;
    }
}

TEST_F(RelayLimits, RequestsThatNeverEndAreCutOffAndThePlayerDropped) {
    struct Case {
        const char* what;
        std::string chunk;
        double rest;
        double requestTimeout;
        const char* reason;
    };
    const std::vector<Case> cases{
        // The time-out is far off: only the size bound can stop it.
        {"endless bytes", std::string(4096, 'a'), 0, 600,
         "Client disconnected. TCP read limit (no end within 8192 bytes)"},
        // Never near the size bound: only the whole-request time-out can stop it.
        {"a trickle", "a", 0.02, 0.3, "Client disconnected. TCP read timeout (no end within 0.3 seconds)"},
    };
    for (const Case& c : cases) {
        timing().relayRequestTimeout = c.requestTimeout;
        BroadcastController relay(source_);
        relay.startFeeding();
        Log::Capture log;
        EndlessSender sender(relay.listeningPort(), std::string(kRequestStart), c.chunk, c.rest);
        EXPECT_TRUE(runUntil([&] { return sender.hungUp(); }, 60)) << c.what;
        EXPECT_TRUE(runUntil([&] { return log.contains(c.reason); })) << c.what;
        EXPECT_TRUE(runUntil([&] { return relay.count() == 0; })) << c.what;
        // Gone, the player leaves room for a well-behaved one.
        RelayClient player(relay.listeningPort());
        EXPECT_TRUE(feedUntil(relay, [&] { return player.receivedSize() > 1000; })) << c.what;
    }
}

TEST_F(RelayLimits, PlayersOverTheCapAreRefusedUntilOneLeaves) {
    BroadcastController relay(source_, {.maxPlayers = 2});
    relay.startFeeding();
    auto first = std::make_unique<RelayClient>(relay.listeningPort());
    RelayClient second(relay.listeningPort());
    ASSERT_TRUE(runUntil([&] { return relay.count() == 2; }));

    Log::Capture log;
    RelayClient refused(relay.listeningPort());
    EXPECT_TRUE(feedUntil(relay, [&] { return refused.ended(); }));
    EXPECT_EQ(refused.receivedSize(), 0u);
    EXPECT_TRUE(log.contains("Relay player refused: 2 players already (relayMaxPlayers), from 127.0.0.1"));
    EXPECT_TRUE(feedUntil(relay, [&] { return second.receivedSize() > 3000; }));
    EXPECT_EQ(relay.count(), 2);

    first->vanish();
    ASSERT_TRUE(feedUntil(relay, [&] { return relay.count() == 1; }));
    RelayClient next(relay.listeningPort());
    EXPECT_TRUE(feedUntil(relay, [&] { return next.receivedSize() > 1000; }));
    EXPECT_EQ(relay.count(), 2);
}

TEST(RelaySettings, MaxPlayersIsAPositiveWholeNumberElseTheDefault) {
    struct Case {
        const char* text;
        int expected;
    };
    for (const Case& c : {Case{"", 64}, Case{"none", 64}, Case{"0", 64}, Case{"-3", 64}, Case{"1", 1},
                          Case{"200", 200}, Case{"12 players", 12}}) {
        EXPECT_EQ(BroadcastController::Settings::maxPlayersFrom(c.text), c.expected) << c.text;
    }
}

// Lowers the soft limit on descriptors for the scope.
class LoweredDescriptorLimit {
public:
    explicit LoweredDescriptorLimit(rlim_t soft) {
        ::getrlimit(RLIMIT_NOFILE, &saved_);
        rlimit lowered = saved_;
        lowered.rlim_cur = soft;
        ok_ = ::setrlimit(RLIMIT_NOFILE, &lowered) == 0;
    }
    ~LoweredDescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &saved_); }
    LoweredDescriptorLimit(const LoweredDescriptorLimit&) = delete;
    LoweredDescriptorLimit& operator=(const LoweredDescriptorLimit&) = delete;
    bool ok() const { return ok_; }

private:
    rlimit saved_{};
    bool ok_ = false;
};

int highestOpenDescriptor() {
    int highest = 2;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        highest = std::max(highest, std::atoi(entry.path().filename().c_str()));
    return highest;
}

TEST_F(RelayLimits, AcceptBacksOffWhileDescriptorsRunOutAndAcceptsOnceTheyAreFree) {
    BroadcastController relay(source_);
    relay.startFeeding();
    // Made before the table fills: connecting takes no new descriptor.
    FileHandle waiting(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_TRUE(waiting.isOpen());
    Log::Capture log;
    {
        LoweredDescriptorLimit limit(static_cast<rlim_t>(highestOpenDescriptor()) + 2);
        ASSERT_TRUE(limit.ok());
        std::vector<FileHandle> filling;
        while (true) {
            FileHandle fd(::dup(STDERR_FILENO));
            if (!fd.isOpen()) break;
            filling.push_back(std::move(fd));
        }
        ASSERT_EQ(errno, EMFILE);
        sockaddr_in a = test::loopback(relay.listeningPort());
        ASSERT_EQ(::connect(waiting.fd(), reinterpret_cast<sockaddr*>(&a), sizeof a), 0);

        ASSERT_TRUE(
            runUntil([&] { return log.contains("Accept failed (in thread) Accept Error (Too many"); }));
        // A spinning thread would make hundreds of thousands of attempts in
        // this window; backing off from 0.1 to at most 1 second between
        // attempts, it makes a handful, even if the window stretches to many
        // seconds on a busy machine.
        const std::uint64_t before = relay.acceptAttempts();
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        EXPECT_LE(relay.acceptAttempts() - before, 20u);
        EXPECT_EQ(relay.count(), 0);
    }
    // The descriptors are free again (the filling closed, the limit restored).
    EXPECT_TRUE(runUntil([&] { return relay.count() == 1; }));
    EXPECT_TRUE(log.contains("Accepting clients again"));
    EXPECT_EQ(countLines(log, "Accept failed"), 1u);
}

TEST(RelayPlaylistFile, ReplacesWhateverHasItsNameAndNeverWritesThroughALink) {
    const std::string folder = homePath("relay-playlist");
    ASSERT_TRUE(makeFolders(folder));
    const std::string path = joinPath(folder, "kv.qln.restream.pls");
    const std::string victim = joinPath(folder, "victim.txt");
    const std::string absent = joinPath(folder, "absent.txt");
    struct Case {
        const char* what;
        std::optional<std::string> linkTo;  // else a regular file of old text
    };
    for (const Case& c : {Case{"a link to the user's file", victim}, Case{"a dangling link", absent},
                          Case{"an older playlist", std::nullopt}}) {
        std::filesystem::remove_all(folder);
        ASSERT_TRUE(makeFolders(folder));
        ASSERT_TRUE(writeFileAtomically(victim, asBytes("the user's own file")));
        if (c.linkTo)
            std::filesystem::create_symlink(*c.linkTo, path);
        else
            ASSERT_TRUE(
                writeFileAtomically(path, asBytes("[playlist]\nold, longer than the new text......")));
        RelayPlaylist::setPath(path);
        EXPECT_TRUE(RelayPlaylist::write(9001, std::string("Jazz FM"))) << c.what;
        RelayPlaylist::setPath("");

        EXPECT_FALSE(std::filesystem::is_symlink(path)) << c.what;
        auto written = readWholeFile(path);
        ASSERT_TRUE(written) << c.what;
        EXPECT_EQ(asText(*written), RelayPlaylist::text(9001, std::string("Jazz FM"))) << c.what;
        auto untouched = readWholeFile(victim);
        ASSERT_TRUE(untouched);
        EXPECT_EQ(asText(*untouched), "the user's own file") << c.what;
        EXPECT_FALSE(std::filesystem::exists(absent)) << c.what;
        // No temporary file left behind.
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 2) << c.what;
    }
}

TEST(RelayPlaylistFile, AWriteThatFailsIsLoggedAndLeavesTheTargetAlone) {
    const std::string folder = homePath("relay-playlist-dir");
    ASSERT_TRUE(makeFolders(joinPath(folder, "kv.qln.restream.pls")));
    Log::Capture log;
    RelayPlaylist::setPath(joinPath(folder, "kv.qln.restream.pls"));
    EXPECT_FALSE(RelayPlaylist::write(9001, std::nullopt));
    RelayPlaylist::setPath("");
    EXPECT_TRUE(
        log.contains("Unable to write the relay playlist " + joinPath(folder, "kv.qln.restream.pls")));
    EXPECT_TRUE(std::filesystem::is_directory(joinPath(folder, "kv.qln.restream.pls")));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1);
}

}  // namespace
}  // namespace quillon
