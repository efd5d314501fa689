// The chunked transfer decoder over any bytes: fed in pieces of any size it
// gives the same payload, status and reason as fed whole, never more payload
// than it was given, and nothing once the stream has ended or broken.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>

#include "FuzzCheck.h"
#include "net/ChunkedDecoder.h"

using namespace quillon;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    const std::size_t seed = input.ConsumeIntegralInRange<std::size_t>(1, 64);
    const auto wire = input.ConsumeRemainingBytes<std::uint8_t>();

    ChunkedDecoder whole;
    Bytes all;
    whole.decode(wire, all);
    FUZZ_CHECK(all.size() <= wire.size());

    ChunkedDecoder pieces;
    Bytes out;
    for (std::size_t at = 0, n = seed; at < wire.size(); at += n, n = n * 7 % 61 + 1) {
        const std::size_t before = out.size();
        const bool open = pieces.status() == ChunkedDecoder::Status::Open;
        pieces.decode(std::span(wire).subspan(at, std::min(n, wire.size() - at)), out);
        if (!open) FUZZ_CHECK(out.size() == before);
    }
    FUZZ_CHECK(out == all);
    FUZZ_CHECK(pieces.status() == whole.status());
    FUZZ_CHECK(pieces.error() == whole.error());
    return 0;
}
