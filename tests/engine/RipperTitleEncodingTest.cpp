// Titles in the encodings stations still send: each is converted once, where
// it is read, so the file names and the tags (as TagLib reads them) carry the
// same UTF-8; a bookmark's own choice overrides detection.
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>

#include "RipperTestSupport.h"

namespace quillon::test {
namespace {

class RipperTitleEncodingTest : public RipperFixture {};

TEST_F(RipperTitleEncodingTest, FileNamesAndTagsCarryTheTitlesAsUtf8) {
    struct Case {
        const char* what;
        std::string stationEncoding;  // how the titles are sent ("": UTF-8)
        std::string bookmarkChoice;   // "auto" or a chosen encoding
        std::vector<std::string> titles;
        std::vector<std::pair<std::string, std::string>> artistAndTitle;  // as recorded
    };
    const std::vector<Case> cases = {
        {"Cyrillic in cp1251",
         "CP1251",
         "auto",
         {"Кино - Группа крови", "Ленинград - WWW", "ДДТ - Что такое осень"},
         {{"Кино", "Группа крови"}, {"Ленинград", "WWW"}, {"ДДТ", "Что такое осень"}}},
        {"Western in cp1252",
         "CP1252",
         "auto",
         {"Beyoncé - Halo “live”", "Café del Mar - 5€", "Sigur Rós - Hoppípolla"},
         {{"Beyoncé", "Halo “live”"}, {"Café del Mar", "5€"}, {"Sigur Rós", "Hoppípolla"}}},
        {"Western in Latin-1",
         "ISO-8859-1",
         "auto",
         {"Björk - Jóga", "Édith Piaf - Non, je ne regrette rien", "Mañana - Señor"},
         {{"Björk", "Jóga"}, {"Édith Piaf", "Non, je ne regrette rien"}, {"Mañana", "Señor"}}},
        {"UTF-8 stays UTF-8",
         "",
         "auto",
         {"Кино - Звезда", "Björk - Army of Me", "日本 - 歌"},
         {{"Кино", "Звезда"}, {"Björk", "Army of Me"}, {"日本", "歌"}}},
        {"the bookmark's choice wins",
         "CP1251",
         "CP1252",
         {"Кино - Группа", "ДДТ - Осень", "Би - Два"},
         {{"Êèíî", "Ãðóïïà"}, {"ÄÄÒ", "Îñåíü"}, {"Áè", "Äâà"}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::filesystem::remove_all(folder_);
        StationOptions options = counterStation();
        options.titles = c.titles;
        options.titleEncoding = c.stationEncoding;
        options.titleEvery = 100000;
        options.closeAfter = 290000;
        Station station(options);
        station.start();
        auto bookmark = bookmarkFor(station.port());
        bookmark->setTitleEncoding(c.bookmarkChoice);
        RecordingOwner owner(folder_);
        {
            Ripper ripper(owner, *bookmark, false, false);
            ASSERT_TRUE(runUntil([&] { return ripper.stoppedForGood(); }));
        }
        station.stop();
        std::vector<std::string> expected;
        for (const auto& [artist, title] : c.artistAndTitle)
            expected.push_back(artist + " - " + title + ".mp3");
        std::sort(expected.begin(), expected.end());
        ASSERT_EQ(filesUnder(folder_), expected);
        for (const auto& [artist, title] : c.artistAndTitle) {
            const std::string path = joinPath(folder_, artist + " - " + title + ".mp3");
            TagLib::MPEG::File file(path.c_str());
            TagLib::ID3v2::Tag* tag = file.ID3v2Tag();
            ASSERT_NE(tag, nullptr) << path;
            EXPECT_EQ(tag->artist().to8Bit(true), artist);
            EXPECT_EQ(tag->title().to8Bit(true), title);
        }
    }
}

}  // namespace
}  // namespace quillon::test
