#pragma once
// Converts text between two character encodings through iconv, which owns the
// tables (glibc's gconv modules): the owner of one iconv conversion descriptor.
//
// Thread contract: one thread at a time per object (iconv keeps shift state in
// the descriptor); make one per thread or per use.
#include <iconv.h>

#include <optional>
#include <string>
#include <string_view>

namespace quillon {

class TextConverter {
public:
    // Encodings by their iconv names ("UTF-8", "CP1251", "ISO-8859-1", ...).
    // Throws std::invalid_argument when iconv knows no such conversion.
    TextConverter(const std::string& to, const std::string& from);
    ~TextConverter();
    TextConverter(const TextConverter&) = delete;
    TextConverter& operator=(const TextConverter&) = delete;

    // The whole text converted. A byte sequence the source encoding does not
    // define, or a character the target cannot hold, is written as
    // `replacement` (one per byte skipped) when one is given; without one the
    // conversion fails and gives nothing.
    std::optional<std::string> convert(std::string_view text,
                                       std::optional<std::string_view> replacement = std::nullopt);

private:
    iconv_t cd_;
};

}  // namespace quillon
