#include "platform/DamagedFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fmt/format.h>

#include "platform/Log.h"
#include "platform/TimeUtil.h"

namespace quillon {

namespace {

constexpr int kMaxAttempts = 1000;

// Renames without ever replacing `to`: 0, or the errno of the failure (EEXIST
// when `to` is taken).
int renameNoReplace(const std::string& from, const std::string& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    // A file system without the flag: a second name, then the first one goes.
    if (::link(from.c_str(), to.c_str()) != 0) return errno;
    if (::unlink(from.c_str()) != 0) {
        int error = errno;
        ::unlink(to.c_str());
        return error;
    }
    return 0;
}

}  // namespace

std::string DamagedFile::asideName(const std::string& path, Clock::time_point when, int attempt) {
    std::tm t = TimeUtil::localParts(when);
    std::string name = fmt::format("{}.damaged-{:04}{:02}{:02}-{:02}{:02}{:02}", path, t.tm_year + 1900,
                                   t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
    if (attempt > 1) name += fmt::format("-{}", attempt);
    return name;
}

std::optional<std::string> DamagedFile::moveAside(const std::string& path, std::string_view reason,
                                                  Clock::time_point when) {
    int error = EEXIST;
    for (int attempt = 1; attempt <= kMaxAttempts && error == EEXIST; ++attempt) {
        std::string aside = asideName(path, when, attempt);
        error = renameNoReplace(path, aside);
        if (error == 0) {
            Log::warn("Warning: {} cannot be read ({}); it was moved to {} and a fresh file takes its place",
                      path, reason, aside);
            return aside;
        }
    }
    if (error == ENOENT) return std::nullopt;  // gone meanwhile: nothing to keep
    Log::warn("Warning: {} cannot be read ({}) and cannot be moved aside: {}", path, reason,
              std::strerror(error));
    return std::nullopt;
}

}  // namespace quillon
