#include "engine/OggHeaders.h"

#include <algorithm>
#include <cstring>

namespace quillon {

std::size_t OggHeaders::wanted() const {
    if (page_.size() < OggPages::kHeaderSize) return OggPages::kHeaderSize;
    const std::size_t table = OggPages::kHeaderSize + page_[26];
    if (page_.size() < table) return table;
    std::size_t length = table;
    for (std::size_t i = OggPages::kHeaderSize; i < table; ++i) length += page_[i];
    return length;
}

void OggHeaders::add(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const std::size_t want = wanted();
        if (page_.size() < want) {
            const std::size_t n = std::min(want - page_.size(), bytes.size());
            page_.insert(page_.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(n));
            bytes = bytes.subspan(n);
        }
        // Decide as soon as the bytes gathered are known not to begin a page,
        // or once they hold the whole page.
        for (;;) {
            const OggPages::Read r = OggPages::read(page_);
            if (r.head == OggPages::Head::none) {
                resync();
                continue;
            }
            if (r.head == OggPages::Head::page) {
                take(r.page);
                page_.clear();
            }
            break;
        }
    }
}

void OggHeaders::resync() {
    const auto from = page_.begin() + 1;
    auto next = std::find(from, page_.end(), std::uint8_t{'O'});
    page_.erase(page_.begin(), next);
}

void OggHeaders::take(const OggPages::Page& page) {
    const std::span<const std::uint8_t> bytes(page_.data(), page.length);
    if (page.bos) {
        if (!inBos_) {
            headers_.clear();
            serials_.clear();
            keeping_ = true;
        }
        inBos_ = true;
        serials_.push_back(page.serial);
    } else {
        inBos_ = false;
        const bool ours = std::find(serials_.begin(), serials_.end(), page.serial) != serials_.end();
        if (!keeping_ || page.granule != 0 || !ours) {
            keeping_ = false;
            return;
        }
    }
    if (!keeping_) return;  // this link's headers already passed the limit
    if (headers_.size() + bytes.size() > limit_) {
        headers_.clear();
        headers_.shrink_to_fit();
        keeping_ = false;
        overflowed_ = true;
        return;
    }
    headers_.insert(headers_.end(), bytes.begin(), bytes.end());
}

}  // namespace quillon
