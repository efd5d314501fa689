#include "station/ChunkWriter.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

namespace quillon {

namespace {

// Primes and near-powers of two, so that the boundaries drift against any
// meta interval.
constexpr std::array<std::size_t, 9> kSizes{1, 2, 3, 5, 17, 255, 1000, 4093, 9001};

}  // namespace

void ChunkWriter::append(std::span<const std::uint8_t> payload, Bytes& out) {
    while (!payload.empty()) {
        const std::size_t size = std::min(kSizes[next_ % kSizes.size()], payload.size());
        const std::string line =
            next_ % 3 == 2 ? fmt::format("{:x};x=y\r\n", size) : fmt::format("{:X}\r\n", size);
        ++next_;
        out.insert(out.end(), line.begin(), line.end());
        out.insert(out.end(), payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(size));
        out.push_back('\r');
        out.push_back('\n');
        payload = payload.subspan(size);
    }
}

std::string ChunkWriter::lastChunk() { return "0\r\nX-Stream-End: yes\r\n\r\n"; }

std::string ChunkWriter::badChunk() { return "zz\r\n"; }

}  // namespace quillon
