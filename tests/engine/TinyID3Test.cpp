#include <gtest/gtest.h>

#include <taglib/commentsframe.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>

#include <string>

#include "engine/TinyID3.h"
#include "platform/AtomicFile.h"
#include "platform/FileHandle.h"
#include "platform/Home.h"
#include "platform/Resources.h"
#include "platform/TextUtil.h"

using namespace quillon;

namespace {

std::string slot(const Bytes& tag, std::size_t offset) {
    return std::string(reinterpret_cast<const char*>(tag.data()) + offset, TinyID3::kSlotSize);
}

// The slot's text without its zero fill.
std::string slotText(const Bytes& tag, std::size_t offset) {
    std::string s = slot(tag, offset);
    return s.substr(0, s.find('\0'));
}

std::uint32_t syncsafe(std::string_view bytes, std::size_t at) {
    auto b = [&](std::size_t i) {
        return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at + i]));
    };
    return (b(0) << 21) | (b(1) << 14) | (b(2) << 7) | b(3);
}

struct TagRead {
    std::string artist, title, album, genre, comment;
};

// Writes the tag and a little audio to a new file, then reads it as a player would.
TagRead roundTrip(const TinyID3& writer, const std::string& trackName, const std::string& fileName) {
    std::string path = homePath(fileName);
    {
        FileHandle file = FileHandle::createForWriting(path);
        EXPECT_TRUE(file.isOpen());
        EXPECT_TRUE(writer.updateFile(file, trackName));
        Bytes frame(417, 0);
        frame[0] = 0xFF, frame[1] = 0xFB, frame[2] = 0x90, frame[3] = 0x64;
        for (int i = 0; i < 4; ++i) EXPECT_TRUE(file.writeAll(frame));
    }
    TagLib::MPEG::File file(path.c_str());
    TagLib::ID3v2::Tag* tag = file.ID3v2Tag();
    EXPECT_NE(tag, nullptr);
    if (!tag) return {};
    EXPECT_EQ(tag->header()->majorVersion(), 4u);
    return {tag->artist().to8Bit(true), tag->title().to8Bit(true), tag->album().to8Bit(true),
            tag->genre().to8Bit(true), tag->comment().to8Bit(true)};
}

}  // namespace

TEST(TinyID3Template, FramesSitAroundTheFiveSlots) {
    auto bytes = resource("extag.txt");
    ASSERT_TRUE(bytes.has_value());
    std::string_view t = *bytes;
    ASSERT_EQ(t.size(), 714u);
    EXPECT_EQ(t.substr(0, 5), std::string_view("ID3\x04\x00", 5));
    EXPECT_EQ(syncsafe(t, 6), 714u - 10u);
    struct Frame {
        const char* id;
        std::size_t slot;
    };
    const Frame frames[] = {{"TIT2", TinyID3::kTrackNameOffset},
                            {"TPE1", TinyID3::kArtistOffset},
                            {"TALB", TinyID3::kAlbumOffset},
                            {"TCON", TinyID3::kStyleOffset}};
    for (const Frame& f : frames) {
        SCOPED_TRACE(f.id);
        std::size_t header = f.slot - 11;
        EXPECT_EQ(t.substr(header, 4), f.id);
        EXPECT_EQ(syncsafe(t, header + 4), 1u + TinyID3::kSlotSize + 1u);
        EXPECT_EQ(t[f.slot - 1], '\x03');  // UTF-8
        EXPECT_EQ(t[f.slot + TinyID3::kSlotSize], '\0');
    }
    std::size_t comm = TinyID3::kCommentOffset - 15;
    EXPECT_EQ(t.substr(comm, 4), "COMM");
    EXPECT_EQ(syncsafe(t, comm + 4), 1u + 3u + 1u + TinyID3::kSlotSize + 1u);
    EXPECT_EQ(t.substr(comm + 10, 5), std::string_view("\x03"
                                                       "eng\0",
                                                       5));
    EXPECT_EQ(comm + 10 + 5 + TinyID3::kSlotSize + 1, t.size());
}

