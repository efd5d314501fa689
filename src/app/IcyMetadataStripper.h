#pragma once
// Takes the ICY metadata blocks out of a relayed stream, leaving the audio
// alone: a browser's audio element plays plain audio only. The relay sends
// `metaInt` audio bytes, then a length byte N and N x 16 bytes of metadata,
// and so on; with a meta interval of 0 everything is audio. Pure: bytes in,
// audio out, in pieces of any size.
//
// Thread contract: none; one stream per instance.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace quillon {

class IcyMetadataStripper {
public:
    explicit IcyMetadataStripper(std::size_t metaInt);

    // Appends the audio among `bytes` to `audio`.
    void feed(std::span<const std::uint8_t> bytes, std::string& audio);

private:
    std::size_t metaInt_;
    std::size_t audioLeft_;  // audio bytes before the next length byte
    std::size_t metadataLeft_ = 0;
};

}  // namespace quillon
