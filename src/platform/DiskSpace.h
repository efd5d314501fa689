#pragma once
// The free space of the volume that holds a path, and its readable form.
//
// Thread contract: stateless; any thread.
#include <cstdint>
#include <optional>
#include <string>

namespace quillon {

// Bytes free for an unprivileged user on the volume holding `path`. A path
// that does not exist (yet) is measured at its nearest existing parent folder;
// nothing when even that cannot be queried.
std::optional<std::uint64_t> freeBytes(const std::string& path);

// A size for people: "512 bytes", "12.3 KB", "99.9 MB", "1.5 GB" (units of 1024).
std::string byteSizeText(std::uint64_t bytes);

}  // namespace quillon
