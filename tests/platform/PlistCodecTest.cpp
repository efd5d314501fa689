// Property-list values through both formats, and what corrupt input does.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <random>

#include "platform/PlistCodec.h"
#include "support/Files.h"

namespace quillon {

// Readable failure messages.
void PrintTo(const PlistValue& value, std::ostream* os) { *os << value.text(); }

namespace {

using Kind = PlistValue::Kind;

PlistValue sampleDictionary() {
    PlistValue::Dictionary inner;
    inner["deep"] = PlistValue(PlistValue::Array{PlistValue::integer(-1), PlistValue("x")});
    PlistValue::Dictionary d;
    d["string"] = PlistValue("Jazz & <Blues> \"live\" \xC3\xA9");
    d["empty"] = PlistValue("");
    d["int"] = PlistValue::integer(42);
    d["negative"] = PlistValue::integer(-5);
    d["big"] = PlistValue::integer(4294967295LL);
    d["int64max"] = PlistValue::integer(INT64_MAX);
    d["int64min"] = PlistValue::integer(INT64_MIN);
    d["real"] = PlistValue::real(0.1);
    d["wholeReal"] = PlistValue::real(3.0);
    d["yes"] = PlistValue::boolean(true);
    d["no"] = PlistValue::boolean(false);
    d["date"] = PlistValue(PlistDate{86400.0 * 365});
    d["beforeEpoch"] = PlistValue(PlistDate{-3600.0});
    d["data"] = PlistValue(PlistValue::Data{0, 1, 2, 0xFF, 0});
    d["noData"] = PlistValue(PlistValue::Data{});
    d["array"] = PlistValue(PlistValue::Array{});
    d["dict"] = PlistValue(std::move(inner));
    return PlistValue(std::move(d));
}

TEST(PlistCodec, EveryKindSurvivesBothFormats) {
    PlistValue original = sampleDictionary();
    for (bool binary : {false, true}) {
        SCOPED_TRACE(binary ? "binary" : "xml");
        Bytes bytes = binary ? PlistCodec::encodeBinary(original) : PlistCodec::encodeXml(original);
        ASSERT_FALSE(bytes.empty());
        auto back = PlistCodec::decode(bytes);
        ASSERT_TRUE(back.has_value());
        EXPECT_EQ(*back, original);
        // Kinds, not just values: 3.0 stays a real, 42 an integer.
        EXPECT_EQ(back->find("wholeReal")->kind(), Kind::Real);
        EXPECT_EQ(back->find("int")->kind(), Kind::Integer);
        EXPECT_EQ(back->find("yes")->kind(), Kind::Boolean);
        EXPECT_EQ(back->find("date")->kind(), Kind::Date);
        EXPECT_EQ(back->find("data")->kind(), Kind::Data);
    }
    // Equal values of other kinds are different values.
    EXPECT_FALSE(PlistValue::integer(1) == PlistValue::real(1.0));
    EXPECT_FALSE(PlistValue::boolean(true) == PlistValue::integer(1));
    EXPECT_FALSE(PlistValue("1") == PlistValue::integer(1));
}

TEST(PlistCodec, ScalarRootsAndFractionalDatesInBinary) {
    const PlistValue roots[] = {PlistValue("only"),          PlistValue::integer(-7),
                                PlistValue::real(-2.5e300),  PlistValue::boolean(false),
                                PlistValue(PlistDate{1.25}), PlistValue(PlistDate{-99.5})};
    for (const PlistValue& v : roots) {
        SCOPED_TRACE(v.text());
        auto back = PlistCodec::decode(PlistCodec::encodeBinary(v));
        ASSERT_TRUE(back.has_value());
        EXPECT_EQ(*back, v);
    }
}

// Archives keep dates to about a microsecond, whatever the double looks like.
TEST(PlistCodec, BinaryDatesKeepTheirMicroseconds) {
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> seconds(-1.5e9, 1.5e9);
    std::vector<PlistDate> dates = {PlistDate::now(), PlistDate{-3600.000004}, PlistDate{0.000001}};
    for (int i = 0; i < 2000; ++i) dates.push_back(PlistDate{std::round(seconds(random) * 1e6) / 1e6});
    for (const PlistDate& date : dates) {
        auto back = PlistCodec::decode(PlistCodec::encodeBinary(PlistValue(date)));
        ASSERT_TRUE(back && back->isDate());
        EXPECT_EQ(*back->asDate(), date)
            << std::fixed << date.secondsSince2001 << " came back as " << back->asDate()->secondsSince2001;
    }
}

TEST(PlistCodec, XmlIsTheVersionOnePropertyListFormat) {
    Bytes xml = PlistCodec::encodeXml(sampleDictionary());
    std::string text(xml.begin(), xml.end());
    EXPECT_NE(text.find("<plist version=\"1.0\">"), std::string::npos);
    EXPECT_NE(text.find("<integer>-5</integer>"), std::string::npos);
    EXPECT_NE(text.find("&lt;Blues&gt;"), std::string::npos);
}

// Every cut of a valid encoding that removes part of the root element fails
// cleanly: no crash, no partial value.
TEST(PlistCodec, TruncatedInputFailsCleanly) {
    PlistValue original = sampleDictionary();
    for (bool binary : {false, true}) {
        SCOPED_TRACE(binary ? "binary" : "xml");
        Bytes bytes = binary ? PlistCodec::encodeBinary(original) : PlistCodec::encodeXml(original);
        std::size_t end = bytes.size();
        if (!binary) {
            std::string text(bytes.begin(), bytes.end());
            end = text.rfind("</dict>");  // cuts inside the root dictionary
        }
        for (std::size_t n = 0; n < end; ++n) {
            auto decoded = PlistCodec::decode(std::span(bytes.data(), n));
            EXPECT_FALSE(decoded.has_value()) << "cut at " << n;
        }
    }
}

// Random damage must never crash; whatever still decodes is a proper value
// that survives our own round trip (after one pass, which settles dates to
// whole microseconds).
TEST(PlistCodec, DamagedInputNeverCrashes) {
    std::mt19937 random(20240501);
    int decodedCount = 0;
    for (bool binary : {false, true}) {
        Bytes good =
            binary ? PlistCodec::encodeBinary(sampleDictionary()) : PlistCodec::encodeXml(sampleDictionary());
        for (int round = 0; round < 400; ++round) {
            Bytes bad = good;
            int flips = 1 + static_cast<int>(random() % 4);
            for (int i = 0; i < flips; ++i) bad[random() % bad.size()] = static_cast<std::uint8_t>(random());
            auto decoded = PlistCodec::decode(bad);
            if (!decoded) continue;
            ++decodedCount;
            auto once = PlistCodec::decode(PlistCodec::encodeBinary(*decoded));
            ASSERT_TRUE(once.has_value());
            auto twice = PlistCodec::decode(PlistCodec::encodeBinary(*once));
            ASSERT_TRUE(twice.has_value());
            EXPECT_EQ(*twice, *once);
        }
    }
    // Some damage hits only values; those lists must still decode.
    EXPECT_GT(decodedCount, 0);
    const std::string garbage[] = {"",
                                   "bplist00",
                                   "bplist00\xff\xff\xff\xff",
                                   "<plist>",
                                   "<plist><dict><key>a",
                                   "<plist version=\"1.0\"><integer>12x</integer></plist>",
                                   "hello"};
    for (const std::string& g : garbage) {
        auto decoded =
            PlistCodec::decode(std::span(reinterpret_cast<const std::uint8_t*>(g.data()), g.size()));
        EXPECT_FALSE(decoded.has_value() && decoded->isDictionary()) << g;
    }
}

// A binary list of the given objects (each already encoded, references two
// bytes wide), with object 0 as the root.
Bytes binaryList(const std::vector<Bytes>& objects) {
    Bytes out = {'b', 'p', 'l', 'i', 's', 't', '0', '0'};
    std::vector<std::uint32_t> offsets;
    for (const Bytes& o : objects) {
        offsets.push_back(static_cast<std::uint32_t>(out.size()));
        out.insert(out.end(), o.begin(), o.end());
    }
    auto put = [&out](std::uint64_t v, int n) {
        for (int i = n - 1; i >= 0; --i) out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
    };
    std::uint64_t table = out.size();
    for (std::uint32_t o : offsets) put(o, 4);
    out.insert(out.end(), 6, 0);
    out.push_back(4);  // offset size
    out.push_back(2);  // reference size
    put(objects.size(), 8);
    put(0, 8);
    put(table, 8);
    return out;
}

Bytes arrayOf(std::initializer_list<std::uint16_t> refs) {
    Bytes o = {static_cast<std::uint8_t>(0xA0 | refs.size())};
    for (std::uint16_t r : refs) {
        o.push_back(static_cast<std::uint8_t>(r >> 8));
        o.push_back(static_cast<std::uint8_t>(r));
    }
    return o;
}

// Deep nesting, self-reference and shared objects that would expand without
// bound are refused before they reach the parser (which would overflow its
// stack or run out of memory on them).
TEST(PlistCodec, HostileStructuresAreRefused) {
    PlistValue deep = PlistValue::integer(1);
    for (int i = 0; i < PlistCodec::kMaxDepth + 5; ++i) deep = PlistValue(PlistValue::Array{deep});
    EXPECT_TRUE(PlistCodec::encodeXml(deep).empty());

    std::string xml = "<plist version=\"1.0\">";
    for (int i = 0; i < 100000; ++i) xml += "<array>";
    for (int i = 0; i < 100000; ++i) xml += "</array>";
    xml += "</plist>";
    EXPECT_FALSE(PlistCodec::decode(asBytes(xml)).has_value());

    const Bytes leaf = {0x10, 5};  // the integer 5
    auto chain = [&](int length, int refsEach) {
        std::vector<Bytes> objects;
        for (int i = 0; i < length; ++i) {
            auto next = static_cast<std::uint16_t>(i + 1);
            objects.push_back(refsEach == 1 ? arrayOf({next}) : arrayOf({next, next}));
        }
        objects.push_back(leaf);
        return binaryList(objects);
    };
    auto shallow = PlistCodec::decode(chain(10, 1));
    ASSERT_TRUE(shallow.has_value());  // the builder itself is sound
    EXPECT_TRUE(shallow->isArray());
    EXPECT_TRUE(PlistCodec::decode(chain(10, 2)).has_value());  // 2^10 leaves: fine
    EXPECT_FALSE(PlistCodec::decode(chain(PlistCodec::kMaxDepth + 1, 1)).has_value());
    EXPECT_FALSE(PlistCodec::decode(chain(65000, 1)).has_value());
    EXPECT_FALSE(PlistCodec::decode(chain(60, 2)).has_value());                              // 2^60 leaves
    EXPECT_FALSE(PlistCodec::decode(binaryList({arrayOf({0})})).has_value());                // itself
    EXPECT_FALSE(PlistCodec::decode(binaryList({arrayOf({1}), arrayOf({0})})).has_value());  // a loop
    EXPECT_FALSE(PlistCodec::decode(binaryList({arrayOf({7})})).has_value());                // no object 7
    EXPECT_FALSE(PlistCodec::decode(binaryList({{0x53, 'a', 0, 'b'}})).has_value());  // NUL in a string
    // libplist asserts on a dictionary key whose UTF-16 text holds a NUL unit.
    EXPECT_FALSE(
        PlistCodec::decode(binaryList({{0xD1, 0, 1, 0, 2}, {0x62, 0, 'a', 0, 0}, {0x10, 5}})).has_value());
}

TEST(PlistFiles, RootKindDecidesWhatAFileReadsAsAndFailedWritesLeaveNothing) {
    const std::string folder = test::testFolder("plist");
    const std::string dict = folder + "/dict.plist", array = folder + "/array.plist";
    ASSERT_TRUE(PlistCodec::writeXmlFile(dict, sampleDictionary()));
    ASSERT_TRUE(PlistCodec::writeXmlFile(array, PlistValue(PlistValue::Array{PlistValue("a")})));
    EXPECT_TRUE(PlistCodec::readDictionaryFile(dict).has_value());
    EXPECT_FALSE(PlistCodec::readArrayFile(dict).has_value());
    EXPECT_TRUE(PlistCodec::readArrayFile(array).has_value());
    EXPECT_FALSE(PlistCodec::readDictionaryFile(array).has_value());
    EXPECT_FALSE(PlistCodec::readDictionaryFile(folder + "/missing.plist").has_value());

    const std::string target = folder + "/no-such-folder/x.plist";
    EXPECT_FALSE(PlistCodec::writeXmlFile(target, sampleDictionary()));
    EXPECT_FALSE(std::filesystem::exists(folder + "/no-such-folder"));
}

}  // namespace
}  // namespace quillon
