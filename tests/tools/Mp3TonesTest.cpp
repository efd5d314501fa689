// The encoded tone loops and the frame-header reading they rely on.
#include <gtest/gtest.h>

#include <set>

#include "station/Mp3Tones.h"

namespace quillon {
namespace {

TEST(Mp3Tones, ReadsFrameLengthsFromHeaders) {
    const std::vector<std::tuple<const char*, Bytes, std::optional<std::size_t>>> cases = {
        {"128 kbit/s, 44.1 kHz", {0xFF, 0xFB, 0x90, 0x44}, 417},
        {"same, padded", {0xFF, 0xFB, 0x92, 0x44}, 418},
        {"320 kbit/s, 48 kHz", {0xFF, 0xFB, 0xE4, 0x44}, 960},
        {"free-format bit rate", {0xFF, 0xFB, 0x00, 0x44}, std::nullopt},
        {"bad bit-rate index", {0xFF, 0xFB, 0xF0, 0x44}, std::nullopt},
        {"reserved sampling rate", {0xFF, 0xFB, 0x9C, 0x44}, std::nullopt},
        {"MPEG-2", {0xFF, 0xF3, 0x90, 0x44}, std::nullopt},
        {"Layer II", {0xFF, 0xFD, 0x90, 0x44}, std::nullopt},
        {"too short", {0xFF, 0xFB, 0x90}, std::nullopt},
    };
    for (const auto& [what, header, length] : cases) EXPECT_EQ(Mp3Tones::frameLength(header), length) << what;

    Bytes frames(2 * 417, 0);
    for (std::size_t at : {0u, 417u}) std::copy_n(std::get<1>(cases[0]).begin(), 4, frames.begin() + at);
    EXPECT_EQ(Mp3Tones::splitFrames(frames).size(), 2u);
    frames.pop_back();
    EXPECT_THROW(Mp3Tones::splitFrames(frames), std::runtime_error);
}

TEST(Mp3Tones, LoopsAreSelfContainedFramesAtTheAskedBitRate) {
    for (std::uint32_t kbps : {32u, 128u, 320u}) {
        const auto loops = Mp3Tones::loops(kbps);
        ASSERT_EQ(loops->size(), Mp3Tones::toneCount);
        const std::size_t unpadded = 144 * kbps * 1000 / Mp3Tones::sampleRate;
        std::set<Bytes> firstFrames;
        for (const auto& loop : *loops) {
            ASSERT_FALSE(loop.empty());
            for (const auto& frame : loop) {
                ASSERT_EQ(Mp3Tones::frameLength(frame), frame.size());
                ASSERT_TRUE(frame.size() == unpadded || frame.size() == unpadded + 1) << kbps;
                // main_data_begin (9 bits after the header) is 0: nothing borrowed from earlier frames.
                ASSERT_TRUE(frame[4] == 0 && (frame[5] & 0x80) == 0);
            }
            firstFrames.insert(loop.front());
        }
        EXPECT_EQ(firstFrames.size(), Mp3Tones::toneCount) << "each tone is encoded on its own";
        EXPECT_EQ(Mp3Tones::loops(kbps), loops) << "encoded once, then cached";
    }
}

}  // namespace
}  // namespace quillon
