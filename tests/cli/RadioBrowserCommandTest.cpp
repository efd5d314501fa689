// `quillon directory` with Radio Browser as its source, against a stand-in
// mirror on loopback: the update remembered as the source, list and search on
// the cached tree, an entry recorded and saved with one click each.
#include <nlohmann/json.hpp>

#include "cli/CliTest.h"
#include "platform/AtomicFile.h"
#include "support/RadioBrowserPeer.h"

namespace quillon::test {
namespace {

class RadioBrowserCommandTest : public CliTest {
protected:
    RadioBrowserPeer peer_;
};

TEST_F(RadioBrowserCommandTest, UpdateListRecordAndSaveCountingClicks) {
    auto stream = station();
    peer_.setTags(RadioBrowserPeer::tagsJson({{"jazz", 120}, {"talk", 40}}));
    peer_.setStations("jazz", RadioBrowserPeer::stationsJson(
                                  {{"Loop Jazz", stream->url() + "stream", "MP3", "u-loop", "jazz"},
                                   {"Far Jazz", "https://127.0.0.1:9/far", "AAC", "u-far", "jazz"}}));
    peer_.setStations("talk", RadioBrowserPeer::stationsJson(
                                  {{"Loop Talk", stream->url() + "talk", "MP3", "u-talk", "talk"}}));

    auto update = quillon({"directory", "update", "--source", "radio-browser", "--server", peer_.base()});
    ASSERT_EQ(update.status, 0) << update.err;
    EXPECT_NE(update.out.find("2 genres from Radio Browser"), std::string::npos) << update.out;
    EXPECT_EQ(quillon({"prefs", "get", "tunerSource"}).out, "radio-browser\n");

    // The cached tree, as any directory: list, filter, search.
    auto list = quillon({"directory", "list", "--json"});
    ASSERT_EQ(list.status, 0) << list.err;
    auto tree = nlohmann::json::parse(list.out);
    EXPECT_EQ(tree["source"], "radio-browser");
    ASSERT_EQ(tree["genres"].size(), 2u);
    EXPECT_EQ(tree["genres"][0]["name"], "jazz");
    ASSERT_EQ(tree["genres"][0]["streams"].size(), 1u);  // the AAC stream is left out
    const auto& entry = tree["genres"][0]["streams"][0];
    EXPECT_EQ(entry["id"], "u-loop");
    EXPECT_EQ(entry["codec"], "MP3");
    EXPECT_EQ(entry["source"], "radio-browser");
    auto search = quillon({"directory", "search", "talk", "--json"});
    ASSERT_EQ(search.status, 0) << search.err;
    EXPECT_EQ(nlohmann::json::parse(search.out)["count"], 1);

    // No directory server is set: the entries name their streams. The
    // mirror for the clicks is the preference's.
    ASSERT_EQ(quillon({"prefs", "set", "radioBrowserServer", peer_.base()}).status, 0);
    auto record =
        quillon({"directory", "record", "jazz/Loop Jazz", "--for", "2s", "-q", "--to", file("rec")});
    ASSERT_EQ(record.status, 0) << record.err;
    EXPECT_GT(countEntries(file("rec")), 0u);
    EXPECT_EQ(peer_.clicks("u-loop"), 1);

    auto save = quillon({"directory", "save", "u-talk", "--name", "Talk"});
    ASSERT_EQ(save.status, 0) << save.err;
    EXPECT_TRUE(readWholeFile(bookmarkFile("Talk")));
    EXPECT_EQ(peer_.clicks("u-talk"), 1);
    // A save refused (the name is taken) counts nothing.
    EXPECT_NE(quillon({"directory", "save", "u-talk", "--name", "Talk"}).status, 0);
    EXPECT_EQ(peer_.clicks("u-talk"), 1);
    EXPECT_EQ(peer_.clicks("u-loop"), 1);
    EXPECT_EQ(quillon({"directory", "update", "--source", "nowhere"}).status, 2);
}

}  // namespace
}  // namespace quillon::test
