#include "platform/ByteBuffer.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>

#include "platform/NamedException.h"

namespace quillon {

void ByteBuffer::append(std::span<const std::uint8_t> bytes) {
    if (bytes.empty()) return;
    data_.insert(data_.end(), bytes.begin(), bytes.end());
}

void ByteBuffer::append(std::string_view text) { append(asBytes(text)); }

void ByteBuffer::clear() {
    data_.clear();
    head_ = 0;
}

void ByteBuffer::requireAtLeast(std::size_t n) const {
    if (n > size())
        throw NamedException("not enough data",
                             fmt::format("trying to get {} bytes, only {} bytes in data object", n, size()));
}

Bytes ByteBuffer::getBytes(std::size_t n) {
    Bytes out;
    getBytesInto(n, out);
    return out;
}

void ByteBuffer::getBytesInto(std::size_t n, Bytes& out) {
    requireAtLeast(n);
    out.assign(data(), data() + n);
    head_ += n;
    compactIfWorthIt();
}

void ByteBuffer::dropFront(std::size_t n) {
    requireAtLeast(n);
    head_ += n;
    compactIfWorthIt();
}

void ByteBuffer::compactIfWorthIt() {
    if (head_ == data_.size()) {
        data_.clear();
        head_ = 0;
    } else if (head_ >= 65536 && head_ > size()) {
        // Moving the live bytes costs no more than what was consumed since the
        // last compaction, so the cost per consumed byte stays constant.
        std::memmove(data_.data(), data_.data() + head_, size());
        data_.resize(size());
        head_ = 0;
    }
}

}  // namespace quillon
