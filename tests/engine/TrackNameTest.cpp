#include <gtest/gtest.h>

#include <string>

#include "engine/TrackName.h"
#include "platform/FileHandle.h"
#include "platform/Home.h"
#include "platform/TextUtil.h"

using namespace quillon;

namespace {

std::string repeat(std::string_view piece, int times) {
    std::string out;
    for (int i = 0; i < times; ++i) out += piece;
    return out;
}

}  // namespace

TEST(TrackName, FileNamesAreSafeAndFit) {
    const std::string fallback = "Radio One-(15-11-2026@18 03)";
    struct Case {
        const char* label;
        std::string name;
        std::string file;
    };
    const Case cases[] = {
        {"plain", "Artist - Song", "Artist - Song.mp3"},
        {"empty", "", fallback + ".mp3"},
        {"blanks only", "   ", fallback + ".mp3"},
        {"dot", ".", fallback + ".mp3"},
        {"dot dot", "..", fallback + ".mp3"},
        {"blanks and dots", " . .. ", fallback + ".mp3"},
        {"leading dash stays", "-rf", "-rf.mp3"},
        {"nul bytes go", std::string("a\0b", 3), "ab.mp3"},
        {"only nul bytes", std::string(2, '\0'), fallback + ".mp3"},
        {"slash that escaped the filter", "../x", ".._x.mp3"},
        {"long ascii", std::string(300, 'a'), std::string(251, 'a') + ".mp3"},
        // 2-byte characters: 125 whole ones fit in 251 bytes.
        {"long utf-8", repeat("\xc3\xa9", 200), repeat("\xc3\xa9", 125) + ".mp3"},
        {"exactly fitting", std::string(251, 'b'), std::string(251, 'b') + ".mp3"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        std::string file = fileNameForTrack(c.name, fallback);
        EXPECT_EQ(file, c.file);
        EXPECT_LE(file.size(), kMaxFileNameBytes);
        EXPECT_TRUE(isValidUtf8(file));
    }
}

TEST(TrackName, FallbackAndExtensionRules) {
    EXPECT_EQ(fileNameForTrack("", ""), "untitled.mp3");
    EXPECT_EQ(fileNameForTrack("..", std::string(1, '\0')), "untitled.mp3");
    EXPECT_EQ(fileNameForTrack("", std::string(400, 'g')), std::string(251, 'g') + ".mp3");
    EXPECT_EQ(fileNameForTrack("Song", "x", ".ogg"), "Song.ogg");
    EXPECT_EQ(fileNameForTrack(std::string(260, 'z'), "x", ""), std::string(255, 'z'));
    // Shortening that leaves only blanks is no name either.
    EXPECT_EQ(fileNameForTrack(std::string(251, ' ') + "tail", "fb"), "fb.mp3");
}

TEST(TrackName, FolderNames) {
    struct Case {
        std::string name, folder;
    };
    const Case cases[] = {
        {"Rock", "Rock"},           {"", "fallback"},  {"..", "fallback"},
        {"AC/DC", "AC_DC"},         {" ", "fallback"}, {std::string(300, 'f'), std::string(255, 'f')},
        {"...Hidden", "...Hidden"},
    };
    for (const Case& c : cases) EXPECT_EQ(safeFolderName(c.name, "fallback"), c.folder) << c.name;
}

TEST(TrackName, TheLongestNamesAreAcceptedByTheFileSystem) {
    const std::string folder = homePath("names");
    ASSERT_TRUE(makeFolders(folder));
    for (const std::string& title :
         {std::string(400, 'q'), repeat("\xe2\x82\xac", 120), repeat("\xf0\x9f\x8e\xb5", 90)}) {
        std::string path = joinPath(folder, fileNameForTrack(title, "fallback"));
        FileHandle file = FileHandle::createForWriting(path);
        EXPECT_TRUE(file.isOpen()) << path.size();
        std::string sub = joinPath(folder, safeFolderName(title, "fallback"));
        EXPECT_TRUE(makeFolders(sub));
    }
}
