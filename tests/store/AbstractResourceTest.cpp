// Identifiers, typed accessors, files, archives and lists of resources.
#include <gtest/gtest.h>

#include <filesystem>

#include "StoreTestSupport.h"
#include "platform/PlistCodec.h"
#include "store/AbstractResource.h"
#include "store/Bookmark.h"

namespace quillon {
namespace {

using test::ScopedHome;

std::vector<std::shared_ptr<AbstractResource>> withIds(std::initializer_list<std::uint32_t> ids) {
    std::vector<std::shared_ptr<AbstractResource>> list;
    for (std::uint32_t id : ids) {
        auto r = AbstractResource::resource();
        r->setUniqueId(id);
        list.push_back(r);
    }
    return list;
}

// Restores the default random source whatever a test did.
struct RandomSource {
    explicit RandomSource(int draw) {
        UniqueIDObject::setRandomSource([draw] { return draw; });
    }
    ~RandomSource() { UniqueIDObject::setRandomSource({}); }
};

TEST(UniqueIDObject, IndexLookupScansFromTheStart) {
    EXPECT_EQ(UniqueIDObject::objectIndexForId(1, withIds({})), -1);
    auto list = withIds({4, 9, 9, 2});
    EXPECT_EQ(UniqueIDObject::objectIndexForId(9, list), 1);
    EXPECT_EQ(UniqueIDObject::objectIndexForId(2, list), 3);
    EXPECT_EQ(UniqueIDObject::objectIndexForId(5, list), -1);
    EXPECT_EQ(UniqueIDObject::objectForId(9, list), list[1]);
    EXPECT_EQ(UniqueIDObject::objectForId(5, list), nullptr);
}

TEST(UniqueIDObject, UnusedIdSearchesFromTheFirstDraw) {
    struct Case {
        const char* what;
        int draw;  // the random number; the first candidate is draw % 32768 + 1
        std::vector<std::uint32_t> taken;
        std::uint32_t expected;
    };
    std::vector<Case> cases = {
        {"free at once", 99, {1, 2}, 100},
        {"upward past taken ids", 2, {1, 2, 3, 4, 5}, 6},
        {"downward from the upper half", 20000, {19999, 20000, 20001}, 19998},
        {"draw reduced modulo 32768", 32768 + 6, {}, 7},
        {"downward from 32768 restarts at 0 - 1", 32767, {32768}, 0xFFFFFFFFu},
        {"16384 still searches upward", 16383, {16384}, 16385},
        {"16385 searches downward", 16384, {16385}, 16384},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        RandomSource source(c.draw);
        std::vector<std::shared_ptr<AbstractResource>> list;
        for (std::uint32_t id : c.taken) list.push_back(withIds({id})[0]);
        EXPECT_EQ(UniqueIDObject::unusedUniqueIdfromArray(list), c.expected);
    }
}

// An upward search can only reach 32768 past a run of taken ids from the lower
// half, which takes a long list.
TEST(UniqueIDObject, UpwardSearchWrapsFrom32768To1) {
    struct Item {
        std::uint32_t id;
        std::uint32_t uniqueId() const { return id; }
    };
    std::vector<Item> items;
    for (std::uint32_t id = 16384; id <= 32768; ++id) items.push_back({id});
    items.push_back({1});
    std::vector<const Item*> list;
    for (const Item& item : items) list.push_back(&item);
    RandomSource source(16383);  // first candidate 16384: upward
    EXPECT_EQ(UniqueIDObject::unusedUniqueIdfromArray(list), 2u);
}

TEST(UniqueIDObject, AddingToAListGivesAFreeId) {
    auto list = withIds({1, 2, 3});
    {
        RandomSource source(0);  // first candidate 1, taken
        UniqueIDObject::addToArrayAndCreateUniqueId(list, AbstractResource::resource());
    }
    ASSERT_EQ(list.size(), 4u);
    EXPECT_EQ(list.back()->uniqueId(), 4u);
    // With the real generator: always in range and unused.
    for (int i = 0; i < 50; ++i)
        UniqueIDObject::addToArrayAndCreateUniqueId(list, AbstractResource::resource());
    for (std::size_t i = 0; i < list.size(); ++i) {
        EXPECT_EQ(UniqueIDObject::objectIndexForId(list[i]->uniqueId(), list), static_cast<int>(i));
    }
}

// Only the text "YES" is true; numbers read from texts and from both kinds of
// number, texts saturating at the 32-bit limits.
TEST(AbstractResource, ValueReadings) {
    auto r = AbstractResource::resource();
    struct Case {
        PlistValue stored;
        bool asBool;
        int asInt;
        double asDouble;
    };
    const Case cases[] = {
        {PlistValue("YES"), true, 0, 0},
        {PlistValue("yes"), false, 0, 0},
        {PlistValue::boolean(true), false, 1, 1},
        {PlistValue::integer(1), false, 1, 1},
        {PlistValue("42"), false, 42, 42},
        {PlistValue(" -7 apples"), false, -7, -7},
        {PlistValue("abc"), false, 0, 0},
        {PlistValue::real(3.9), false, 3, 3.9},
        {PlistValue::integer(-12), false, -12, -12},
        {PlistValue("99999999999"), false, 2147483647, 99999999999.0},
        {PlistValue("2.5"), false, 2, 2.5},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.stored.text());
        r->setObject(c.stored, "n");
        EXPECT_EQ(r->boolForKey("n"), c.asBool);
        EXPECT_EQ(r->intForKey("n"), c.asInt);
        EXPECT_DOUBLE_EQ(r->doubleForKey("n"), c.asDouble);
    }
    EXPECT_FALSE(r->boolForKey("absent"));
    EXPECT_EQ(r->intForKey("absent"), 0);
    EXPECT_EQ(r->floatForKey("absent"), 0.0f);

