#pragma once
// The station's AAC and Ogg payloads: short sine tones encoded once by
// tools/station/make-audio-assets and embedded in the binary. AAC comes as
// loops of whole ADTS frames, one loop per tone, so that a stream may switch
// tones at any frame boundary; Ogg as one loop of a single piece, the whole
// file (each repetition is a new link of a chained stream).
//
// Thread contract: aac() and ogg() may be called from any thread (the loops
// are made once, under a lock); the loops are immutable and live until the
// process ends.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "station/Mp3Tones.h"

namespace quillon {

class AssetTones {
public:
    // The rates the assets were encoded at, in kbit/s: what the station
    // announces for these payloads unless told otherwise.
    static constexpr std::uint32_t aacKbps = 48;
    static constexpr std::uint32_t oggKbps = 32;

    // Throw std::runtime_error when an asset is missing or not what it should be.
    static std::shared_ptr<const Mp3Tones::Loops> aac();
    static std::shared_ptr<const Mp3Tones::Loops> ogg();

    // The length of the ADTS frame whose header begins `bytes`, or none.
    static std::optional<std::size_t> adtsFrameLength(std::span<const std::uint8_t> bytes);
};

}  // namespace quillon
