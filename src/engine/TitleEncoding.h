#pragma once
// The character encoding of a stream's titles, and their conversion to UTF-8.
// Stations send titles as raw 8-bit text: UTF-8 today, but many still send
// Latin-1, Windows-1252 or, in Cyrillic, Windows-1251. Titles are converted
// once, where they are read from the metadata, so that file names, tags, the
// history and the relay all carry the same valid UTF-8.
//
// Pure functions (iconv is used through a converter made per call): any thread.
#include <optional>
#include <string>
#include <string_view>

namespace quillon {

class TitleEncoding {
public:
    enum class Charset { Auto, Utf8, Latin1, Cp1251, Cp1252 };

    // The bookmark value of a choice: "auto", "UTF-8", "ISO-8859-1", "CP1251", "CP1252".
    static std::string_view name(Charset charset);
    // A value as typed or stored, without regard to case; the usual aliases
    // ("utf8", "latin1", "windows-1251", ...) are understood. Nothing for an
    // unknown value.
    static std::optional<Charset> fromName(std::string_view name);
    // Every accepted choice, for help texts: "auto, UTF-8, ISO-8859-1, CP1251, CP1252".
    static std::string choices();

    // The encoding the title bytes are most likely in (never Auto).
    static Charset detect(std::string_view bytes);
    // The bytes as UTF-8, read in `charset` (detected when Auto). The result is
    // always valid UTF-8: a byte the encoding does not define becomes U+FFFD.
    static std::string toUtf8(std::string_view bytes, Charset charset);
};

}  // namespace quillon
