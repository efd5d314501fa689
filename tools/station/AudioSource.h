#pragma once
// The audio bytes of one client stream.
//
// counter: byte n of the stream is counterByte(n), a pure function of the
// absolute audio offset, so a test can tell exactly which bytes reached a file.
// mp3, aac: whole frames of the current tone's loop; a tone change takes effect
// at the next frame boundary, so the stream stays frame-aligned and decodes
// cleanly. ogg: the one tone's file, over and over (a chained stream).
//
// One client thread uses one source.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "station/Mp3Tones.h"
#include "station/StationOptions.h"

namespace quillon {

class AudioSource {
public:
    AudioSource(StationPayload payload, std::uint32_t kbps);

    static std::uint8_t counterByte(std::uint64_t offset) { return static_cast<std::uint8_t>(offset % 251); }

    // Writes the next out.size() audio bytes.
    void fill(std::span<std::uint8_t> out);
    // Switches to tone `tone` (modulo the tone count) at the next frame boundary.
    void setTone(std::size_t tone);
    std::uint64_t offset() const { return offset_; }

private:
    StationPayload payload_;
    std::shared_ptr<const Mp3Tones::Loops> loops_;
    std::uint64_t offset_ = 0;
    std::size_t tone_ = 0;
    std::size_t nextTone_ = 0;
    std::size_t frame_ = 0;
    std::size_t inFrame_ = 0;
};

}  // namespace quillon
