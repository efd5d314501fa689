// The stream's content type decides the files' extension, their tag and their
// cuts; in an ADTS stream every cut moves to the next frame start.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/AdtsSync.h"
#include "engine/AudioFormat.h"
#include "engine/QLNBuffer.h"
#include "platform/AtomicFile.h"
#include "platform/FileHandle.h"
#include "platform/Home.h"

using namespace quillon;

namespace {

TEST(AudioFormat, ContentTypeGivesExtensionAndTag) {
    struct Case {
        const char* contentType;
        const char* extension;
        bool tag;
    };
    const Case cases[] = {
        {"audio/mpeg", ".mp3", true},
        {"", ".mp3", true},
        {"audio/x-unknown", ".mp3", true},
        {"audio/mpegurl", ".mp3", true},  // a prefix of no known type
        {"audio/aac", ".aac", true},
        {"AUDIO/AACP", ".aac", true},
        {"audio/x-aac; charset=utf-8", ".aac", true},
        {"  audio/aacp ;rate=44100", ".aac", true},
        {"application/ogg", ".ogg", false},
        {"audio/ogg; codecs=vorbis", ".ogg", false},
        {"Audio/Opus", ".opus", false},
        {"audio/aac-x", ".mp3", true},
    };
    for (const Case& c : cases) {
        const AudioFormat format = audioFormatForContentType(c.contentType);
        EXPECT_EQ(fileExtension(format), c.extension) << c.contentType;
        EXPECT_EQ(takesId3Tag(format), c.tag) << c.contentType;
    }
}

// An ADTS header (no CRC, 44.1 kHz, mono) for a frame of `length` bytes.
std::vector<std::uint8_t> adtsHeader(std::size_t length) {
    return {0xFF,
            0xF1,
            0x50,
            static_cast<std::uint8_t>(0x40 | ((length >> 11) & 0x03)),
            static_cast<std::uint8_t>((length >> 3) & 0xFF),
            static_cast<std::uint8_t>(((length & 0x07) << 5) | 0x1F),
            0xFC};
}

// Frames of the given lengths, their payload bytes never 0xFF.
std::vector<std::uint8_t> adtsFrames(const std::vector<std::size_t>& lengths,
                                     std::vector<std::size_t>* starts) {
    std::vector<std::uint8_t> out;
    for (std::size_t length : lengths) {
        if (starts) starts->push_back(out.size());
        auto header = adtsHeader(length);
        out.insert(out.end(), header.begin(), header.end());
        for (std::size_t i = header.size(); i < length; ++i)
            out.push_back(static_cast<std::uint8_t>(i % 200));
    }
    return out;
}

TEST(AdtsSync, FrameStartIsAHeaderFollowedByAnother) {
    const auto frames = adtsFrames({300, 400, 350}, nullptr);
    auto junkFirst = frames;
    junkFirst.insert(junkFirst.begin(), {0x12, 0xFF, 0xF1, 0x34});  // a false sync, then a frame
    struct Case {
        const char* what;
        std::vector<std::uint8_t> bytes;
        bool complete;
        std::optional<std::size_t> start;
    };
    const std::vector<Case> cases = {
        {"at a frame", frames, false, 0},
        {"inside the first frame", {frames.begin() + 100, frames.end()}, false, 200},
        {"past a false sync", junkFirst, false, 4},
        {"the next header not yet there", {frames.begin() + 100, frames.begin() + 503}, false, std::nullopt},
        {"the last frame when no more comes", {frames.begin() + 100, frames.begin() + 503}, true, 200},
        {"too few bytes to tell", {frames.begin() + 1, frames.begin() + 5}, false, std::nullopt},
        {"nothing found by the end", {frames.begin() + 1, frames.begin() + 250}, true, 0},
        {"no ADTS within the window", std::vector<std::uint8_t>(AdtsSync::kSearchWindow + 10, 0x42), false,
         0},
    };
    for (const Case& c : cases) EXPECT_EQ(AdtsSync::frameStart(c.bytes, c.complete), c.start) << c.what;

    EXPECT_EQ(AdtsSync::frameLength(adtsHeader(8191)), 8191u);
    auto layer1 = adtsHeader(300);
    layer1[1] = 0xF3;  // layer bits 01: an MPEG audio frame, not ADTS
    EXPECT_FALSE(AdtsSync::frameLength(layer1));
    EXPECT_FALSE(AdtsSync::frameLength(adtsHeader(5)));  // shorter than its header
}

// Cuts of an AAC stream fall on frame starts, whatever the block and cut
// positions; the files together hold the whole stream, byte for byte.
TEST(QLNBufferCuts, AacCutsMoveToTheNextFrameStart) {
    std::vector<std::size_t> lengths;
    for (std::size_t i = 0; lengths.size() < 5000; ++i) lengths.push_back(150 + (i * 37) % 600);
    std::vector<std::size_t> starts;
    const auto stream = adtsFrames(lengths, &starts);

    for (const auto& [format, offset] :
         {std::pair{AudioFormat::aac, 0}, std::pair{AudioFormat::aac, -3}, std::pair{AudioFormat::aac, 2}}) {
        SCOPED_TRACE(offset);
        QLNBuffer writer(60, offset);
        writer.initValues(128, format);
        std::vector<std::string> paths;
        auto next = [&] {
            paths.push_back(
                homePath("aligned" + std::to_string(offset) + "-" + std::to_string(paths.size()) + ".aac"));
            writer.setNewFileHandle(FileHandle::createForWriting(paths.back()));
        };
        next();
        std::size_t sent = 0;
        std::size_t block = 0;
        while (sent < stream.size()) {
            const std::size_t n = std::min<std::size_t>(7919 + (block++ % 3) * 1000, stream.size() - sent);
            writer.addData(std::span(stream.data() + sent, n));
            sent += n;
            if (block % 15 == 0) next();
        }
        writer.finish();

        std::vector<std::uint8_t> joined;
        for (std::size_t k = 0; k < paths.size(); ++k) {
            auto bytes = readWholeFile(paths[k]).value_or(Bytes{});
            if (k > 0 && !bytes.empty()) {
                const auto at = std::find(starts.begin(), starts.end(), joined.size());
                EXPECT_NE(at, starts.end()) << "file " << k << " begins at byte " << joined.size();
            }
            joined.insert(joined.end(), bytes.begin(), bytes.end());
        }
        EXPECT_GE(paths.size(), 10u);
        EXPECT_TRUE(joined == stream) << "the files do not hold the stream";
    }
}

}  // namespace
