#include "engine/OggPages.h"

#include <algorithm>
#include <array>

namespace quillon {

namespace {

constexpr std::array<std::uint8_t, 4> kCapture{'O', 'g', 'g', 'S'};
constexpr std::size_t kCrcField = 22;  // the CRC's four bytes within the header

constexpr std::array<std::uint32_t, 256> makeCrcTable() {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t r = i << 24;
        for (int bit = 0; bit < 8; ++bit) r = (r & 0x80000000u) ? (r << 1) ^ 0x04c11db7u : r << 1;
        table[i] = r;
    }
    return table;
}

constexpr auto kCrcTable = makeCrcTable();

std::uint64_t littleEndian(std::span<const std::uint8_t> bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;) value = (value << 8) | bytes[i];
    return value;
}

}  // namespace

std::uint32_t OggPages::crc(std::span<const std::uint8_t> page) {
    std::uint32_t r = 0;
    for (std::size_t i = 0; i < page.size(); ++i) {
        const std::uint8_t byte = (i >= kCrcField && i < kCrcField + 4) ? 0 : page[i];
        r = (r << 8) ^ kCrcTable[((r >> 24) ^ byte) & 0xFF];
    }
    return r;
}

OggPages::Read OggPages::read(std::span<const std::uint8_t> bytes) {
    Read out;
    // The capture pattern and the version, as far as the bytes go.
    const std::size_t known = std::min<std::size_t>(bytes.size(), 5);
    for (std::size_t i = 0; i < known; ++i)
        if (bytes[i] != (i < 4 ? kCapture[i] : 0)) return out;
    if (bytes.size() < kHeaderSize || bytes.size() < kHeaderSize + bytes[26]) {
        out.head = Head::partial;
        return out;
    }
    const std::size_t segments = bytes[26];
    std::size_t body = 0;
    for (std::size_t i = 0; i < segments; ++i) body += bytes[kHeaderSize + i];
    out.page.length = kHeaderSize + segments + body;
    out.page.bos = (bytes[5] & 0x02) != 0;
    out.page.granule = static_cast<std::int64_t>(littleEndian(bytes.subspan(6, 8)));
    out.page.serial = static_cast<std::uint32_t>(littleEndian(bytes.subspan(14, 4)));
    if (bytes.size() < out.page.length) {
        out.head = Head::partial;
        return out;
    }
    const auto page = bytes.first(out.page.length);
    if (crc(page) != static_cast<std::uint32_t>(littleEndian(page.subspan(kCrcField, 4)))) return Read{};
    out.head = Head::page;
    return out;
}

OggPages::Start OggPages::pageStart(std::span<const std::uint8_t> bytes, std::size_t from, bool complete) {
    Start out;
    const std::size_t end = std::min(bytes.size(), from + kSearchWindow);
    for (std::size_t at = from; at < end; ++at) {
        if (bytes[at] != kCapture[0]) continue;
        const Read r = read(bytes.subspan(at));
        if (r.head == Head::none) continue;
        // A page cut short by the end of everything that comes is still where
        // the page begins; otherwise the bytes still to come decide.
        if (r.head == Head::partial) {
            if (!complete) {
                out.result = Search::needMore;
                return out;
            }
            if (r.page.length == 0) continue;  // not even its header: no page
        }
        out.result = Search::found;
        out.offset = at;
        out.page = r.page;
        return out;
    }
    if (end < from + kSearchWindow && !complete) out.result = Search::needMore;
    return out;
}

}  // namespace quillon
