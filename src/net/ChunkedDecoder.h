#pragma once
// Undoes HTTP/1.1 chunked transfer encoding: wire bytes in, the payload out.
// Servers that answer "HTTP/1.1 200" may send the stream in chunks; the meta
// interval counts payload bytes only, so the chunk framing must be gone before
// the stream is cut into audio and metadata. A chunk boundary may fall
// anywhere: the decoder keeps its place between calls, byte by byte.
//
// Pure: no I/O. Every size it takes from the wire is bounded: a chunk of more
// than kMaxChunkSize, a size or extension line longer than kMaxLineBytes and
// trailers longer than kMaxTrailerBytes make the stream malformed, as does any
// byte out of place. A malformed stream stays malformed (error() says why);
// nothing more is decoded from it.
//
// Thread contract: none; one thread at a time (the connection's).
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/ByteBuffer.h"

namespace quillon {

class ChunkedDecoder {
public:
    static constexpr std::uint64_t kMaxChunkSize = 16 * 1024 * 1024;
    static constexpr std::size_t kMaxLineBytes = 4096;
    static constexpr std::size_t kMaxTrailerBytes = 16384;

    enum class Status {
        Open,       // more chunks may follow
        Ended,      // the last (zero) chunk and its trailers have arrived
        Malformed,  // framing broken; see error()
    };

    // Decodes `wire` and appends the payload to `out`. Bytes after the end of
    // the stream are ignored and counted in ignoredAfterEnd().
    Status decode(std::span<const std::uint8_t> wire, Bytes& out);

    Status status() const { return status_; }
    const std::string& error() const { return error_; }
    std::uint64_t ignoredAfterEnd() const { return ignoredAfterEnd_; }

private:
    enum class Step { Size, SizeBlank, Extension, SizeLf, Data, DataCr, DataLf, Trailer, TrailerLf };

    Status fail(std::string why);

    Step step_ = Step::Size;
    Status status_ = Status::Open;
    std::string error_;
    std::uint64_t size_ = 0;       // of the chunk being read
    std::uint64_t remaining_ = 0;  // payload bytes of it still to come
    std::size_t digits_ = 0;
    std::size_t lineBytes_ = 0;     // of the size line so far
    std::size_t trailerBytes_ = 0;  // of all trailers so far
    std::size_t trailerLine_ = 0;   // of the current trailer line
    std::uint64_t ignoredAfterEnd_ = 0;
};

}  // namespace quillon
