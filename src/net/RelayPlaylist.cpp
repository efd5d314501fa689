#include "net/RelayPlaylist.h"

#include <fstream>
#include <mutex>

#include <fmt/format.h>

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

}  // namespace quillon
