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

enum class WriteResult { Written, Exists, Failed };
// As writeFileAtomically, but a file already at `path` is never replaced
// (Exists), not even one that appears while the bytes are written.
WriteResult writeNewFileAtomically(const std::string& path, std::span<const std::uint8_t> bytes);
std::optional<Bytes> readWholeFile(const std::string& path);

// Moves `from` to `to` unless `to` exists (false, errno EEXIST); the check is
// part of the move, so a file that appears in the meantime is never replaced.
bool renameNoReplace(const std::string& from, const std::string& to);

}  // namespace quillon
