#pragma once
// A growable byte buffer that is consumed from the front (the stream's receive
// buffer, the writer's delay line, the relay buffer). Taking bytes off the front
// only advances an offset; the storage is compacted when the dead prefix exceeds
// the live bytes, so a block-by-block consumer never moves the whole contents per
// block. Not thread-safe: owners lock around it.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quillon {

using Bytes = std::vector<std::uint8_t>;

class ByteBuffer {
public:
    ByteBuffer() = default;
    explicit ByteBuffer(std::span<const std::uint8_t> bytes) { append(bytes); }

    std::size_t size() const { return data_.size() - head_; }
    bool empty() const { return size() == 0; }
    const std::uint8_t* data() const { return data_.data() + head_; }
    std::span<const std::uint8_t> bytes() const { return {data(), size()}; }
    std::string_view view() const { return {reinterpret_cast<const char*>(data()), size()}; }
    std::uint8_t operator[](std::size_t i) const { return data_[head_ + i]; }

    void append(std::span<const std::uint8_t> bytes);
    void append(std::string_view text);
    void clear();
    void reserve(std::size_t n) { data_.reserve(head_ + n); }

    // Removes the first n bytes and returns them. Raises NamedException
    // "not enough data" when the buffer holds fewer than n bytes.
    Bytes getBytes(std::size_t n);
    // Like getBytes, but into the caller's storage (no allocation on the hot path).
    void getBytesInto(std::size_t n, Bytes& out);
    // Removes the first n bytes without returning them (same failure rule).
    void dropFront(std::size_t n);

private:
    void requireAtLeast(std::size_t n) const;
    void compactIfWorthIt();

    std::vector<std::uint8_t> data_;
    std::size_t head_ = 0;
};

inline std::span<const std::uint8_t> asBytes(std::string_view s) {
    return {reinterpret_cast<const std::uint8_t*>(s.data()), s.size()};
}
inline std::string_view asText(std::span<const std::uint8_t> b) {
    return {reinterpret_cast<const char*>(b.data()), b.size()};
}

}  // namespace quillon
