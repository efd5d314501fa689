#pragma once
// Reads Ogg page framing, so that a track file of an Ogg stream can start at a
// page: a file that begins mid-page, or without the stream's header pages,
// cannot be decoded. Only the framing is read (capture pattern, version, the
// 27-byte header, the segment table and the page's CRC), never the codec.
// A pure parser over byte spans, safe on any thread.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace quillon {

class OggPages {
public:
    // Bytes of a page header before its segment table.
    static constexpr std::size_t kHeaderSize = 27;
    // The longest page: the header, 255 lacing values and 255 full segments.
    static constexpr std::size_t kMaxPageSize = kHeaderSize + 255 + 255 * 255;
    // How far past the wanted position a page start is looked for: a page
    // starts within one of the longest pages of any position. Past that the
    // stream is no Ogg and the cut stays where it was.
    static constexpr std::size_t kSearchWindow = kMaxPageSize;

    // What a page header says.
    struct Page {
        std::size_t length = 0;  // header, segment table and body
        bool bos = false;        // the first page of a logical stream
        std::int64_t granule = 0;
        std::uint32_t serial = 0;
    };

    // What the bytes at the head of a span are.
    enum class Head {
        page,     // a whole page whose CRC matches
        partial,  // the start of a page header (as far as it goes); more bytes decide
        none,     // no page begins here (or its CRC does not match)
    };
    struct Read {
        Head head = Head::none;
        Page page;  // its fields once the header and segment table are there
    };

    static Read read(std::span<const std::uint8_t> bytes);

    // Where the first page at or after `from` begins, looked for within
    // kSearchWindow bytes of `from`. With `complete` (no more bytes will
    // come) a page cut short by the end of the bytes counts as one.
    enum class Search { found, absent, needMore };
    struct Start {
        Search result = Search::absent;
        std::size_t offset = 0;  // when found
        Page page;               // when found
    };
    static Start pageStart(std::span<const std::uint8_t> bytes, std::size_t from, bool complete);

    // The page CRC: CRC-32 with polynomial 0x04c11db7, no reflection, initial
    // value 0, over the page with its CRC field taken as zero.
    static std::uint32_t crc(std::span<const std::uint8_t> page);
};

}  // namespace quillon
