// Directory entries: bit-rate classes, keyword matching, pictures, the missing
// station identifier, and the local directory file as another reader
// (python3's plistlib) sees it.
#include <gtest/gtest.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "platform/Log.h"
#include "support/Files.h"
#include "support/Process.h"
#include "tuner/Tuner.h"

namespace quillon {
namespace {

std::shared_ptr<TunerItem> stream(const std::string& name, const std::string& description, int kbps) {
    auto item = TunerItem::tunerItem();
    item->setName(name);
    item->setDescription(description);
    item->setBitRate(kbps);
    item->setItemType(2);
    item->cacheTunerData();
    return item;
}

TEST(TunerItemTest, BitRateClassesAtTheirBounds) {
    struct Case {
        int kbps;
        const char* expected;
    } cases[] = {{0, "low"}, {31, "low"}, {32, "medium"}, {95, "medium"}, {96, "high"}, {320, "high"}};
    for (const Case& c : cases) {
        auto item = stream("S", "", c.kbps);
        EXPECT_EQ(item->lowBitrate<std::string>("low", "medium", "high"), c.expected) << c.kbps;
    }
}

TEST(TunerItemTest, KeywordIsOneLowerCaseSubstringOfNameAndDescription) {
    auto item = stream("Rock Jazz FM", "smooth rock jazz", 128);
    auto apart = stream("Rock FM", "some jazz", 128);
    struct Case {
        const char* text;
        bool inItem, inApart;
    } cases[] = {
        {"rock jazz", true, false},  // the exact sequence, blank included
        {"Rock", false, false},      // upper case never matches
        {"fmsmooth", true, false},   // name runs straight into the description
        {"jazz", true, true},       {"", true, true},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(item->containsKeyword(c.text), c.inItem) << c.text;
        EXPECT_EQ(apart->containsKeyword(c.text), c.inApart) << c.text;
    }
}

TEST(TunerItemTest, PicturesByTypeAndCustom) {
    auto item = TunerItem::tunerItem();
    const std::pair<int, const char*> byType[] = {
        {0, "streamgroup.psd"}, {1, "StreamPict.psd"}, {2, "SubStreamPict.psd"}};
    for (auto [type, name] : byType) {
        item->setItemType(type);
        ASSERT_TRUE(item->picture());
        EXPECT_EQ(item->picture()->resourceName, name);
    }
    item->setItemType(7);
    EXPECT_FALSE(item->picture());
    EXPECT_FALSE(item->hasMetaPict());
    item->setCustomPicture(Bytes{1, 2, 3});
    ASSERT_TRUE(item->picture());
    EXPECT_EQ(item->picture()->custom, (Bytes{1, 2, 3}));
    item->setCustomPicture(std::nullopt);
    EXPECT_FALSE(item->objectForKey(TunerItem::kCustomPicture));
}

TEST(TunerItemTest, BookmarkWithoutStationIdentifierIsNone) {
    Log::Capture log;
    std::string failure;
    EXPECT_EQ(stream("S", "", 128)->bookmark("http://127.0.0.1:1", failure), nullptr);
    EXPECT_TRUE(log.contains("No resource ID"));
}

TEST(TunerItemTest, PlaylistAddressKeepsPathAndQuery) {
    EXPECT_EQ(TunerItem::plsURLWithNum("http://dir.example:8000/", "12 3"),
              "http://dir.example:8000/sbin/shoutcast-playlist.pls?rn=12%203&file=filename.pls");
}

TEST(TunerItemTest, ArchiveRestoresChildrenSortedWithTheirCache) {
    auto genre = TunerItem::tunerItem();
    genre->setName(std::string("Jazz"));
    genre->addItemToList(stream("Zeta", "Late", 64));
    genre->addItemToList(stream("Alpha", "Early", 128));
    auto copy = TunerItem::fromArchive(genre->archivedResource());
    ASSERT_TRUE(copy);
    ASSERT_EQ(copy->count(), 2u);
    EXPECT_EQ(copy->itemAtIndex(0)->name(), "Alpha");
    EXPECT_EQ(copy->itemAtIndex(0)->cachedBitrate(), 128);
    EXPECT_TRUE(copy->itemAtIndex(1)->containsKeyword("zetalate"));
    EXPECT_FALSE(copy->objectForKey(TunerItem::kStreams)) << "children live as items, not in the dictionary";
    EXPECT_FALSE(TunerItem::fromArchive(Bytes{'n', 'o'}));
}

TEST(TunerItemTest, DirectoryFileReadsBackInPlistlib) {
    const char* python = "/usr/bin/python3";
    if (!std::filesystem::exists(python)) GTEST_SKIP() << "python3 is not installed";
    auto jazz = TunerItem::tunerItem();
    jazz->setName(std::string("Jazz é"));
    jazz->setItemType(0);
    auto s = stream("Blue Note", "smooth", 128);
    s->setResourceNum(std::string("1001"));
    s->setHasMeta(true);
    jazz->addItemToList(s);
    const std::string path = test::testFolder("tuner") + "/kv.qlntuner.tun";
    ASSERT_TRUE(Tuner::writeDirectoryFile(path, {jazz}));

    // Each element is a genre's archive (a binary property list) holding its
    // children's archives under "stl".
    const std::string script =
        "import json, plistlib, sys\n"
        "out = []\n"
        "for data in plistlib.load(open(sys.argv[1], 'rb')):\n"
        "    g = plistlib.loads(data)\n"
        "    g['stl'] = [plistlib.loads(c) for c in g.get('stl', [])]\n"
        "    out.append(g)\n"
        "print(json.dumps(out))\n";
    auto result = test::runProcess({python, "-c", script, path});
    ASSERT_EQ(result.status, 0) << result.err;
    auto read = nlohmann::json::parse(result.out);
    ASSERT_EQ(read.size(), 1u);
    EXPECT_EQ(read[0]["sn"], "Jazz é");
    EXPECT_EQ(read[0]["it"], 0);
    ASSERT_EQ(read[0]["stl"].size(), 1u);
    const auto& child = read[0]["stl"][0];
    EXPECT_EQ(child["sn"], "Blue Note");
    EXPECT_EQ(child["sd"], "smooth");
    EXPECT_EQ(child["sb"], 128);
    EXPECT_EQ(child["sm"], "YES");
    EXPECT_EQ(child["rn"], "1001");

    auto back = Tuner::readDirectoryFile(path);
    ASSERT_TRUE(back);
    ASSERT_EQ(back->size(), 1u);
    EXPECT_EQ((*back)[0]->itemAtIndex(0)->container(), s->container());
}

}  // namespace
}  // namespace quillon
