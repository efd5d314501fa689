#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "platform/QLNObject.h"
#include "platform/TextUtil.h"
#include "platform/VoObject.h"

using namespace quillon;

namespace {

std::optional<std::string> asString(const std::optional<Bytes>& bytes) {
    if (!bytes) return std::nullopt;
    return std::string(asText(*bytes));
}

}  // namespace

TEST(VoObjectSlicing, BeforeAfterAndBetweenFollowTheFirstOccurrence) {
    struct Case {
        std::string data, key;
        std::optional<std::string> before, after;
    };
    const Case cases[] = {
        {"a=1;b=2;", ";", "a=1", "b=2;"},
        {"a=1;b=2;", "b=", "a=1;", "2;"},
        {";lead", ";", "", "lead"},
        {"trail;", ";", "trail", ""},
        {"no marker", ";", std::nullopt, std::nullopt},
        {"abc", "", std::nullopt, "abc"},
        {"", ";", std::nullopt, std::nullopt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.data + " / " + c.key);
        EXPECT_EQ(asString(VoObject::returnDataInDataBefore(asBytes(c.data), c.key)), c.before);
        EXPECT_EQ(asString(VoObject::returnDataInDataAfter(asBytes(c.data), c.key)), c.after);
    }
}

TEST(VoObjectSlicing, BetweenMarkersAsText) {
    struct Case {
        std::string data;
        std::optional<std::string> title;
    };
    const Case cases[] = {
        {"StreamTitle='Artist - Song';StreamUrl='';", "Artist - Song"},
        {"StreamUrl='x';StreamTitle='';", ""},
        {"StreamTitle='It's';StreamTitle='Other';", "It's"},
        {"StreamTitle='no end", std::nullopt},
        {"StreamUrl='only';", std::nullopt},
        // Latin-1 bytes become UTF-8; valid UTF-8 stays as it is.
        {"StreamTitle='Caf\xe9';", "Caf\xc3\xa9"},
        {"StreamTitle='Caf\xc3\xa9';", "Caf\xc3\xa9"},
        {std::string("StreamTitle='a\0b';", 18), std::string("a\0b", 3)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.data);
        EXPECT_EQ(VoObject::returnStringInData(c.data, "StreamTitle='", "';"), c.title);
    }
}

TEST(VoObjectFilters, PairTextsBuildCharacterMapsThatKeepTheCharacterCount) {
    EXPECT_TRUE(VoObject::filterFromChars("").empty());
    EXPECT_TRUE(VoObject::filterFromChars("a").empty());
    EXPECT_EQ(VoObject::filterFromChars("abc"), (CharFilter{{U'a', U'b'}}));
    // Pairs are characters, not bytes, and a later pair replaces an earlier one.
    EXPECT_EQ(VoObject::filterFromChars("\xc3\xa9"
                                        "e\xc3\xbc"
                                        "uax"
                                        "ay"),
              (CharFilter{{U'\u00e9', U'e'}, {U'\u00fc', U'u'}, {U'a', U'y'}}));

    CharFilter filter = VoObject::filterFromChars("\xc3\xa9_a\xe2\x82\xac");  // é -> _, a -> €
    std::string out = VoObject::filterString("caf\xc3\xa9 bar", filter);
    EXPECT_EQ(out,
              "c\xe2\x82\xac"
              "f_ b\xe2\x82\xacr");
    EXPECT_EQ(toUtf32(out).size(), toUtf32("caf\xc3\xa9 bar").size());
}

TEST(VoObjectFilters, StandardFiltersMakeNamesSafe) {
    QLNObject helper;
    struct Case {
        std::string title, vo, qln;
    };
    const Case cases[] = {
        {"AC/DC: Live", "AC_DC  Live", "AC_DC  Live"},
        {"Mr. X", "Mr_ X", "Mr_ X"},
        {"a\\b|c", "a b c", "a\\b c"},
        {"../../etc", "______etc", "______etc"},
        {"Sigur R\xc3\xb3s: \xc3\x81g\xc3\xa6tis", "Sigur R\xc3\xb3s  \xc3\x81g\xc3\xa6tis",
         "Sigur R\xc3\xb3s  \xc3\x81g\xc3\xa6tis"},
        {"", "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.title);
        EXPECT_EQ(VoObject::filterString(c.title, VoObject::standartFilter()), c.vo);
        EXPECT_EQ(helper.filterString(c.title, helper.standartFilter()), c.qln);
    }
}

TEST(VoObjectFilters, AlphabeticStringKeepsLettersDigitsBlanksDashAmpersand) {
    struct Case {
        std::string in, out;
    };
    const Case cases[] = {
        {"Track #5: 100% (live)!", "Track 5 100 live"},
        {"Simon & Garfunkel - Boxer", "Simon & Garfunkel - Boxer"},
        {"Bj\xc3\xb6rk \xc2\xab"
         "J\xc3\xb3ga\xc2\xbb",
         "Bj\xc3\xb6rk J\xc3\xb3ga"},
        {"\xd0\x9a\xd0\xb8\xd0\xbd\xd0\xbe, \xd0\x93\xd1\x80\xd1\x83\xd0\xbf\xd0\xbf\xd0\xb0",
         "\xd0\x9a\xd0\xb8\xd0\xbd\xd0\xbe \xd0\x93\xd1\x80\xd1\x83\xd0\xbf\xd0\xbf\xd0\xb0"},
        {"\xe6\x9d\xb1\xe4\xba\xac\xe2\x98\x85"
         "2020",
         "\xe6\x9d\xb1\xe4\xba\xac"
         "2020"},
        {"tab\there\nnewline", "tabherenewline"},
        {"\xe2\x82\xac 5", " 5"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.in);
        EXPECT_EQ(VoObject::alphabeticString(c.in), c.out);
        EXPECT_EQ(QLNObject().alphabeticString(c.in), c.out);
    }
}
