#include "engine/AdtsSync.h"

namespace quillon {

std::optional<std::size_t> AdtsSync::frameLength(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < kHeaderSize) return std::nullopt;
    // 12 sync bits, the MPEG version bit, layer 00, the protection bit.
    if (bytes[0] != 0xFF || (bytes[1] & 0xF6) != 0xF0) return std::nullopt;
    if (((bytes[2] >> 2) & 0x0F) > 12) return std::nullopt;  // sampling frequency index
    const std::size_t length = (static_cast<std::size_t>(bytes[3] & 0x03) << 11) |
                               (static_cast<std::size_t>(bytes[4]) << 3) | (bytes[5] >> 5);
    const std::size_t header = (bytes[1] & 0x01) ? kHeaderSize : kHeaderSize + 2;
    if (length <= header) return std::nullopt;
    return length;
}

std::optional<std::size_t> AdtsSync::frameStart(std::span<const std::uint8_t> bytes, bool complete) {
    for (std::size_t at = 0; at < kSearchWindow; ++at) {
        if (at + kHeaderSize > bytes.size()) {
            if (!complete) return std::nullopt;
            break;
        }
        const auto length = frameLength(bytes.subspan(at));
        if (!length) continue;
        const std::size_t next = at + *length;
        if (next + kHeaderSize > bytes.size()) {
            // The frame reaches the end of what is there: a start when nothing
            // more comes, else the next header decides.
            if (complete) return at;
            return std::nullopt;
        }
        if (frameLength(bytes.subspan(next))) return at;
    }
    return 0;
}

}  // namespace quillon
