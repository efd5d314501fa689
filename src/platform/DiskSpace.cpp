#include "platform/DiskSpace.h"

#include <sys/statvfs.h>

#include <filesystem>

#include <fmt/format.h>

namespace quillon {

std::optional<std::uint64_t> freeBytes(const std::string& path) {
    std::filesystem::path probe = path.empty() ? std::filesystem::path(".") : std::filesystem::path(path);
    for (;;) {
        struct statvfs info {};
        if (::statvfs(probe.c_str(), &info) == 0)
            return static_cast<std::uint64_t>(info.f_bavail) * static_cast<std::uint64_t>(info.f_frsize);
        std::filesystem::path parent = probe.parent_path();
        if (parent.empty() || parent == probe) return std::nullopt;
        probe = parent;
    }
}

std::string byteSizeText(std::uint64_t bytes) {
    static constexpr const char* kUnits[] = {"KB", "MB", "GB", "TB", "PB", "EB"};
    if (bytes < 1024) return fmt::format("{} bytes", bytes);
    double value = static_cast<double>(bytes) / 1024.0;
    std::size_t unit = 0;
    while (value >= 1024.0 && unit + 1 < std::size(kUnits)) {
        value /= 1024.0;
        ++unit;
    }
    return fmt::format("{:.1f} {}", value, kUnits[unit]);
}

}  // namespace quillon
