#include "net/ChunkedDecoder.h"

#include <algorithm>

#include <fmt/format.h>

namespace quillon {

namespace {

int hexDigit(std::uint8_t c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string shown(std::uint8_t c) {
    return c >= 0x20 && c < 0x7F ? fmt::format("'{}'", static_cast<char>(c)) : fmt::format("0x{:02X}", c);
}

}  // namespace

ChunkedDecoder::Status ChunkedDecoder::fail(std::string why) {
    status_ = Status::Malformed;
    error_ = "Malformed chunked stream: " + std::move(why);
    return status_;
}

ChunkedDecoder::Status ChunkedDecoder::decode(std::span<const std::uint8_t> wire, Bytes& out) {
    std::size_t i = 0;
    while (i < wire.size() && status_ == Status::Open) {
        if (step_ == Step::Data) {
            // The payload goes through whole, not byte by byte.
            const auto n = static_cast<std::size_t>(std::min<std::uint64_t>(remaining_, wire.size() - i));
            out.insert(out.end(), wire.begin() + static_cast<std::ptrdiff_t>(i),
                       wire.begin() + static_cast<std::ptrdiff_t>(i + n));
            i += n;
            remaining_ -= n;
            if (remaining_ == 0) step_ = Step::DataCr;
            continue;
        }
        const std::uint8_t c = wire[i++];
        if (step_ == Step::Size || step_ == Step::SizeBlank || step_ == Step::Extension) {
            if (++lineBytes_ > kMaxLineBytes) return fail("chunk size line too long");
        }
        switch (step_) {
            case Step::Size: {
                const int d = hexDigit(c);
                if (d >= 0) {
                    size_ = size_ * 16 + static_cast<unsigned>(d);
                    ++digits_;
                    if (size_ > kMaxChunkSize)
                        return fail(fmt::format("chunk larger than {} bytes", kMaxChunkSize));
                    break;
                }
                if (digits_ == 0) return fail("chunk size expected, got " + shown(c));
                if (c == ' ' || c == '\t')
                    step_ = Step::SizeBlank;
                else if (c == ';')
                    step_ = Step::Extension;
                else if (c == '\r')
                    step_ = Step::SizeLf;
                else
                    return fail("chunk size followed by " + shown(c));
                break;
            }
            case Step::SizeBlank:
                if (c == ';')
                    step_ = Step::Extension;
                else if (c == '\r')
                    step_ = Step::SizeLf;
                else if (c != ' ' && c != '\t')
                    return fail("chunk size followed by " + shown(c));
                break;
            case Step::Extension:
                // Extensions (";name=value") carry nothing a recorder needs.
                if (c == '\r') step_ = Step::SizeLf;
                if (c == '\n') return fail("bare line feed in a chunk extension");
                break;
            case Step::SizeLf:
                if (c != '\n') return fail("chunk size line not ended by CRLF");
                remaining_ = size_;
                if (size_ == 0) {
                    step_ = Step::Trailer;
                    trailerLine_ = 0;
                } else {
                    step_ = Step::Data;
                }
                size_ = 0;
                digits_ = 0;
                lineBytes_ = 0;
                break;
            case Step::DataCr:
                if (c != '\r') return fail("chunk data not followed by CRLF, got " + shown(c));
                step_ = Step::DataLf;
                break;
            case Step::DataLf:
                if (c != '\n') return fail("chunk data not followed by CRLF, got " + shown(c));
                step_ = Step::Size;
                break;
            case Step::Trailer:
                if (++trailerBytes_ > kMaxTrailerBytes) return fail("trailers too long");
                if (c == '\r') {
                    step_ = Step::TrailerLf;
                } else if (c == '\n') {
                    return fail("bare line feed in the trailers");
                } else {
                    ++trailerLine_;
                }
                break;
            case Step::TrailerLf:
                if (c != '\n') return fail("trailer line not ended by CRLF");
                // An empty line ends the trailers, and with them the stream.
                if (trailerLine_ == 0) {
                    status_ = Status::Ended;
                } else {
                    trailerLine_ = 0;
                    step_ = Step::Trailer;
                }
                break;
            case Step::Data:
                break;
        }
    }
    if (status_ == Status::Ended) ignoredAfterEnd_ += wire.size() - i;
    return status_;
}

}  // namespace quillon
