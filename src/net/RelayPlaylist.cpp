#include "net/RelayPlaylist.h"

#include <fmt/format.h>

#include <mutex>

#include "platform/AtomicFile.h"
#include "platform/Log.h"
#include "platform/NamedException.h"

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
    // Deliberate: written to a new file and renamed into place, not truncated
    // in place, because the default path lies in /tmp, where anyone may plant a
    // link to a file of the user's under that name.
    const std::string target = path();
    if (writeFileAtomically(target, asBytes(text(port, title)))) return true;
    Log::info("Unable to write the relay playlist {} ({})", target, NamedException::errnoText());
    return false;
}

}  // namespace quillon
