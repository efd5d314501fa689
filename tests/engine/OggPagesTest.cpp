// Ogg page framing: what the parser takes for a page, and the writer's cuts of
// an Ogg stream, each file after the first starting with the header pages.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/OggPages.h"
#include "engine/QLNBuffer.h"
#include "platform/AtomicFile.h"
#include "platform/FileHandle.h"
#include "platform/Home.h"
#include "platform/Log.h"
#include "station/AssetTones.h"

using namespace quillon;

namespace {

using Bytes8 = std::vector<std::uint8_t>;

// The page CRC computed bit by bit, apart from the parser's table.
std::uint32_t bitwiseCrc(const Bytes8& page) {
    std::uint32_t r = 0;
    for (std::size_t i = 0; i < page.size(); ++i) {
        r ^= static_cast<std::uint32_t>(i >= 22 && i < 26 ? 0 : page[i]) << 24;
        for (int bit = 0; bit < 8; ++bit) r = (r & 0x80000000u) ? (r << 1) ^ 0x04c11db7u : r << 1;
    }
    return r;
}

// A page of `body` bytes (fill `fill`), its CRC set.
Bytes8 makePage(std::size_t body, bool bos, std::int64_t granule, std::uint32_t serial, std::uint8_t fill) {
    Bytes8 page{'O', 'g', 'g', 'S', 0, static_cast<std::uint8_t>(bos ? 2 : 0)};
    for (int i = 0; i < 8; ++i) page.push_back(static_cast<std::uint8_t>(granule >> (8 * i)));
    for (int i = 0; i < 4; ++i) page.push_back(static_cast<std::uint8_t>(serial >> (8 * i)));
    page.insert(page.end(), 8, 0);  // sequence number, CRC
    Bytes8 lacing(body / 255, 255);
    lacing.push_back(static_cast<std::uint8_t>(body % 255));
    page.push_back(static_cast<std::uint8_t>(lacing.size()));
    page.insert(page.end(), lacing.begin(), lacing.end());
    page.insert(page.end(), body, fill);
    const std::uint32_t crc = bitwiseCrc(page);
    for (int i = 0; i < 4; ++i) page[22 + i] = static_cast<std::uint8_t>(crc >> (8 * i));
    return page;
}

Bytes8 joined(std::initializer_list<Bytes8> parts) {
    Bytes8 out;
    for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

TEST(OggPages, ReadsAPageOnlyWhenItsFramingAndCrcHold) {
    const Bytes& asset = (*AssetTones::ogg())[0][0];  // encoded elsewhere: a CRC we did not make
    const Bytes8 vorbis(asset.begin(), asset.end());
    const Bytes8 page = makePage(600, false, -1, 0x12345678, 0x4f);
    auto badCrc = page;
    badCrc[400] ^= 0x01;
    auto version1 = page;
    version1[4] = 1;
    using H = OggPages::Head;
    struct Case {
        const char* what;
        Bytes8 bytes;
        H head;
        std::size_t length;
        bool bos;
        std::int64_t granule;
        std::uint32_t serial;
    };
    const std::vector<Case> cases = {
        {"an encoder's BOS page", {vorbis.begin(), vorbis.begin() + 100}, H::page, 58, true, 0, 0},
        {"an encoder's audio page", {vorbis.begin() + 3513, vorbis.end()}, H::page, 1449, false, 44608, 0},
        {"a page with no packet end", joined({page, {1, 2}}), H::page, page.size(), false, -1, 0x12345678},
        {"a changed byte", badCrc, H::none, 0, false, 0, 0},
        {"version 1", version1, H::none, 0, false, 0, 0},
        {"no capture pattern", {page.begin() + 1, page.end()}, H::none, 0, false, 0, 0},
        {"cut in the header", {page.begin(), page.begin() + 20}, H::partial, 0, false, 0, 0},
        {"cut in the body", {page.begin(), page.end() - 1}, H::partial, page.size(), false, -1, 0x12345678},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const auto r = OggPages::read(c.bytes);
        EXPECT_EQ(r.head, c.head);
        EXPECT_EQ(r.page.length, c.length);
        if (c.head == H::page) {
            EXPECT_EQ(r.page.bos, c.bos);
            EXPECT_EQ(r.page.granule, c.granule);
            EXPECT_EQ(r.page.serial, c.serial);
        }
    }
}

TEST(OggPages, FindsTheNextPageWithinTheWindow) {
    const Bytes8 page = makePage(1000, true, 0, 7, 0x4f);
    auto fake = page;  // "OggS" whose CRC does not hold, ahead of a real page
    fake[100] ^= 0x10;
    const Bytes8 junk(100, 0x42);
    const Bytes8 farJunk(OggPages::kSearchWindow + 10, 0x42);
    using S = OggPages::Search;
    struct Case {
        const char* what;
        Bytes8 bytes;
        std::size_t from;
        bool complete;
        S result;
        std::size_t offset;
    };
    const std::vector<Case> cases = {
        {"at the page", page, 0, false, S::found, 0},
        {"after junk", joined({junk, page}), 0, false, S::found, 100},
        {"from inside a page", joined({page, page}), 1, false, S::found, page.size()},
        {"past a false capture pattern", joined({fake, page}), 0, false, S::found, fake.size()},
        {"the page not yet whole", joined({junk, {page.begin(), page.end() - 1}}), 0, false, S::needMore, 0},
        {"the last page cut short", joined({junk, {page.begin(), page.end() - 1}}), 0, true, S::found, 100},
        {"junk shorter than the window", junk, 0, false, S::needMore, 0},
        {"junk when no more comes", junk, 0, true, S::absent, 0},
        {"no page within the window", joined({farJunk, page}), 0, false, S::absent, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const auto start = OggPages::pageStart(c.bytes, c.from, c.complete);
        EXPECT_EQ(start.result, c.result);
        if (c.result == S::found) {
            EXPECT_EQ(start.offset, c.offset);
        }
    }
}

}  // namespace
