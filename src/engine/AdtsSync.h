#pragma once
// Finds where ADTS AAC frames begin, so that a track file of an AAC stream can
// start with a whole frame: decoders reject a partial frame at the head of a
// file, where an MP3 decoder silently skips to the next frame.
// A pure parser over byte spans, safe on any thread.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace quillon {

class AdtsSync {
public:
    // Bytes of a frame header (without its CRC).
    static constexpr std::size_t kHeaderSize = 7;
    // How far past the wanted position a frame start is looked for: two of
    // the longest frames (13-bit lengths). Past that the stream is no ADTS and
    // the cut stays where it was.
    static constexpr std::size_t kSearchWindow = 2 * 8191;

    // The length of the frame whose header begins `bytes` (header included);
    // none when they begin no ADTS header (sync 0xFFF, layer 0, a known
    // sample rate, a length that covers the header).
    static std::optional<std::size_t> frameLength(std::span<const std::uint8_t> bytes);

    // The offset of the first frame start in `bytes`: a header whose frame is
    // followed by another header, or, when `complete` (no more bytes will
    // come), by the end of the bytes. 0 when none begins within
    // kSearchWindow; none while more bytes are needed to tell.
    static std::optional<std::size_t> frameStart(std::span<const std::uint8_t> bytes, bool complete);
};

}  // namespace quillon
