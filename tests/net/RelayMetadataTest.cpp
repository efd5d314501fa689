// The bytes a relay makes on its own: the ICY metadata block for a title and the
// playlist file that points a player at the relay.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "net/BroadcastController.h"
#include "net/RelayPlaylist.h"
#include "platform/Home.h"
#include "support/Files.h"

namespace quillon {
namespace {

std::string textOf(const Bytes& block) { return std::string(block.begin() + 1, block.end()); }

TEST(RelayMetadata, BlockLengthAndPaddingFollowTheTextLength) {
    struct Case {
        std::string title;
        int units;  // the length byte
    };
    // The text adds 28 characters to the title: "StreamTitle='" and "';StreamUrl='';".
    const Case cases[] = {
        {"", 2},                    // 28 characters
        {"abc", 2},                 // 31
        {"abcd", 3},                // 32: a whole number of units still gets one more (48 bytes)
        {std::string(32, 'x'), 4},  // 60
        {std::string(36, 'x'), 5},  // 64
        {std::string(20, 'x'), 4},  // 48
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.title);
        Bytes block = BroadcastController::metadataBlock(c.title);
        ASSERT_EQ(block[0], c.units);
        ASSERT_EQ(block.size(), 1u + 16u * c.units);
        std::string text = "StreamTitle='" + c.title + "';StreamUrl='';";
        EXPECT_EQ(textOf(block).substr(0, text.size()), text);
        EXPECT_EQ(textOf(block).find_first_not_of('\0', text.size()), std::string::npos);
        EXPECT_GT(block.size() - 1, text.size());
    }
}

TEST(RelayMetadata, TitlesAreSentAsUtf8CutAtACharacter) {
    struct Case {
        std::string title;
        std::string bytes;
    };
    const std::string cyrillic = "\xD0\x9A\xD0\xB8\xD0\xBD\xD0\xBE";  // four letters, eight bytes
    std::string longest;  // as many two-byte letters as fit, and a half one cut off
    while (longest.size() < 255 * 16) longest += "\xD0\xAF";
    const std::size_t room = 255 * 16 - 1 - std::string("StreamTitle='';StreamUrl='';").size();
    const Case cases[] = {
        {"Caf\xC3\xA9 - D\xC3\xBC", "Caf\xC3\xA9 - D\xC3\xBC"},
        {"\xE2\x82\xAC 5", "\xE2\x82\xAC 5"},
        {cyrillic + " - " + cyrillic, cyrillic + " - " + cyrillic},
        {longest, longest.substr(0, room / 2 * 2)},
    };
    for (const auto& c : cases) {
        Bytes block = BroadcastController::metadataBlock(c.title);
        std::string text = "StreamTitle='" + c.bytes + "';StreamUrl='';";
        EXPECT_EQ(textOf(block).substr(0, text.size()), text);
        EXPECT_EQ(block[0], text.size() / 16 + 1);
    }
}

TEST(RelayMetadata, OverlongTitleIsCutToWhatTheLengthByteCanCount) {
    Bytes block = BroadcastController::metadataBlock(std::string(5000, 'y'));
    EXPECT_EQ(block[0], 255);
    ASSERT_EQ(block.size(), 1u + 255u * 16u);
    std::string text = textOf(block);
    // Still a complete title field, followed by at least one zero byte.
    EXPECT_EQ(text.substr(text.find('\0') - 15, 15), "';StreamUrl='';");
    EXPECT_EQ(text.back(), '\0');
}

TEST(RelayPlaylistFile, WrittenWholeWithOrWithoutTitle) {
    const std::string path = homePath("restream.pls");
    RelayPlaylist::setPath(path);
    struct Case {
        std::optional<std::string> title;
        std::string expected;
    };
    const Case cases[] = {
        {"Jazz FM", "[playlist]\nNumberOfEntries=1\nFile1=http://localhost:9001\nTitle1=Jazz FM"},
        {std::nullopt, "[playlist]\nNumberOfEntries=1\nFile1=http://localhost:9001"},
    };
    for (const auto& c : cases) {
        ASSERT_TRUE(RelayPlaylist::write(9001, c.title));
        // The shorter form must not keep the tail of the longer one.
        EXPECT_EQ(test::readText(path), c.expected);
    }
    RelayPlaylist::setPath("");
    EXPECT_EQ(RelayPlaylist::path(), "/tmp/kv.qln.restream.pls");
}

}  // namespace
}  // namespace quillon
