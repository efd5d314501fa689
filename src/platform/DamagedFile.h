#pragma once
// A stored file that exists but cannot be read is never overwritten: before a
// fresh file takes its place it is moved aside, its bytes untouched, to
// NAME.damaged-YYYYMMDD-HHMMSS in the same folder (local time; "-2", "-3", ...
// added when that name is taken), with a warning naming both paths.
//
// Deliberate: reading such a file as empty and letting the next save replace it
// would lose the user's settings or a day of history for one damaged byte, so
// every loader of a file that is written back moves it aside first.
//
// Thread contract: stateless; any thread. The move never replaces a file, so
// two movers of one file cannot destroy each other's copy.
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace quillon {

class DamagedFile {
public:
    using Clock = std::chrono::system_clock;

    // Moves the file aside and logs a warning with `reason`; returns where it
    // went. Nothing when there was no file (quietly) or the move failed (logged;
    // the folder is then not writable, so no fresh file can replace it either).
    static std::optional<std::string> moveAside(const std::string& path, std::string_view reason,
                                                Clock::time_point when = Clock::now());

private:
    // path + ".damaged-YYYYMMDD-HHMMSS", with "-N" for the Nth try from 2 on.
    static std::string asideName(const std::string& path, Clock::time_point when, int attempt);
};

}  // namespace quillon
