#include <gtest/gtest.h>

#include "platform/Localization.h"
#include "platform/TextUtil.h"

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
    EXPECT_EQ(base64Encode(""), "");
    EXPECT_EQ(base64Encode("f"), "Zg==");
    EXPECT_EQ(base64Encode("fo"), "Zm8=");
    EXPECT_EQ(base64Encode("foo"), "Zm9v");
    EXPECT_EQ(base64Encode("user:pass"), "dXNlcjpwYXNz");
}

TEST(TextUtilTest, PrintableReplacesEveryControlAndKeepsTheRest) {
    const std::string r = "\xEF\xBF\xBD";  // U+FFFD
    struct Case {
        std::string text, shown;
    } cases[] = {
        {"Miles Davis - So What", "Miles Davis - So What"},
        {"Bj\xc3\xb6rk \xe2\x82\xac \xf0\x9f\x8e\xb5", "Bj\xc3\xb6rk \xe2\x82\xac \xf0\x9f\x8e\xb5"},
        {"\x1b]0;owned\x07Title", r + "]0;owned" + r + "Title"},  // window title
        {"\x1b[2JCleared", r + "[2JCleared"},                     // screen clear
        {std::string("a\0b", 3), "a" + r + "b"},
        {"tab\there\r\nline", "tab" + r + "here" + r + r + "line"},
        {"del\x7f", "del" + r},
        {"csi\xc2\x9b[31m", "csi" + r + "[31m"},  // U+009B, the one-character CSI
        {"nel\xc2\x85 nbsp\xc2\xa0", "nel" + r + " nbsp\xc2\xa0"},
        {"raw\x9b[31m", "raw" + r + "[31m"},  // a bare C1 byte, no valid UTF-8
        {"cut\xe2\x82", "cut" + r + r},
        {"", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(printable(c.text), c.shown) << c.text;
        EXPECT_TRUE(isValidUtf8(printable(c.text))) << c.text;
    }
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

}  // namespace
