#pragma once
// The text of an M3U playlist as a list of MP3 URLs, and the file name each
// URL is saved under. Pure functions over bytes, safe on any thread.
//
// A playlist is read line by line, each line up to and including its "\n"; a
// last line without one is not used, and the result is then marked partial.
// A line gives a URL when its last path component holds ".mp3": the URL is
// cut after that ".mp3" (a query or anything else behind it is dropped).
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quillon {

class M3UPlaylist {
public:
    struct Parsed {
        std::vector<std::string> urls;  // absolute http(s) URLs, in playlist order
        bool partial = false;           // the last line lacked its "\n" and was dropped
        std::size_t skipped = 0;        // lines that gave no URL (comments included)
    };

    // The URLs of the playlist; nothing when the bytes are empty or give no URL.
    static std::optional<Parsed> parse(std::span<const std::uint8_t> bytes);

    // The last path component of the text, cut before its first ".mp3", with
    // ".mp3" appended; nothing when the component holds no ".mp3".
    static std::optional<std::string> fileNameFromURL(std::string_view text);
    // The text ahead of that file name, followed by the file name; nothing
    // when the text has no such file name.
    static std::optional<std::string> cleanURL(std::string_view text);
};

}  // namespace quillon
