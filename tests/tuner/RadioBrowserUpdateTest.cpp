// The directory updated from a stand-in Radio Browser mirror on loopback: the
// tree and the local file, the click of a taken station, and answers that
// must leave the local directory as it was.
#include <gtest/gtest.h>

#include "platform/AtomicFile.h"
#include "store/Preferences.h"
#include "support/Files.h"
#include "support/MainThread.h"
#include "support/RadioBrowserPeer.h"
#include "tuner/RadioBrowser.h"
#include "tuner/RadioBrowserClicks.h"
#include "tuner/Tuner.h"

namespace quillon {
namespace {

using Peer = test::RadioBrowserPeer;

class RadioBrowserUpdateTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::becomeMainThread();
        Preferences::resetShared();
        path_ = test::testFolder("radiobrowser") + "/kv.qlntuner.tun";
        peer_.setTags(Peer::tagsJson({{"jazz", 120}, {"rock", 80}, {"talk", 50}, {"rare", 3}}));
        peer_.setStations(
            "jazz",
            Peer::stationsJson({{"Smooth", "http://127.0.0.1:9/smooth", "MP3", "u-smooth", "jazz"},
                                {"Bebop", "https://127.0.0.1:9/bebop", "MP3", "u-bebop", "jazz,bop"}}));
        peer_.setStations(
            "rock", Peer::stationsJson({{"Riff", "http://127.0.0.1:9/riff", "MP3", "u-riff", "rock"},
                                        {"Opus Rock", "http://127.0.0.1:9/o", "OGG", "u-ogg", "rock"}}));
        peer_.setStations("talk",
                          Peer::stationsJson({{"News", "http://127.0.0.1:9/news", "AAC", "u-news", "talk"}}));
    }
    void TearDown() override {
        // The update saved its source; the binary's other tests expect the directory server's.
        auto prefs = Preferences::preferences();
        prefs->removeObjectForKey(Tuner::kSourceKey);
        EXPECT_TRUE(prefs->saveToFile());
        Preferences::resetShared();
    }

    // One update through to its end; the outcome and its message.
    std::pair<std::optional<Tuner::Outcome>, std::string> update(Tuner& tuner) {
        std::optional<Tuner::Outcome> outcome;
        std::string message;
        Tuner::Events events;
        events.finished = [&](Tuner::Outcome o, const std::string& text) {
            outcome = o;
            message = text;
        };
        tuner.setEvents(std::move(events));
        tuner.setSource(Tuner::Source::radioBrowser);
        tuner.setServer(peer_.base());
        tuner.beginUpdate(true);
        EXPECT_TRUE(test::runUntil([&] { return outcome.has_value(); }));
        tuner.setEvents({});
        return {outcome, message};
    }

    // Genre -> the names of its streams.
    static std::map<std::string, std::vector<std::string>> tree(const Tuner& tuner) {
        std::map<std::string, std::vector<std::string>> out;
        for (const auto& genre : tuner.tunerGenres())
            for (const auto& s : genre->streams()) out[*genre->name()].push_back(*s->name());
        return out;
    }
    std::string pref(const char* key) const { return Preferences::preferences()->getParam(key); }

    std::string path_;
    Peer peer_;
};

TEST_F(RadioBrowserUpdateTest, UpdateBuildsTheTreeFromTheMostUsedTags) {
    Tuner tuner(path_);
    auto [outcome, message] = update(tuner);
    ASSERT_EQ(outcome, Tuner::Outcome::updated) << message;
    EXPECT_NE(message.find("2 genres from Radio Browser"), std::string::npos) << message;
    // "talk" holds no MP3 stream, "rare" has too few stations to be asked for.
    const std::map<std::string, std::vector<std::string>> expected = {{"jazz", {"Bebop", "Smooth"}},
                                                                      {"rock", {"Riff"}}};
    Tuner reread(path_);
    ASSERT_TRUE(reread.loadTunerData());
    EXPECT_EQ(tree(reread), expected);
    EXPECT_EQ(tree(tuner), tree(reread));
    EXPECT_TRUE(reread.tunerGenres()[0]->streams()[1]->hasDirectStream());

    Preferences::resetShared();  // saved, not only set
    EXPECT_EQ(pref(Tuner::kSourceKey), "radio-browser");
    EXPECT_EQ(pref(Tuner::kVersionKey), "0");
    EXPECT_EQ(Tuner(path_).source(), Tuner::Source::radioBrowser);

    for (const std::string& path : peer_.paths()) EXPECT_EQ(path.find("rare"), std::string::npos) << path;
    for (const std::string& agent : peer_.userAgents()) EXPECT_EQ(agent, RadioBrowser::userAgent());

    {
        RadioBrowserClicks clicks(peer_.base());
        ASSERT_TRUE(clicks.count("u-bebop"));
        clicks.finish();
        EXPECT_EQ(peer_.clicks("u-bebop"), 1);
    }
    EXPECT_EQ(peer_.clicks("u-smooth"), 0);
}

TEST_F(RadioBrowserUpdateTest, AFailedUpdateLeavesTheLocalDirectory) {
    {
        Tuner first(path_);
        ASSERT_EQ(update(first).first, Tuner::Outcome::updated);
    }
    const auto before = readWholeFile(path_);
    ASSERT_TRUE(before);
    const std::string good = Peer::tagsJson({{"jazz", 120}, {"rock", 80}});
    const std::string rock =
        Peer::stationsJson({{"Riff", "http://127.0.0.1:9/riff", "MP3", "u-riff", "rock"}});
    struct Case {
        const char* what;
        std::string tags;
        std::string rockStations;
        const char* reason;  // a part of the message
    };
    const Case cases[] = {
        {"tags that are no JSON", "[{\"name\":", rock, "no JSON"},
        {"an oversized tag list", "[" + std::string(RadioBrowser::kMaxTagsBytes, ' ') + "]", rock,
         "/json/tags"},
        {"the second genre malformed", good, R"([{"name":"Riff","stationuuid":7}])", "bytagexact/rock"},
        {"the server failing half-way", good, "", "bytagexact/rock"},
        {"no MP3 station", Peer::tagsJson({{"talk", 50}}), rock, "no MP3 station"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Preferences::preferences()->setParam(std::string("server"), Tuner::kSourceKey);
        Preferences::preferences()->setParam(std::string("5"), Tuner::kVersionKey);
        peer_.setTags(c.tags);
        peer_.setStations("rock", c.rockStations);
        Tuner tuner(path_);
        ASSERT_TRUE(tuner.loadTunerData());
        const auto shown = tree(tuner);
        auto [outcome, message] = update(tuner);
        EXPECT_EQ(outcome, Tuner::Outcome::updateFailed);
        EXPECT_NE(message.find(c.reason), std::string::npos) << message;
        EXPECT_EQ(readWholeFile(path_), before);
        EXPECT_EQ(tree(tuner), shown);
        EXPECT_EQ(pref(Tuner::kSourceKey), "server");
        EXPECT_EQ(pref(Tuner::kVersionKey), "5");
    }
}

}  // namespace
}  // namespace quillon
