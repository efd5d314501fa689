#include "engine/Id3Text.h"

#include "platform/TextUtil.h"

namespace quillon {

namespace {

std::uint32_t syncsafe(const std::uint8_t* p) {
    return (std::uint32_t(p[0] & 0x7f) << 21) | (std::uint32_t(p[1] & 0x7f) << 14) |
           (std::uint32_t(p[2] & 0x7f) << 7) | std::uint32_t(p[3] & 0x7f);
}

std::uint32_t plain(const std::uint8_t* p) {
    return (std::uint32_t(p[0]) << 24) | (std::uint32_t(p[1]) << 16) | (std::uint32_t(p[2]) << 8) | p[3];
}

// Text of a frame body after its encoding byte, up to the first terminator.
std::string decodeText(std::uint8_t encoding, std::span<const std::uint8_t> body) {
    std::string_view raw(reinterpret_cast<const char*>(body.data()), body.size());
    if (encoding == 0 || encoding == 3) {
        std::string_view text = raw.substr(0, raw.find('\0'));
        return encoding == 3 ? std::string(text) : latin1ToUtf8(text);
    }
    // UTF-16 with or without a byte-order mark: keep the low bytes of BMP characters.
    bool bigEndian = encoding == 2;
    std::size_t i = 0;
    if (body.size() >= 2 && ((body[0] == 0xFF && body[1] == 0xFE) || (body[0] == 0xFE && body[1] == 0xFF))) {
        bigEndian = body[0] == 0xFE;
        i = 2;
    }
    std::string out;
    for (; i + 1 < body.size(); i += 2) {
        char32_t c = bigEndian ? (body[i] << 8) | body[i + 1] : (body[i + 1] << 8) | body[i];
        if (c == 0) break;
        appendUtf8(out, c);
    }
    return out;
}

}  // namespace

std::map<std::string, std::string> readId3Text(std::span<const std::uint8_t> bytes) {
    std::map<std::string, std::string> frames;
    if (bytes.size() < 10 || bytes[0] != 'I' || bytes[1] != 'D' || bytes[2] != '3') return frames;
    const int version = bytes[3];
    if (version != 3 && version != 4) return frames;
    std::size_t end = std::min<std::size_t>(bytes.size(), 10 + syncsafe(&bytes[6]));
    std::size_t pos = 10;
    while (pos + 10 <= end) {
        std::string id(reinterpret_cast<const char*>(&bytes[pos]), 4);
        if (id[0] == '\0') break;  // padding
        std::uint32_t size = version == 4 ? syncsafe(&bytes[pos + 4]) : plain(&bytes[pos + 4]);
        std::size_t bodyStart = pos + 10;
        if (size == 0 || bodyStart + size > end) break;
        std::span<const std::uint8_t> body = bytes.subspan(bodyStart, size);
        if (id[0] == 'T') {
            frames[id] = decodeText(body[0], body.subspan(1));
        } else if (id == "COMM" && body.size() >= 5) {
            // encoding, language (3), description (terminated), text
            std::uint8_t encoding = body[0];
            auto rest = body.subspan(4);
            std::size_t skip = 0;
            if (encoding == 0 || encoding == 3) {
                while (skip < rest.size() && rest[skip] != 0) ++skip;
                skip += 1;
            } else {
                while (skip + 1 < rest.size() && (rest[skip] || rest[skip + 1])) skip += 2;
                skip += 2;
            }
            if (skip <= rest.size()) frames[id] = decodeText(encoding, rest.subspan(skip));
        }
        pos = bodyStart + size;
    }
    return frames;
}

}  // namespace quillon
