#include "engine/TitleEncoding.h"

#include <array>
#include <stdexcept>

#include "platform/TextConverter.h"
#include "platform/TextUtil.h"

namespace quillon {

namespace {

struct Known {
    TitleEncoding::Charset charset;
    std::string_view name;  // the bookmark value, also iconv's name
    std::array<std::string_view, 3> aliases;
};

constexpr std::array<Known, 5> kKnown{{
    {TitleEncoding::Charset::Auto, "auto", {"", "", ""}},
    {TitleEncoding::Charset::Utf8, "UTF-8", {"utf8", "", ""}},
    {TitleEncoding::Charset::Latin1, "ISO-8859-1", {"latin1", "latin-1", "iso8859-1"}},
    {TitleEncoding::Charset::Cp1251, "CP1251", {"windows-1251", "win1251", ""}},
    {TitleEncoding::Charset::Cp1252, "CP1252", {"windows-1252", "win1252", ""}},
}};

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

bool isAsciiLetter(unsigned char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

// The bytes that are Cyrillic letters in Windows-1251: А-я at 0xC0-0xFF, and
// Ё ё Є є Ї ї І і Ґ ґ among the symbols at 0xA5-0xBF.
bool isHighLetter(unsigned char c) {
    switch (c) {
        case 0xA5:
        case 0xA8:
        case 0xAA:
        case 0xAF:
        case 0xB2:
        case 0xB3:
        case 0xB4:
        case 0xB8:
        case 0xBA:
        case 0xBF:
            return true;
        default:
            return c >= 0xC0;
    }
}

}  // namespace

std::string_view TitleEncoding::name(Charset charset) {
    for (const Known& k : kKnown)
        if (k.charset == charset) return k.name;
    return "auto";
}

std::optional<TitleEncoding::Charset> TitleEncoding::fromName(std::string_view name) {
    const std::string wanted = toLowerAscii(trimmedBlanks(name));
    if (wanted.empty()) return std::nullopt;
    for (const Known& k : kKnown) {
        if (toLowerAscii(k.name) == wanted) return k.charset;
        for (std::string_view alias : k.aliases)
            if (!alias.empty() && alias == wanted) return k.charset;
    }
    return std::nullopt;
}

std::string TitleEncoding::choices() {
    std::string out;
    for (const Known& k : kKnown) {
        if (!out.empty()) out += ", ";
        out += k.name;
    }
    return out;
}

// Valid UTF-8 is UTF-8: 8-bit text of any other encoding is almost never valid
// UTF-8 by chance. Otherwise the text is split into words (runs of ASCII
// letters and of the bytes that are letters in Windows-1251). A word made of
// two or more such high bytes alone is a Cyrillic word: in Latin-1 and
// Windows-1252 those bytes are accented letters, which Western words carry
// one or two at a time among plain ones ("Café", "Canção"). A word that mixes
// both is a Western word. Windows-1251 wins when Cyrillic words outnumber
// Western ones; on a tie, when high letters outnumber ASCII letters. Western
// text is Windows-1252 when it uses 0x80-0x9F (its curly quotes, dashes and
// euro sign, control codes in Latin-1), else Latin-1.
TitleEncoding::Charset TitleEncoding::detect(std::string_view bytes) {
    if (isValidUtf8(bytes)) return Charset::Utf8;
    int cyrillicWords = 0, westernWords = 0, highLetters = 0, asciiLetters = 0;
    bool c1Controls = false;
    int wordHigh = 0, wordAscii = 0;
    const auto endWord = [&] {
        if (wordHigh >= 2 && wordAscii == 0) ++cyrillicWords;
        if (wordHigh > 0 && wordAscii > 0) ++westernWords;
        wordHigh = wordAscii = 0;
    };
    for (const char ch : bytes) {
        const auto c = static_cast<unsigned char>(ch);
        if (c >= 0x80 && c <= 0x9F) c1Controls = true;
        if (isAsciiLetter(c)) {
            ++wordAscii;
            ++asciiLetters;
        } else if (isHighLetter(c)) {
            ++wordHigh;
            ++highLetters;
        } else {
            endWord();
        }
    }
    endWord();
    const bool cyrillic =
        cyrillicWords != westernWords ? cyrillicWords > westernWords : highLetters > asciiLetters;
    if (cyrillic) return Charset::Cp1251;
    return c1Controls ? Charset::Cp1252 : Charset::Latin1;
}

std::string TitleEncoding::toUtf8(std::string_view bytes, Charset charset) {
    if (charset == Charset::Auto) charset = detect(bytes);
    if (charset == Charset::Utf8 && isValidUtf8(bytes)) return std::string(bytes);
    try {
        // UTF-8 to UTF-8 as well: that replaces the invalid sequences.
        TextConverter converter("UTF-8", std::string(name(charset)));
        if (auto text = converter.convert(bytes, kReplacement)) return *text;
    } catch (const std::invalid_argument&) {
        // No gconv module for it on this system: the Latin-1 reading below.
    }
    return latin1ToUtf8(bytes);
}

}  // namespace quillon
