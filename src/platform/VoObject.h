#pragma once
// Byte and text slicing between markers, and the character filters that make
// stream titles safe as file and folder names. Shared by the stream header, the
// tag writer and the recording connection; every operation is a pure static
// function, safe on any thread.
//
// Text is UTF-8 throughout: slices returned as text go through textFromWire (valid
// UTF-8 stays as it is, anything else is read as Latin-1), and the filters work
// on characters (code points), never on single bytes of a character.
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/ByteBuffer.h"

namespace quillon {

// A map from single characters to single characters.
using CharFilter = std::map<char32_t, char32_t>;

class VoObject {
public:
    // The bytes between the first `start` and the first `end` after it, as text;
    // none when either marker is missing.
    static std::optional<std::string> returnStringInData(std::span<const std::uint8_t> data,
                                                         std::string_view start, std::string_view end);
    static std::optional<std::string> returnStringInData(std::string_view data, std::string_view start,
                                                         std::string_view end);

    // Everything ahead of the first occurrence of the key; none when the key is
    // empty or absent.
    static std::optional<Bytes> returnDataInDataBefore(std::span<const std::uint8_t> data,
                                                       std::string_view key);
    // Everything behind the first occurrence of the key; none when it is absent.
    // An empty key occurs at the very start, so it gives the whole data.
    static std::optional<Bytes> returnDataInDataAfter(std::span<const std::uint8_t> data,
                                                      std::string_view key);

    // Builds a map from a text of pairs: the 1st character maps to the 2nd, the
    // 3rd to the 4th, and so on. A text of fewer than 2 characters gives an empty
    // map; an odd last character is ignored; a later pair for the same character
    // replaces an earlier one.
    static CharFilter filterFromChars(std::string_view pairs);
    // A copy of the text with every character that is a key of the map replaced
    // by its value. The number of characters never changes.
    static std::string filterString(std::string_view text, const CharFilter& filter);
    // The filter applied to every name that becomes a file or folder name:
    // backslash, ":" and "|" become blanks, "/" and "." become "_".
    static const CharFilter& standartFilter();
    // Keeps letters and digits (Unicode classification of the C.UTF-8 locale),
    // blanks, "-" and "&"; removes every other character.
    static std::string alphabeticString(std::string_view text);

protected:
    VoObject() = default;
    ~VoObject() = default;
};

}  // namespace quillon
