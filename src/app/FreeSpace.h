#pragma once
// The free-space check of the recordings volume: recording needs more than
// 100 MiB free. The query is injectable so that tests can stage any volume.
//
// Thread contract: main thread (it reads the recordings folder and logs).
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace quillon {

class FreeSpace {
public:
    // Free bytes of the volume holding a path; nothing when unknown.
    using Query = std::function<std::optional<std::uint64_t>(const std::string& path)>;
    // The folder whose volume is watched.
    using FolderSource = std::function<std::string()>;

    static constexpr std::uint64_t kMinimumFreeBytes = 104857600;  // 100 MiB

    // Empty arguments mean the real volume query and the recordings folder.
    explicit FreeSpace(Query query = {}, FolderSource folder = {});

    // Whether the recordings volume has room. A value beyond 32 bits is always
    // enough; below the minimum the size is logged; exactly the minimum is not
    // logged and not enough either. A volume that cannot be queried does not
    // stop recording.
    bool hasEnoughFreeSpace() const;
    // The rule itself, for a known number of free bytes.
    static bool isEnough(std::uint64_t freeBytes);

    void setQuery(Query query);

private:
    Query query_;
    FolderSource folder_;
};

}  // namespace quillon
