#include "app/IcyMetadataStripper.h"

#include <algorithm>

namespace quillon {

IcyMetadataStripper::IcyMetadataStripper(std::size_t metaInt) : metaInt_(metaInt), audioLeft_(metaInt) {}

void IcyMetadataStripper::feed(std::span<const std::uint8_t> bytes, std::string& audio) {
    if (metaInt_ == 0) {
        audio.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        return;
    }
    std::size_t at = 0;
    while (at < bytes.size()) {
        if (metadataLeft_ > 0) {
            std::size_t skip = std::min(metadataLeft_, bytes.size() - at);
            metadataLeft_ -= skip;
            at += skip;
            if (metadataLeft_ == 0) audioLeft_ = metaInt_;
        } else if (audioLeft_ > 0) {
            std::size_t take = std::min(audioLeft_, bytes.size() - at);
            audio.append(reinterpret_cast<const char*>(bytes.data() + at), take);
            audioLeft_ -= take;
            at += take;
        } else {
            metadataLeft_ = std::size_t{bytes[at++]} * 16;
            if (metadataLeft_ == 0) audioLeft_ = metaInt_;
        }
    }
}

}  // namespace quillon
