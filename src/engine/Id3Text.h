#pragma once
// Reads the text frames of an ID3v2.3/2.4 tag at the head of a file's bytes
// (title, artist, album, genre, comment), as the demo and the history show them.
// A pure parser: malformed or truncated tags give what could be read, never more.
#include <map>
#include <span>
#include <string>

namespace quillon {

// Frame id ("TIT2", "TPE1", "TALB", "TCON", "COMM") to its text, in UTF-8.
std::map<std::string, std::string> readId3Text(std::span<const std::uint8_t> bytes);

}  // namespace quillon
