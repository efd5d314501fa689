#pragma once
// Turns an already filtered track title into a name the file system accepts and
// that stays inside the recordings folder: no NUL bytes or "/", never "." or
// "..", and at most 255 bytes with the extension, shortened at a character
// boundary. A title that leaves nothing usable (empty, or only blanks and dots)
// becomes the caller's fallback, normally the date-stamped generic title.
// Pure functions, safe on any thread.
#include <cstddef>
#include <string>
#include <string_view>

namespace quillon {

// The longest file or folder name, in bytes, that Linux file systems accept.
inline constexpr std::size_t kMaxFileNameBytes = 255;

// The file name for a track: the name plus the extension, shortened to fit.
std::string fileNameForTrack(std::string_view filteredName, std::string_view fallback,
                             std::string_view extension = ".mp3");

// The name of the `copy`-th file of one name: "Title (2).mp3", shortened ahead
// of the number so that it still fits; copy 1 is the name itself.
std::string numberedFileName(std::string_view fileName, int copy);

// A folder name (genre, station or artist folder) under the same rules.
std::string safeFolderName(std::string_view filteredName, std::string_view fallback);

}  // namespace quillon
