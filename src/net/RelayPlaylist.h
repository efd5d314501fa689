#pragma once
// The local playlist file that points a desktop player at a relay.
//
// Thread contract: any thread. The path (settable so that tests do not share the
// system-wide file) is guarded by a mutex of its own; writing the file is not
// serialised, as two connections asking to be listened to at once simply race
// for the one file.
#include <cstdint>
#include <optional>
#include <string>

namespace quillon {

class RelayPlaylist {
public:
    static constexpr const char* kDefaultPath = "/tmp/kv.qln.restream.pls";

    static std::string path();
    // An empty path restores the default.
    static void setPath(std::string path);

    // "[playlist]\nNumberOfEntries=1\nFile1=http://localhost:PORT", then
    // "\nTitle1=TITLE" when a title is given.
    static std::string text(std::uint16_t port, const std::optional<std::string>& title);
    // Writes the file through a temporary file renamed into place, replacing
    // (never following) a link at the path; logs and returns false on failure.
    static bool write(std::uint16_t port, const std::optional<std::string>& title);
};

}  // namespace quillon
