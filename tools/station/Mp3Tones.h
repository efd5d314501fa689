#pragma once
// Loops of real MPEG-1 Layer III frames, one sine tone per title slot, encoded
// with libmp3lame the first time a bit rate is asked for and cached for the
// process. The bit reservoir is off, so every frame decodes on its own and a
// stream may switch between loops at any frame boundary.
//
// Thread contract: loops() may be called from any thread (the cache is locked);
// the returned loops are immutable and live until the process ends.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/ByteBuffer.h"

namespace quillon {

class Mp3Tones {
public:
    static constexpr std::size_t toneCount = 8;
    static constexpr int sampleRate = 44100;

    using Loop = std::vector<Bytes>;  // whole frames, played in order and repeated
    using Loops = std::vector<Loop>;  // one per tone

    // The loops for `kbps` (an MPEG-1 Layer III rate). Throws std::runtime_error
    // when the encoder fails.
    static std::shared_ptr<const Loops> loops(std::uint32_t kbps);

    // The sine frequency of tone k, in Hz.
    static double frequency(std::size_t tone);

    // The length of the MPEG-1 Layer III frame whose 4-byte header starts `bytes`;
    // none when they are not such a header.
    static std::optional<std::size_t> frameLength(std::span<const std::uint8_t> bytes);

    // Splits encoder output into whole frames; throws std::runtime_error on a
    // byte that does not start a frame.
    static Loop splitFrames(std::span<const std::uint8_t> stream);

private:
    static Loop encodeTone(std::uint32_t kbps, double hz);
};

}  // namespace quillon
