// Radio Browser's answers turned into genres and streams, and the mirror
// choice, as pure functions: bounds, codecs, malformed answers, and a random
// pick that still reaches every mirror.
#include "tuner/RadioBrowser.h"

#include <gtest/gtest.h>

#include <set>

#include "platform/TextUtil.h"
#include "store/Bookmark.h"
#include "support/RadioBrowserPeer.h"

namespace quillon {
namespace {

using Peer = test::RadioBrowserPeer;

std::optional<TunerItem::List> stations(const std::string& body, bool allCodecs, std::string& failure) {
    return RadioBrowser::parseStations(asBytes(body), "jazz", allCodecs, failure);
}

TEST(RadioBrowserTest, TagsBecomeTheMostUsedGenresAboveTheMinimum) {
    std::vector<std::pair<std::string, int>> many;
    for (int i = 0; i < 60; ++i) many.emplace_back("tag" + std::to_string(i), 100 + i);
    many.emplace_back("rare", RadioBrowser::kMinStations - 1);
    many.emplace_back("", 5000);       // no name
    many.emplace_back("tag59", 9999);  // a repeated name keeps its first count
    std::string failure;
    auto tags = RadioBrowser::parseTags(asBytes(Peer::tagsJson(many)), failure);
    ASSERT_TRUE(tags) << failure;
    ASSERT_EQ(tags->size(), RadioBrowser::kMaxGenres);
    EXPECT_EQ(tags->front(), (RadioBrowser::Tag{"tag59", 159}));
    EXPECT_EQ(tags->back(), (RadioBrowser::Tag{"tag20", 120}));

    auto tied =
        RadioBrowser::parseTags(asBytes(Peer::tagsJson({{"rock", 50}, {"jazz", 50}, {"pop", 60}})), failure);
    ASSERT_TRUE(tied);
    EXPECT_EQ(*tied, (std::vector<RadioBrowser::Tag>{{"pop", 60}, {"jazz", 50}, {"rock", 50}}));
}

TEST(RadioBrowserTest, MalformedAnswersFail) {
    struct Case {
        const char* body;
        const char* reason;    // a part of the failure
        bool stations = true;  // a station list fails the same way
    };
    const Case cases[] = {
        {"", "no JSON"},
        {"<html>busy</html>", "no JSON"},
        {R"([{"name":"jazz","stationcount":12})", "no JSON"},  // cut short
        {R"({"name":"jazz"})", "no JSON array"},
        {R"([17])", "no object"},
        {R"([{"name":42,"stationcount":12}])", "malformed"},
        {R"([{"name":"jazz","stationcount":"many"}])", "malformed", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.body);
        std::string failure;
        EXPECT_FALSE(RadioBrowser::parseTags(asBytes(c.body), failure));
        EXPECT_NE(failure.find(c.reason), std::string::npos) << failure;
        if (!c.stations) continue;
        failure.clear();
        EXPECT_FALSE(stations(c.body, true, failure));
        EXPECT_NE(failure.find(c.reason), std::string::npos) << failure;
    }
    std::string failure;
    EXPECT_FALSE(stations(R"([{"name":"A","stationuuid":"u","url_resolved":"http://h/","bitrate":"128"}])",
                          true, failure));
}

TEST(RadioBrowserTest, StationsBecomeStreamsMp3OnlyUnlessAllCodecs) {
    const std::string body = Peer::stationsJson({
        {"Smooth", "http://a.example/live", "MP3", "u1", "jazz,smooth jazz", 128},
        {"Secure", "https://b.example:8443/s.mp3", "mp3", "u2", "", 320},
        {"Modern", "https://c.example/aac", "AAC", "u3", "jazz", 64},
        {"Nameless", "http://d.example/", "MP3", "", "", 96},  // no uuid
        {"", "http://e.example/", "MP3", "u5", "", 96},        // no name
        {"Relative", "/stream", "MP3", "u6", "", 96},          // no http address
        {"Mystery", "http://f.example/", "", "u7", "", 0},     // no codec
    });
    struct Case {
        bool allCodecs;
        std::vector<std::string> names;
    };
    for (const Case& c :
         {Case{false, {"Smooth", "Secure"}}, Case{true, {"Smooth", "Secure", "Modern", "Mystery"}}}) {
        SCOPED_TRACE(c.allCodecs);
        std::string failure;
        auto items = stations(body, c.allCodecs, failure);
        ASSERT_TRUE(items) << failure;
        std::vector<std::string> names;
        for (const auto& item : *items) names.push_back(item->name().value_or(""));
        EXPECT_EQ(names, c.names);
    }
    std::string failure;
    auto items = *stations(body, true, failure);
    const TunerItem& smooth = *items[0];
    EXPECT_EQ(smooth.URL(), "http://a.example/live");
    EXPECT_EQ(smooth.resourceNum(), "u1");
    EXPECT_EQ(smooth.genre(), "jazz");
    EXPECT_EQ(smooth.bitRate(), 128);
    EXPECT_EQ(smooth.itemType(), 2);
    EXPECT_EQ(smooth.homepage(), "https://example.org/");
    EXPECT_EQ(smooth.description(), "MP3 | jazz,smooth jazz");
    EXPECT_TRUE(smooth.hasDirectStream());
    EXPECT_EQ(items[2]->codec(), "AAC");
    EXPECT_TRUE(items[2]->containsKeyword("aac"));  // a search finds the codec
    EXPECT_EQ(items[3]->codec(), "unknown");

    // The bookmark is the address itself, https kept, no playlist fetched.
    auto secure = items[1]->bookmark("", failure);
    ASSERT_TRUE(secure) << failure;
    EXPECT_EQ(secure->scheme(), "https");
    EXPECT_EQ(secure->host(), "b.example");
    EXPECT_EQ(secure->port(), "8443");
    EXPECT_EQ(secure->path(), "/s.mp3");
    EXPECT_EQ(secure->name(), "Secure");
}

TEST(RadioBrowserTest, StationsAndTextsAreBounded) {
    std::vector<Peer::Station> many;
    for (std::size_t i = 0; i < RadioBrowser::kMaxStationsPerGenre + 20; ++i)
        many.push_back(
            {"S" + std::to_string(i), "http://h/" + std::to_string(i), "MP3", "u" + std::to_string(i), ""});
    many[0].name = std::string(5000, 'n');
    std::string failure;
    auto items = stations(Peer::stationsJson(many), false, failure);
    ASSERT_TRUE(items) << failure;
    EXPECT_EQ(items->size(), RadioBrowser::kMaxStationsPerGenre);
    EXPECT_EQ(items->front()->name()->size(), RadioBrowser::kMaxTextBytes);
}

TEST(RadioBrowserTest, MirrorOrderIsARandomPickWithTheOthersAsFallbacks) {
    const std::vector<std::string> names = {"de1.api.radio-browser.info.",
                                            "NL1.api.radio-browser.info",
                                            "at1.api.radio-browser.info",
                                            "de1.api.radio-browser.info",
                                            "bad name",
                                            "",
                                            "-x.example",
                                            "a/b.example"};
    const std::vector<std::string> expected = {"https://at1.api.radio-browser.info",
                                               "https://de1.api.radio-browser.info",
                                               "https://nl1.api.radio-browser.info"};
    std::set<std::string> firsts;
    for (std::uint64_t seed = 0; seed < 64; ++seed) {
        auto order = RadioBrowser::mirrorOrder(names, seed);
        auto sorted = order;
        std::sort(sorted.begin(), sorted.end());
        ASSERT_EQ(sorted, expected) << seed;  // every usable mirror once, whatever the pick
        firsts.insert(order.front());
        // The order depends on the seed, not on the order the names came in.
        std::vector<std::string> reversed(names.rbegin(), names.rend());
        EXPECT_EQ(RadioBrowser::mirrorOrder(reversed, seed), order);
    }
    EXPECT_EQ(firsts.size(), expected.size());  // each mirror is some seed's pick
    EXPECT_TRUE(RadioBrowser::mirrorOrder({"", "no way"}, 1).empty());
}

TEST(RadioBrowserTest, ServerListAndTagPath) {
    std::string failure;
    auto list = RadioBrowser::parseServerList(
        asBytes(
            R"([{"ip":"1.2.3.4","name":"de1.api.radio-browser.info"},{"ip":"::1","name":"nl1.api.radio-browser.info"}])"),
        failure);
    ASSERT_TRUE(list) << failure;
    EXPECT_EQ(*list, (std::vector<std::string>{"de1.api.radio-browser.info", "nl1.api.radio-browser.info"}));
    EXPECT_FALSE(RadioBrowser::parseServerList(asBytes("[1]"), failure));

    EXPECT_EQ(RadioBrowser::stationsPath("drum & bass/x").substr(0, 48),
              "/json/stations/bytagexact/drum%20%26%20bass%2Fx?");
}

}  // namespace
}  // namespace quillon
