// Title encodings: the detection rule over typical titles of each encoding and
// the ambiguous ones, the conversion to UTF-8 (detected or chosen), and the
// names a bookmark may hold.
#include "engine/TitleEncoding.h"

#include <gtest/gtest.h>

#include "platform/TextUtil.h"

namespace quillon {
namespace {

using Charset = TitleEncoding::Charset;

TEST(TitleEncoding, DetectionAndConversionOfTypicalTitles) {
    struct Case {
        const char* what;
        std::string bytes;
        Charset detected;
        std::string utf8;  // toUtf8 with Auto
    };
    const Case cases[] = {
        {"empty", "", Charset::Utf8, ""},
        {"pure ASCII", "Artist - Song", Charset::Utf8, "Artist - Song"},
        {"UTF-8 Cyrillic", "Кино - Группа крови", Charset::Utf8, "Кино - Группа крови"},
        {"UTF-8 Western", "Café del Mar", Charset::Utf8, "Café del Mar"},
        {"cp1251 Cyrillic", "\xca\xe8\xed\xee - \xc3\xf0\xf3\xef\xef\xe0 \xea\xf0\xee\xe2\xe8",
         Charset::Cp1251, "Кино - Группа крови"},
        {"cp1251 with Latin words", "\xcb\xe5\xed\xe8\xed\xe3\xf0\xe0\xe4 feat. Glukoza", Charset::Cp1251,
         "Ленинград feat. Glukoza"},
        {"cp1251 with yo and curly quotes", "\x93\xc5\xb8\xf8\xea\xe8\x94", Charset::Cp1251, "“Еёшки”"},
        {"cp1251 Ukrainian", "\xca\xe8\xbf\xe2", Charset::Cp1251, "Київ"},
        {"Latin-1", "Caf\xe9 del Mar", Charset::Latin1, "Café del Mar"},
        {"Latin-1, two accents in a row", "Can\xe7\xe3o do Mar", Charset::Latin1, "Canção do Mar"},
        {"Latin-1, a lone accented word", "Voyage \xe0 Paris", Charset::Latin1, "Voyage à Paris"},
        {"cp1252 curly quotes and euro", "\x93Money\x94 \x96 5\x80", Charset::Cp1252, "“Money” – 5€"},
        {"cp1252 accents and a dash", "Beyonc\xe9 \x97 D\xe9j\xe0 Vu", Charset::Cp1252, "Beyoncé — Déjà Vu"},
        // Ambiguous: two accented capitals alone read as a Cyrillic word,
        // one high letter with a plain one as a Western word.
        {"ambiguous: high bytes alone", "\xc9\xc9", Charset::Cp1251, "ЙЙ"},
        {"ambiguous: one of each",
         "\xc7"
         "a",
         Charset::Latin1, "Ça"},
        {"ambiguous: a tie of words goes by letters", "\xc0\xc1 \xe9tait", Charset::Latin1, "ÀÁ était"},
        {"invalid UTF-8 lead byte alone", "\xff", Charset::Cp1251, "я"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(TitleEncoding::detect(c.bytes), c.detected);
        const std::string text = TitleEncoding::toUtf8(c.bytes, Charset::Auto);
        EXPECT_EQ(text, c.utf8);
        EXPECT_TRUE(isValidUtf8(text));
    }
}

TEST(TitleEncoding, AChosenEncodingOverridesDetection) {
    struct Case {
        const char* what;
        std::string bytes;
        Charset chosen;
        std::string utf8;
    };
    const Case cases[] = {
        {"UTF-8 read as Latin-1 when so chosen", "Caf\xc3\xa9", Charset::Latin1, "CafÃ©"},
        {"cp1251 bytes read as cp1252", "\xca\xe8\xed\xee", Charset::Cp1252, "Êèíî"},
        {"Latin-1 bytes read as cp1251", "Caf\xe9", Charset::Cp1251, "Cafй"},
        {"0x80 is a control in Latin-1", "\x80", Charset::Latin1, "\xc2\x80"},
        {"bytes cp1252 leaves undefined", "a\x81z\x8d", Charset::Cp1252, "a\uFFFDz\uFFFD"},
        {"the byte cp1251 leaves undefined", "\x98", Charset::Cp1251, "\uFFFD"},
        {"invalid UTF-8 when UTF-8 is chosen", "ok\xff\xc3", Charset::Utf8, "ok\uFFFD\uFFFD"},
        {"valid UTF-8 when UTF-8 is chosen", "Кино", Charset::Utf8, "Кино"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(TitleEncoding::toUtf8(c.bytes, c.chosen), c.utf8);
    }
}

TEST(TitleEncoding, NamesAndAliases) {
    const std::pair<const char*, std::optional<Charset>> cases[] = {
        {"auto", Charset::Auto},
        {"AUTO", Charset::Auto},
        {"UTF-8", Charset::Utf8},
        {"utf8", Charset::Utf8},
        {"ISO-8859-1", Charset::Latin1},
        {"latin1", Charset::Latin1},
        {"CP1251", Charset::Cp1251},
        {"windows-1251", Charset::Cp1251},
        {" cp1252 ", Charset::Cp1252},
        {"Windows-1252", Charset::Cp1252},
        {"", std::nullopt},
        {"koi8-r", std::nullopt},
        {"utf", std::nullopt},
    };
    for (const auto& [text, charset] : cases) EXPECT_EQ(TitleEncoding::fromName(text), charset) << text;
    for (Charset c : {Charset::Auto, Charset::Utf8, Charset::Latin1, Charset::Cp1251, Charset::Cp1252})
        EXPECT_EQ(TitleEncoding::fromName(TitleEncoding::name(c)), c);
    EXPECT_EQ(TitleEncoding::choices(), "auto, UTF-8, ISO-8859-1, CP1251, CP1252");
}

}  // namespace
}  // namespace quillon
