#pragma once
// The header pages of an Ogg stream, kept as its bytes go to disk, so that a
// track file cut from the middle of the stream can begin with them: a Vorbis
// or Opus decoder needs the identification, comment and setup headers
// (OpusHead, OpusTags) before any audio page.
//
// The header pages are the BOS page(s) of a link and the pages of the same
// logical streams that follow them with granule position 0. A BOS page after
// other pages begins a new link (a chained stream, as Icecast sends when its
// source changes) and replaces what was kept. Pages are followed across the
// spans they are fed in; bytes that are no page are skipped until a page
// begins again. What is kept is bounded: headers past the limit are dropped
// (overflowed() tells) until the next link begins.
//
// Thread contract: none of its own; the writer calls it under its lock.
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "engine/OggPages.h"
#include "platform/ByteBuffer.h"

namespace quillon {

class OggHeaders {
public:
    static constexpr std::size_t kDefaultLimit = 256 * 1024;

    explicit OggHeaders(std::size_t limit = kDefaultLimit) : limit_(limit) {}

    // The next bytes of the stream, in order.
    void add(std::span<const std::uint8_t> bytes);
    // The header pages of the current link as far as they were fed; empty
    // when there are none or they passed the limit.
    std::span<const std::uint8_t> pages() const { return headers_; }
    // Whether a link's headers passed the limit (stays set).
    bool overflowed() const { return overflowed_; }

private:
    // How many bytes page_ must hold before the page at its head is decided.
    std::size_t wanted() const;
    void take(const OggPages::Page& page);
    // Drops page_'s first byte and everything before the next capture pattern.
    void resync();

    const std::size_t limit_;
    Bytes page_;                          // the page being gathered, from its first byte
    Bytes headers_;                       // the current link's header pages
    std::vector<std::uint32_t> serials_;  // the logical streams of that link
    bool inBos_ = false;                  // the last page was a BOS page
    bool keeping_ = false;                // granule-0 pages still belong to the headers
    bool overflowed_ = false;
};

}  // namespace quillon
