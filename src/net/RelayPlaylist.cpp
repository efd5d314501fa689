#include "net/RelayPlaylist.h"

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <fstream>
#include <mutex>
#include <vector>

#include <fmt/format.h>

#include "platform/Log.h"

extern char** environ;

namespace quillon {

namespace {

std::mutex pathMutex;
std::string& storedPath() {
    static std::string path = RelayPlaylist::kDefaultPath;
    return path;
}

}  // namespace

std::string RelayPlaylist::path() {
    std::lock_guard lock(pathMutex);
    return storedPath();
}

void RelayPlaylist::setPath(std::string path) {
    std::lock_guard lock(pathMutex);
    storedPath() = path.empty() ? std::string(kDefaultPath) : std::move(path);
}

std::string RelayPlaylist::text(std::uint16_t port, const std::optional<std::string>& title) {
    std::string out = fmt::format("[playlist]\nNumberOfEntries=1\nFile1=http://localhost:{}", port);
    if (title) out += "\nTitle1=" + *title;
    return out;
}

bool RelayPlaylist::write(std::uint16_t port, const std::optional<std::string>& title) {
    std::ofstream file(path(), std::ios::binary | std::ios::trunc);
    file << text(port, title);
    file.close();
    return !file.fail();
}

bool RelayPlaylist::open(const std::string& command) {
    const std::string file = path();
    // The shell puts the player in the background and ends at once, so nothing
    // is left to reap; the path travels as "$1" and needs no quoting.
    std::string script =
        (command.empty() ? std::string(kDefaultCommand) : command) + " \"$1\" </dev/null >/dev/null 2>&1 &";
    std::vector<std::string> args = {"/bin/sh", "-c", script, "sh", file};
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (::posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
        Log::info("Unable to open {} with {}", file, command);
        return false;
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace quillon
