#pragma once
// Cuts a received ICY stream into audio blocks and the metadata that follows
// each one. Pure: bytes in, blocks out; no I/O, no clock, no locks, so it is
// tested and fuzzed directly over byte tables.
//
// A block of `blockSize` audio bytes is cut only while a lookahead of 16 KiB
// stays behind it: that guarantees a whole metadata block (at most 255 x 16
// bytes) follows. At the end of a stream `nextAtEnd` cuts what is left
// without the lookahead, so that no received audio is left behind.
//
// Thread contract: none; its owner locks around it.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/ByteBuffer.h"

namespace quillon {

class IcyDemuxer {
public:
    static constexpr std::size_t kLookahead = 16384;

    enum class Metadata {
        None,   // the stream carries no metadata
        Empty,  // a length byte of 0
        Block,  // a metadata block of length x 16 bytes
    };

    // One audio block and what followed it. The spans point into the
    // demuxer's storage and stay valid until the next call that changes it.
    struct Block {
        std::span<const std::uint8_t> audio;
        Metadata metadata = Metadata::None;
        std::span<const std::uint8_t> metadataBytes;
    };

    // `blockSize` audio bytes per block (the meta interval, or 8192 without
    // metadata; must not be 0); `hasMeta`: a length byte follows each block.
    IcyDemuxer(std::size_t blockSize, bool hasMeta);

    void append(std::span<const std::uint8_t> bytes);
    // The next whole block, or nothing while fewer than blockSize + lookahead
    // bytes are held. A length byte of 128 or more raises "Error getting
    // fileName" ("Error getting name : stream sync failed") and drops what is
    // held: nothing after a lost sync can be cut reliably.
    std::optional<Block> next();
    // Like next, but without the lookahead: at the stream's end. The last
    // block may be short; a metadata block cut off by the end is dropped.
    std::optional<Block> nextAtEnd();

    std::size_t held() const { return buffer_.size(); }
    std::size_t blockSize() const { return blockSize_; }
    bool hasMeta() const { return hasMeta_; }
    void clear() { buffer_.clear(); }

private:
    std::optional<Block> cut(std::size_t audioBytes, bool atEnd);

    std::size_t blockSize_;
    bool hasMeta_;
    ByteBuffer buffer_;
    Bytes audio_;
    Bytes metadata_;
};

}  // namespace quillon