    // What the setters store: the kinds the files of other programs hold.
    r->setBool(false, "b");
    EXPECT_EQ(r->objectForKey("b"), PlistValue("NO"));
    r->setInt(-3, "i");
    EXPECT_EQ(r->objectForKey("i"), PlistValue::integer(-3));
    r->setUnsignedInt(4000000000u, "u");
    EXPECT_EQ(r->unsignedIntForKey("u"), 4000000000u);
    r->setUnsignedShort(65535, "s");
    EXPECT_EQ(r->objectForKey("s"), PlistValue::integer(-1));
    EXPECT_EQ(r->unsignedShortForKey("s"), 65535);
    r->setFloat(0.25f, "f");
    EXPECT_EQ(r->objectForKey("f")->kind(), PlistValue::Kind::Real);
    EXPECT_FLOAT_EQ(r->floatForKey("f"), 0.25f);
}

TEST(AbstractResource, MissingValuesAndKeysAreIgnored) {
    auto r = AbstractResource::resource();
    r->setString(std::string("kept"), "k");
    r->setObject(std::nullopt, "k");
    r->setString(std::nullopt, "k");
    EXPECT_EQ(r->stringForKey("k"), "kept");
    r->setObject(PlistValue("v"), std::nullopt);
    r->removeObjectForKey(std::nullopt);
    EXPECT_EQ(r->container().size(), 1u);
    EXPECT_FALSE(r->objectForKey(std::nullopt).has_value());
    r->removeObjectForKey("k");
    EXPECT_FALSE(r->objectForKey("k").has_value());
}

TEST(AbstractResource, PointsAndSizesAreBraceTexts) {
    auto r = AbstractResource::resource();
    r->setPoint({1.5, -2}, "p");
    EXPECT_EQ(r->stringForKey("p"), "{1.5, -2}");
    EXPECT_EQ(r->pointForKey("p"), (Point{1.5, -2}));
    r->setSize({640, 480}, "s");
    EXPECT_EQ(r->stringForKey("s"), "{640, 480}");
    EXPECT_EQ(r->sizeForKey("s"), (Size{640, 480}));
    r->setString(std::string("{3,4}"), "tight");
    EXPECT_EQ(r->pointForKey("tight"), (Point{3, 4}));
    EXPECT_EQ(r->pointForKey("absent"), (Point{0, 0}));
}

TEST(AbstractResource, IdentifierTravelsWithTheDictionary) {
    auto r = std::make_shared<Bookmark>();
    r->setUniqueId(7);
    EXPECT_EQ(r->objectForKey(AbstractResource::kUniqueIdKey), PlistValue::integer(7));
    r->setSelected(true);
    r->setNeedsSave(true);
    auto copy = r->copyAs<Bookmark>();
    ASSERT_NE(copy, nullptr);  // a copy keeps the class
    EXPECT_EQ(copy->uniqueId(), 7u);
    EXPECT_FALSE(copy->selected());
    EXPECT_FALSE(copy->needsSave());
    copy->setHost(std::string("other"));
    EXPECT_FALSE(r->host().has_value());  // deep, independent copy
    EXPECT_EQ(AbstractResource::resource()->uniqueId(), 0u);
}

TEST(AbstractResource, ArchivesKeepEveryKind) {
    auto r = AbstractResource::resource();
    r->setObject(PlistValue::integer(5), "int");
    r->setObject(PlistValue::real(5.0), "real");
    r->setObject(PlistValue(PlistDate{12345}), "date");
    r->setObject(PlistValue(PlistValue::Data{0, 9}), "data");
    r->setObject(PlistValue(PlistValue::Array{PlistValue("a"), PlistValue::boolean(true)}), "array");
    r->setObject(PlistValue(PlistValue::Dictionary{{"x", PlistValue::integer(1)}}), "dict");
    auto back = AbstractResource::resourceFromData(r->archivedResource());
    EXPECT_EQ(back->container(), r->container());

    const std::string garbage = "not an archive";
    EXPECT_FALSE(back->setResourceFromArchive(asBytes(garbage)));
    EXPECT_EQ(back->container(), r->container());
    auto empty = AbstractResource::resourceFromData(asBytes(garbage));
    ASSERT_NE(empty, nullptr);
    EXPECT_TRUE(empty->container().empty());
}

TEST(AbstractResource, FileTypeIsRecordedAndAppendedOnlyWhenMissing) {
    ScopedHome home;
    auto named = AbstractResource::resource();
    named->setFilePath("/a/b.qlnbk");
    named->setFilePath("/a/noext");  // keeps the type it had
    named->setName(std::string("Name"));
    EXPECT_EQ(named->fileName(), "Name.qlnbk");

    struct Case {
        std::string path;
        std::string written;
    };
    const Case cases[] = {{home.file("b"), home.file("b.prf")}, {home.file("c.prf"), home.file("c.prf")}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        auto r = AbstractResource::resource();
        r->setFileType("prf");
        r->setFilePath(c.path);
        r->setNeedsSave(true);
        EXPECT_TRUE(r->saveToFile());
        EXPECT_TRUE(std::filesystem::exists(c.written));
        EXPECT_EQ(r->filePath(), c.path);
        EXPECT_FALSE(r->needsSave());
    }
    // The flag is cleared even when the write fails.
    auto r = AbstractResource::resource();
    r->setFilePath(home.file("missing/folder/x.prf"));
    r->setNeedsSave(true);
    EXPECT_FALSE(r->saveToFile());
    EXPECT_FALSE(r->needsSave());
}

TEST(AbstractResource, LoadReplacesOrLeavesTheDictionary) {
    ScopedHome home;
    auto saved = std::make_shared<Bookmark>();
    saved->removeObjectForKey("separator");
    saved->setHost(std::string("h"));
    std::string good = home.file("good.plist");
    ASSERT_TRUE(PlistCodec::writeXmlFile(good, PlistValue(saved->container())));

    auto fresh = std::make_shared<Bookmark>();
    fresh->setFilePath(good);
    fresh->setNeedsSave(true);
    ASSERT_TRUE(fresh->loadFromFile());
    EXPECT_FALSE(fresh->needsSave());
    EXPECT_FALSE(fresh->separator().has_value());  // init's default is gone
    EXPECT_EQ(fresh->host(), "h");

    test::writeText(home.file("corrupt.plist"), "<?xml version=\"1.0\"?><plist><dict><key>host</key><str");
    ASSERT_TRUE(PlistCodec::writeXmlFile(home.file("array.plist"), PlistValue(PlistValue::Array{})));
    for (const char* name : {"corrupt.plist", "array.plist", "missing.plist"}) {
        SCOPED_TRACE(name);
        auto r = std::make_shared<Bookmark>();
        r->setGenre(std::string("Jazz"));
        auto before = r->container();
        r->setFilePath(home.file(name));
        EXPECT_FALSE(r->loadFromFile());
        before[AbstractResource::kFileTypeKey] = PlistValue("plist");
        EXPECT_EQ(r->container(), before);
        EXPECT_EQ(AbstractResource::resourceFromPath<Bookmark>(home.file(name)), nullptr);
    }
    EXPECT_EQ(test::readText(home.file("corrupt.plist")),
              "<?xml version=\"1.0\"?><plist><dict><key>host</key><str");
}

TEST(AbstractResource, RenameMovesTheFileOnce) {
    ScopedHome home;
    auto r = AbstractResource::resource();
    r->setFilePath(home.file("Old.qlnbk"));
    EXPECT_TRUE(r->renameFile("Old"));  // same path: nothing to do, not even a file
    ASSERT_TRUE(r->saveToFile(home.file("Old.qlnbk")));
    EXPECT_TRUE(r->renameFile("New"));
    EXPECT_EQ(r->filePath(), home.file("New.qlnbk"));
    EXPECT_TRUE(std::filesystem::exists(home.file("New.qlnbk")));
    EXPECT_FALSE(std::filesystem::exists(home.file("Old.qlnbk")));

    // An existing target is not replaced, yet the path is recorded.
    ASSERT_TRUE(PlistCodec::writeXmlFile(home.file("Taken.qlnbk"), PlistValue(PlistValue::Dictionary{})));
    EXPECT_FALSE(r->renameFile("Taken"));
    EXPECT_EQ(r->filePath(), home.file("Taken.qlnbk"));
    EXPECT_TRUE(std::filesystem::exists(home.file("New.qlnbk")));
}

TEST(AbstractResource, ListsMergeOverDefaults) {
    ScopedHome home;
    EXPECT_TRUE(AbstractResource::loadResourcesFromPlist<Bookmark>(home.file("missing.plist")).empty());

    std::vector<std::shared_ptr<Bookmark>> list;
    for (const char* host : {"one", "two", "three"}) {
        auto b = std::make_shared<Bookmark>();
        b->setHost(std::string(host));
        b->removeObjectForKey("separator");
        list.push_back(b);
    }
    list[1]->setSeparator(std::string(" / "));
    std::string file = home.file("list.plist");
    ASSERT_TRUE(AbstractResource::saveResourcesArray(list, file));
    auto back = AbstractResource::loadResourcesFromPlist<Bookmark>(file);
    ASSERT_EQ(back.size(), 3u);
    EXPECT_EQ(back[0]->host(), "one");
    EXPECT_EQ(back[2]->host(), "three");
    // Defaults of a new bookmark stay where the file has nothing, file values win.
    EXPECT_EQ(back[0]->separator(), " - ");
    EXPECT_EQ(back[1]->separator(), " / ");
}

TEST(AbstractResource, DescriptionIsStringsFileForm) {
    auto r = AbstractResource::resource();
    r->setString(std::string("say \"hi\""), "b");
    r->setInt(3, "a");
    EXPECT_EQ(r->description(), "\"a\" = \"3\";\n\"b\" = \"say \\\"hi\\\"\";\n");
}

}  // namespace
}  // namespace quillon
