// Ogg page framing over any bytes: a page read is whole, bounded and found
// again by the search; the header pages kept are the same whether the bytes
// come whole or in pieces, stay within their limit and are whole pages, the
// first of them a BOS page.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>

#include "FuzzCheck.h"
#include "engine/OggHeaders.h"
#include "engine/OggPages.h"

using namespace quillon;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    const std::size_t seed = input.ConsumeIntegralInRange<std::size_t>(1, 64);
    const std::size_t limit = input.ConsumeIntegralInRange<std::size_t>(0, 4096);
    const std::size_t from = input.ConsumeIntegralInRange<std::size_t>(0, 256);
    const bool complete = input.ConsumeBool();
    const auto bytes = input.ConsumeRemainingBytes<std::uint8_t>();

    const auto head = OggPages::read(bytes);
    if (head.head == OggPages::Head::page) {
        FUZZ_CHECK(head.page.length >= OggPages::kHeaderSize && head.page.length <= bytes.size());
        FUZZ_CHECK(head.page.length <= OggPages::kMaxPageSize);
        FUZZ_CHECK(OggPages::read(std::span(bytes).first(head.page.length)).head == OggPages::Head::page);
    }

    const auto start = OggPages::pageStart(bytes, from, complete);
    if (start.result == OggPages::Search::found) {
        FUZZ_CHECK(start.offset >= from && start.offset < bytes.size());
        FUZZ_CHECK(start.offset < from + OggPages::kSearchWindow);
        const auto at = OggPages::read(std::span(bytes).subspan(start.offset)).head;
        FUZZ_CHECK(at == OggPages::Head::page || (complete && at == OggPages::Head::partial));
    }
    if (start.result == OggPages::Search::needMore) FUZZ_CHECK(!complete);

    OggHeaders whole(limit);
    whole.add(bytes);
    OggHeaders pieces(limit);
    for (std::size_t at = 0, n = seed; at < bytes.size(); at += n, n = n * 7 % 61 + 1)
        pieces.add(std::span(bytes).subspan(at, std::min(n, bytes.size() - at)));
    const auto kept = whole.pages();
    FUZZ_CHECK(std::equal(kept.begin(), kept.end(), pieces.pages().begin(), pieces.pages().end()));
    FUZZ_CHECK(whole.overflowed() == pieces.overflowed());
    FUZZ_CHECK(kept.size() <= limit);
    for (std::size_t at = 0; at < kept.size();) {
        const auto page = OggPages::read(kept.subspan(at));
        FUZZ_CHECK(page.head == OggPages::Head::page);
        if (at == 0) FUZZ_CHECK(page.page.bos);
        at += page.page.length;
    }
    return 0;
}
