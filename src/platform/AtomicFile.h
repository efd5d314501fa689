#pragma once
// Whole-file reads and transactional writes: a stored file is written to a
// temporary file in the same folder, flushed, then renamed over the target, so
// a reader sees either the old file or the new one, never half of one.
#include <optional>
#include <span>
#include <string>

#include "platform/ByteBuffer.h"

namespace quillon {

// The temporary file is created anew (never through a link) and checked before
// the rename, which replaces a link at `path` rather than following it. False
// on failure, with errno telling why; the target is then left as it was.
bool writeFileAtomically(const std::string& path, std::span<const std::uint8_t> bytes);
std::optional<Bytes> readWholeFile(const std::string& path);

}  // namespace quillon
