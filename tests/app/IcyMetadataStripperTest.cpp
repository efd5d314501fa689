// The relay's metadata blocks come out and the audio stays whole, however
// the bytes are cut into pieces on their way in.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "app/IcyMetadataStripper.h"

namespace quillon::test {
namespace {

struct Case {
    const char* what;
    std::size_t metaInt;
    std::vector<std::size_t> metadataBlocks;  // the length byte of each block in turn
    std::size_t audioBytes;
};

// `audioBytes` of numbered audio with a metadata block (filled with 0xEE, a
// value the audio never has) after every meta interval.
std::string relayed(const Case& c, std::string& audio) {
    std::string bytes;
    std::size_t block = 0;
    for (std::size_t i = 0; i < c.audioBytes; ++i) {
        char a = static_cast<char>(i % 200);
        audio += a;
        bytes += a;
        if (c.metaInt && (i + 1) % c.metaInt == 0) {
            std::size_t n =
                c.metadataBlocks.empty() ? 0 : c.metadataBlocks[block++ % c.metadataBlocks.size()];
            bytes += static_cast<char>(n);
            bytes.append(n * 16, static_cast<char>(0xEE));
        }
    }
    return bytes;
}

TEST(IcyMetadataStripperTest, KeepsTheAudioAndDropsEveryMetadataBlock) {
    const std::vector<Case> cases = {
        {"no metadata", 0, {}, 5000},
        {"empty blocks only", 16, {0}, 1000},
        {"titles between audio", 64, {2, 0, 255, 1}, 4000},
        {"stream ends inside a block's audio", 100, {3}, 1050},
        {"the largest block each time", 32, {255}, 640},
    };
    for (const Case& c : cases) {
        std::string audio;
        const std::string bytes = relayed(c, audio);
        for (std::size_t piece : {std::size_t{1}, std::size_t{7}, std::size_t{16}, std::size_t{4096}}) {
            IcyMetadataStripper stripper(c.metaInt);
            std::string out;
            for (std::size_t at = 0; at < bytes.size(); at += piece) {
                std::size_t n = std::min(piece, bytes.size() - at);
                stripper.feed({reinterpret_cast<const std::uint8_t*>(bytes.data()) + at, n}, out);
            }
            EXPECT_EQ(out, audio) << c.what << ", pieces of " << piece;
        }
    }
}

}  // namespace
}  // namespace quillon::test
