// Ogg page framing: what the parser takes for a page, and the writer's cuts of
// an Ogg stream, each file after the first starting with the header pages.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "engine/OggHeaders.h"
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

// A chained stream of synthetic links, each its header pages, then audio.
struct Link {
    std::size_t start = 0;                // stream offset of its first page
    std::vector<std::size_t> headerEnds;  // stream offsets where its header pages end
};

struct ChainedStream {
    Bytes8 bytes;
    std::vector<std::size_t> starts;  // page starts
    std::vector<bool> bos;            // per page
    std::vector<Link> links;

    void add(const Bytes8& page, bool isBos) {
        starts.push_back(bytes.size());
        bos.push_back(isBos);
        bytes.insert(bytes.end(), page.begin(), page.end());
    }
    // A link: BOS pages for `serials`, header pages of `headerSizes`, then
    // `audioPages` pages of audio.
    void addLink(std::vector<std::uint32_t> serials, std::vector<std::size_t> headerSizes,
                 std::size_t audioPages) {
        links.push_back({bytes.size(), {}});
        for (auto serial : serials) {
            add(makePage(30, true, 0, serial, 0x11), true);
            links.back().headerEnds.push_back(bytes.size());
        }
        for (std::size_t i = 0; i < headerSizes.size(); ++i) {
            add(makePage(headerSizes[i], false, 0, serials[i % serials.size()], 0x22), false);
            links.back().headerEnds.push_back(bytes.size());
        }
        for (std::size_t i = 0; i < audioPages; ++i)
            add(makePage(500 + (i * 977) % 3500, false, static_cast<std::int64_t>(1024 * (i + 1)), serials[0],
                         static_cast<std::uint8_t>(i)),
                false);
    }
    // The header pages the writer has seen when a file begins at page start `at`.
    Bytes8 replayAt(std::size_t at) const {
        const Link* link = &links.front();
        for (const Link& l : links)
            if (l.start <= at) link = &l;
        std::size_t end = link->start;
        for (std::size_t e : link->headerEnds)
            if (e <= at) end = e;
        if (end - link->start > OggHeaders::kDefaultLimit) return {};
        return {bytes.begin() + static_cast<std::ptrdiff_t>(link->start),
                bytes.begin() + static_cast<std::ptrdiff_t>(end)};
    }
};

// Cuts anywhere in a chained stream: each file after the first begins at a
// page, with the header pages of its link ahead of it unless it begins with
// a BOS page; headers past the limit are not replayed (and that is logged
// once); with the replayed pages taken out, the files hold the stream.
TEST(QLNBufferCuts, OggFilesBeginWithTheHeaderPagesAndAPage) {
    ChainedStream stream;
    stream.addLink({1}, {3000}, 150);
    stream.addLink({2, 3}, {2000, 1500, 700}, 150);                 // two logical streams
    stream.addLink({4}, {60000, 60000, 60000, 60000, 60000}, 150);  // past the limit
    stream.addLink({5}, {4000}, 150);

    // With no record offset a cut is wanted at the audio received so far.
    std::vector<std::size_t> cuts;
    for (std::size_t at = 20000; at < stream.bytes.size(); at += 37000 + (at % 11) * 1000) cuts.push_back(at);
    for (const Link& link : stream.links) {
        if (link.start == 0) continue;                  // the stream's own start is the first file's
        cuts.push_back(link.start);                     // at a BOS page
        cuts.push_back(link.start - 1);                 // moves to it
        cuts.push_back(link.start + 5);                 // inside the first BOS page
        cuts.push_back(link.headerEnds.back() + 1000);  // just past the headers
    }
    std::sort(cuts.begin(), cuts.end());

    Log::Capture log;
    QLNBuffer writer(60, 0);
    writer.initValues(128, AudioFormat::ogg);
    std::vector<std::string> paths;
    auto next = [&] {
        paths.push_back(homePath("ogg-" + std::to_string(paths.size()) + ".ogg"));
        writer.setNewFileHandle(FileHandle::createForWriting(paths.back()));
    };
    next();
    std::size_t sent = 0;
    for (std::size_t cut : cuts) {
        while (sent < cut) {
            const std::size_t n = std::min<std::size_t>(7919, cut - sent);
            writer.addData(std::span(stream.bytes.data() + sent, n));
            sent += n;
        }
        next();
    }
    writer.addData(std::span(stream.bytes.data() + sent, stream.bytes.size() - sent));
    writer.finish();

    Bytes8 audio;
    std::size_t replays = 0, bosStarts = 0;
    for (std::size_t k = 0; k < paths.size(); ++k) {
        SCOPED_TRACE("file " + std::to_string(k) + " at stream byte " + std::to_string(audio.size()));
        const auto file = readWholeFile(paths[k]).value_or(Bytes{});
        std::size_t skip = 0;
        if (k > 0 && !file.empty()) {
            const auto page = std::find(stream.starts.begin(), stream.starts.end(), audio.size());
            ASSERT_NE(page, stream.starts.end()) << "the file does not begin at a page";
            const Bytes8 replay =
                stream.bos[page - stream.starts.begin()] ? Bytes8{} : stream.replayAt(audio.size());
            ASSERT_GE(file.size(), replay.size());
            ASSERT_TRUE(std::equal(replay.begin(), replay.end(), file.begin())) << "not the header pages";
            skip = replay.size();
            replays += replay.empty() ? 0 : 1;
            bosStarts += stream.bos[page - stream.starts.begin()] ? 1 : 0;
        }
        audio.insert(audio.end(), file.begin() + static_cast<std::ptrdiff_t>(skip), file.end());
    }
    EXPECT_TRUE(audio == stream.bytes) << "the files do not hold the stream once";
    EXPECT_GE(replays, 20u);
    EXPECT_EQ(bosStarts, 4u);  // each later link once, and the second BOS page of a link
    const auto lines = log.lines();
    EXPECT_EQ(
        std::count_if(lines.begin(), lines.end(),
                      [](const std::string& l) { return l.find("Ogg header pages") != std::string::npos; }),
        1);
}

}  // namespace
