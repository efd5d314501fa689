#pragma once
// Wraps a station's stream in HTTP/1.1 chunked transfer encoding. The chunk
// sizes run through a fixed cycle of small and odd lengths and every third size
// line carries an extension, so that chunk boundaries fall everywhere in the
// stream: inside audio, inside metadata blocks and on their length bytes. The
// cycle is deterministic: the same stream is always chunked the same way.
//
// Pure byte production, no I/O; one client thread uses one writer.
#include <cstddef>
#include <span>
#include <string>

#include "platform/ByteBuffer.h"

namespace quillon {

class ChunkWriter {
public:
    // Appends `payload` to `out` as one or more chunks (nothing for an empty payload).
    void append(std::span<const std::uint8_t> payload, Bytes& out);
    // The zero chunk with one trailer and the final blank line: the end of the body.
    static std::string lastChunk();
    // A size line no decoder can take ("zz"), for staging a broken server.
    static std::string badChunk();

private:
    std::size_t next_ = 0;  // position in the size cycle
};

}  // namespace quillon
