// The ICY demuxer over any bytes, fed in pieces of any size: every audio byte
// comes out once, in order, whether cut with the lookahead or at the end, and
// no block is larger than the block size.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>

#include "FuzzCheck.h"
#include "engine/IcyDemuxer.h"
#include "platform/NamedException.h"

using namespace quillon;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    const std::size_t blockSize = input.ConsumeIntegralInRange<std::size_t>(1, 20000);
    const bool hasMeta = input.ConsumeBool();
    IcyDemuxer demuxer(blockSize, hasMeta);
    std::size_t fed = 0, audio = 0, metadata = 0;
    try {
        while (input.remaining_bytes() > 0) {
            const auto piece =
                input.ConsumeBytes<std::uint8_t>(input.ConsumeIntegralInRange<std::size_t>(1, 40000));
            demuxer.append(piece);
            fed += piece.size();
            while (auto block = demuxer.next()) {
                FUZZ_CHECK(block->audio.size() == blockSize);
                audio += block->audio.size();
                metadata += hasMeta ? 1 + block->metadataBytes.size() : 0;
                FUZZ_CHECK(block->metadataBytes.size() % 16 == 0);
            }
        }
        while (auto block = demuxer.nextAtEnd()) {
            FUZZ_CHECK(!block->audio.empty() && block->audio.size() <= blockSize);
            audio += block->audio.size();
            metadata += block->metadata == IcyDemuxer::Metadata::None ? 0 : 1 + block->metadataBytes.size();
        }
        // Without metadata every byte is audio; with it, what is not audio was
        // a length byte, metadata, or a metadata block cut off by the end.
        FUZZ_CHECK(hasMeta ? audio + metadata <= fed : audio == fed);
        FUZZ_CHECK(demuxer.held() == 0);
    } catch (const NamedException&) {
        // A lost sync is the one failure; it leaves nothing behind.
        FUZZ_CHECK(hasMeta && demuxer.held() == 0);
    }
    return 0;
}
