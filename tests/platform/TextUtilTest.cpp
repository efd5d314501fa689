#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

#include "platform/Localization.h"
#include "platform/Resources.h"
#include "platform/TextUtil.h"
#include "support/Files.h"

using namespace quillon;

namespace {

TEST(TextUtilTest, LeadingIntegerReading) {
    struct Case {
        const char* text;
        std::int32_t value;
    } cases[] = {{"42", 42},
                 {"  -7x", -7},
                 {"+3", 3},
                 {"abc", 0},
                 {"", 0},
                 {"12:30", 12},
                 {"99999999999", 2147483647},
                 {"-99999999999", -2147483647 - 1},
                 {"8000/", 8000}};
    for (const auto& c : cases) EXPECT_EQ(intValue(c.text), c.value) << c.text;
}

TEST(TextUtilTest, WireTextIsUtf8WhenValidElseLatin1) {
    EXPECT_EQ(textFromWire("Caf\xc3\xa9"), "Caf\xc3\xa9");
    EXPECT_EQ(textFromWire("Caf\xe9"), "Caf\xc3\xa9");
    EXPECT_FALSE(isValidUtf8("\xc0\x80"));      // overlong
    EXPECT_FALSE(isValidUtf8("\xed\xa0\x80"));  // surrogate
    EXPECT_TRUE(isValidUtf8("\xf0\x9f\x8e\xb5"));
}

TEST(TextUtilTest, Utf8PrefixNeverSplitsACharacter) {
    std::string s = "ab\xc3\xa9\xe2\x82\xac";  // a b é €
    EXPECT_EQ(utf8Prefix(s, 3), "ab");
    EXPECT_EQ(utf8Prefix(s, 4), "ab\xc3\xa9");
    EXPECT_EQ(utf8Prefix(s, 6), "ab\xc3\xa9");
    EXPECT_EQ(utf8Prefix(s, 7), s);
    EXPECT_EQ(toUtf8(toUtf32(s)), s);
}

TEST(TextUtilTest, Base64MatchesTheStandardAlphabetWithPadding) {
    const std::pair<const char*, const char*> cases[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"user:pass", "dXNlcjpwYXNz"}};
    for (const auto& [text, encoded] : cases) EXPECT_EQ(base64Encode(text), encoded) << text;
}

TEST(TextUtilTest, PrintableReplacesEveryControlAndKeepsTheRest) {
    const std::string r = "\xEF\xBF\xBD";  // U+FFFD
    const std::pair<std::string, std::string> cases[] = {
        {"Bj\xc3\xb6rk \xe2\x82\xac \xf0\x9f\x8e\xb5", "Bj\xc3\xb6rk \xe2\x82\xac \xf0\x9f\x8e\xb5"},
        {"\x1b]0;owned\x07Title\x1b[2J", r + "]0;owned" + r + "Title" + r + "[2J"},  // window title, clear
        {std::string("a\0\t\r\nb\x7f", 7), "a" + r + r + r + r + "b" + r},           // C0 and DEL
        {"csi\xc2\x9b[31m nbsp\xc2\xa0", "csi" + r + "[31m nbsp\xc2\xa0"},           // C1 as UTF-8
        {"raw\x9b[31m cut\xe2\x82", "raw" + r + "[31m cut" + r + r},                 // bytes of no UTF-8
    };
    for (const auto& [text, shown] : cases) EXPECT_EQ(printable(text), shown) << text;
}

TEST(LocalizationTest, StringsFileParsingAndDefaults) {
    auto table = parseStringsFile(
        "/* comment */\n\"a\" = \"Alpha\";\n\"q\" = \"say \\\"hi\\\"\";\nbroken line\n\"b\"=\"B\";");
    EXPECT_EQ(table.at("a"), "Alpha");
    EXPECT_EQ(table.at("q"), "say \"hi\"");
    EXPECT_EQ(table.at("b"), "B");
    EXPECT_EQ(localized("incomp", "x"), "Incomplete");
    EXPECT_EQ(localized("no such key", "fallback"), "fallback");
}

// Every key the program looks up by name has an English text in the table:
// literal lookups, message and button keys, and the activity menu's keys.
TEST(LocalizationTest, EveryKeyTheProgramUsesHasAText) {
    auto table = parseStringsFile(resource("Localizable.strings").value_or(""));
    const std::regex keys(R"re(localized\("(\w+)"|"((?:ERROR|MSG|BTN|TITLE|TB|TBH)_\w+)"|\{"(\w+Menu)", ")re");
    std::size_t seen = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(QUILLON_SOURCE_DIR "/src")) {
        if (entry.path().extension() != ".cpp" && entry.path().extension() != ".h") continue;
        std::string text = test::readText(entry.path().string());
        for (std::sregex_iterator it(text.begin(), text.end(), keys), end; it != end; ++it) {
            std::string key = (*it)[1].matched ? (*it)[1] : (*it)[2].matched ? (*it)[2] : (*it)[3];
            ++seen;
            EXPECT_TRUE(table.count(key)) << key << " in " << entry.path().filename();
        }
    }
    EXPECT_GT(seen, 30u);
}

}  // namespace
