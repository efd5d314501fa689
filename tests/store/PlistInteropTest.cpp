// Our property-list files read by an independent reader (python3's plistlib),
// and its files read by us: values and kinds must agree both ways.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <sstream>

#include "StoreTestSupport.h"
#include "platform/PlistCodec.h"
#include "store/Bookmark.h"
#include "store/Preferences.h"
#include "support/Process.h"

namespace quillon {
namespace {

using test::ScopedHome;

const char* kPython = "/usr/bin/python3";

// Prints one "key<TAB>type<TAB>value" line per top-level entry.
const char* kDumpScript = R"(
import plistlib, sys
with open(sys.argv[1], 'rb') as f:
    d = plistlib.load(f)
for k in sorted(d):
    v = d[k]
    if isinstance(v, list):
        text = '|'.join(str(x) for x in v)
    else:
        text = str(v)
    print(k + '\t' + type(v).__name__ + '\t' + text)
)";

std::map<std::string, std::pair<std::string, std::string>> dumpWithPython(const std::string& file) {
    auto result = test::runProcess({kPython, "-c", kDumpScript, file});
    EXPECT_EQ(result.status, 0) << result.err;
    std::map<std::string, std::pair<std::string, std::string>> entries;
    std::istringstream lines(result.out);
    std::string line;
    while (std::getline(lines, line)) {
        auto a = line.find('\t');
        auto b = line.find('\t', a + 1);
        if (a == std::string::npos || b == std::string::npos) continue;
        entries[line.substr(0, a)] = {line.substr(a + 1, b - a - 1), line.substr(b + 1)};
    }
    return entries;
}

class PlistInterop : public ::testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(kPython)) GTEST_SKIP() << "python3 is not installed";
    }
    ScopedHome home_;
};

TEST_F(PlistInterop, PythonReadsOurBookmarkAndPreferencesFiles) {
    using Entry = std::pair<std::string, std::string>;
    Bookmark b;
    b.setName(std::string("My Radio"));
    b.setPort(std::string("8000"));
    b.setTrackNum(true);
    b.setRecOffset(3);
    b.setUniqueId(12);
    b.setGenre(std::string("Blues/R&B <live>"));
    ASSERT_TRUE(b.saveToFile(home_.path()));
    auto entries = dumpWithPython(home_.file("My Radio.qlnbk"));
    EXPECT_EQ(entries["name"], (Entry{"str", "My Radio"}));
    EXPECT_EQ(entries["port"], (Entry{"str", "8000"}));
    EXPECT_EQ(entries["trackNum"], (Entry{"str", "YES"}));
    EXPECT_EQ(entries["recOffset"], (Entry{"str", "3"}));
    EXPECT_EQ(entries["genre"], (Entry{"str", "Blues/R&B <live>"}));
    EXPECT_EQ(entries["separator"], (Entry{"str", " - "}));
    EXPECT_EQ(entries["_AbstractResourceUniqueID"], (Entry{"int", "12"}));
    EXPECT_EQ(entries.size(), b.container().size());

    auto prefs = Preferences::preferences();
    prefs->setState(false, "skip");
    prefs->setParam(std::string("9100"), "relayPort");
    ASSERT_TRUE(prefs->saveToFile());
    entries = dumpWithPython(home_.file(Preferences::kRelativePath));
    EXPECT_EQ(entries["skip"], (Entry{"str", "NO"}));
    EXPECT_EQ(entries["relayPort"], (Entry{"str", "9100"}));
    EXPECT_EQ(entries["AbstractResourceFileType"], (Entry{"str", "prf"}));
    ASSERT_EQ(entries["_genres"].first, "list");
    EXPECT_EQ(entries["_genres"].second.substr(0, 22), "Acid Jazz|Alternative|");
}

TEST_F(PlistInterop, WeReadWhatPythonWrites) {
    const char* script = R"(
import plistlib, sys, datetime
d = {'int': -42, 'big': 4000000000, 'real': 2.5, 'whole': 3.0, 'yes': True, 'text': 'Caf\u00e9 & <b>',
     'when': datetime.datetime(2008, 7, 5, 12, 30, 0), 'blob': b'\x00\x01\xff',
     'list': [1, 'two', [3.5]], 'nested': {'k': False}}
for name, fmt in (('x.plist', plistlib.FMT_XML), ('b.plist', plistlib.FMT_BINARY)):
    with open(sys.argv[1] + '/' + name, 'wb') as f:
        plistlib.dump(d, f, fmt=fmt)
)";
    auto result = test::runProcess({kPython, "-c", script, home_.path()});
    ASSERT_EQ(result.status, 0) << result.err;
    for (const char* name : {"x.plist", "b.plist"}) {
        SCOPED_TRACE(name);
        auto dict = PlistCodec::readDictionaryFile(home_.file(name));
        ASSERT_TRUE(dict.has_value());
        EXPECT_EQ(dict->at("int"), PlistValue::integer(-42));
        EXPECT_EQ(dict->at("big"), PlistValue::integer(4000000000LL));
        EXPECT_EQ(dict->at("real"), PlistValue::real(2.5));
        EXPECT_EQ(dict->at("whole"), PlistValue::real(3.0));
        EXPECT_EQ(dict->at("yes"), PlistValue::boolean(true));
        EXPECT_EQ(dict->at("text"), PlistValue("Caf\xC3\xA9 & <b>"));
        // 2008-07-05 12:30:00 UTC
        EXPECT_EQ(dict->at("when"), PlistValue(PlistDate::fromUnixTime(1215261000)));
        EXPECT_EQ(dict->at("blob"), PlistValue(PlistValue::Data{0, 1, 0xFF}));
        PlistValue::Array list{PlistValue::integer(1), PlistValue("two"),
                               PlistValue(PlistValue::Array{PlistValue::real(3.5)})};
        EXPECT_EQ(dict->at("list"), PlistValue(list));
        EXPECT_EQ(dict->at("nested"), PlistValue(PlistValue::Dictionary{{"k", PlistValue::boolean(false)}}));
    }
}

}  // namespace
}  // namespace quillon