TEST(TinyID3Tag, SlotsAreCutAtCharactersOrZeroFilled) {
    const std::string longAscii(200, 'x');
    // 1 + 63 * 2 = 127 bytes fit; the 64th "é" would straddle the slot's end.
    std::string straddling = "a";
    for (int i = 0; i < 100; ++i) straddling += "\xc3\xa9";
    Bytes tag = TinyID3::createtagwithArtist("Art", longAscii, "", straddling, TinyID3::kComment);
    ASSERT_EQ(tag.size(), 714u);
    EXPECT_EQ(slot(tag, TinyID3::kTrackNameOffset), std::string(128, 'x'));
    EXPECT_EQ(slot(tag, TinyID3::kArtistOffset), "Art" + std::string(125, '\0'));
    EXPECT_EQ(slot(tag, TinyID3::kAlbumOffset), std::string(128, '\0'));
    EXPECT_EQ(slotText(tag, TinyID3::kStyleOffset), straddling.substr(0, 127));
    EXPECT_EQ(slot(tag, TinyID3::kStyleOffset)[127], '\0');
    EXPECT_EQ(slotText(tag, TinyID3::kCommentOffset), "Recorded by Quillon for Mac OS X");

    // Nothing outside the slots differs from the template.
    std::string_view original = *resource("extag.txt");
    const std::size_t slots[] = {TinyID3::kTrackNameOffset, TinyID3::kArtistOffset, TinyID3::kAlbumOffset,
                                 TinyID3::kStyleOffset, TinyID3::kCommentOffset};
    for (std::size_t i = 0; i < tag.size(); ++i) {
        bool inSlot = false;
        for (std::size_t s : slots) inSlot = inSlot || (i >= s && i < s + TinyID3::kSlotSize);
        if (!inSlot) {
            ASSERT_EQ(tag[i], static_cast<std::uint8_t>(original[i])) << "byte " << i;
        }
    }
}

TEST(TinyID3Tag, ArtistAndTitleFromTheTrackName) {
    struct Case {
        const char* separator;
        const char* trackName;
        const char* artist;
        const char* title;
    };
    const Case cases[] = {
        {" - ", "Artist - Song", "Artist", "Song"},
        {" - ", "No separator here", "", "No separator here"},
        {"", "Artist - Song", "", "Artist - Song"},
        {" - ", "A - B - C", "A", "B - C"},
        {" - ", "Artist - ", "Artist", "Artist - "},
        {" - ", "012 Artist - Song", "012 Artist", "Song"},
        {" / ", " / Song", "", "Song"},
    };
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.trackName);
        TinyID3 writer;
        writer.setSeparator(c.separator);
        writer.setGenre("Rock");
        TagRead read = roundTrip(writer, c.trackName, "split-" + std::to_string(n++) + ".mp3");
        EXPECT_EQ(read.artist, c.artist);
        EXPECT_EQ(read.title, c.title);
        EXPECT_EQ(read.album, "");
        EXPECT_EQ(read.genre, "Rock");
        EXPECT_EQ(read.comment, "Recorded by Quillon for Mac OS X");
    }
}

TEST(TinyID3Tag, PlayersReadNonAsciiAndCutTitles) {
    TinyID3 writer;
    writer.setSeparator(" - ");
    writer.setGenre("J-Pop \xe6\x97\xa5\xe6\x9c\xac");
    TagRead read = roundTrip(writer, "Bj\xc3\xb6rk - J\xc3\xb3ga \xe2\x80\x94 \xd0\x96", "unicode.mp3");
    EXPECT_EQ(read.artist, "Bj\xc3\xb6rk");
    EXPECT_EQ(read.title, "J\xc3\xb3ga \xe2\x80\x94 \xd0\x96");
    EXPECT_EQ(read.genre, "J-Pop \xe6\x97\xa5\xe6\x9c\xac");

    std::string longTitle;
    for (int i = 0; i < 60; ++i) longTitle += "\xe2\x82\xac";  // 180 bytes of 3-byte characters
    read = roundTrip(writer, longTitle, "long.mp3");
    EXPECT_EQ(read.artist, "");
    EXPECT_EQ(read.title, longTitle.substr(0, 126));  // 42 whole characters
    EXPECT_TRUE(isValidUtf8(read.title));
}
