#include "station/AssetTones.h"

#include <mutex>
#include <stdexcept>
#include <string>

#include "platform/Resources.h"

namespace quillon {

namespace {

constexpr std::size_t kAacTones = 4;
// The encoder's priming and flush frames would click at every loop.
constexpr std::size_t kEdgeFrames = 2;

std::span<const std::uint8_t> asset(const std::string& name) {
    const auto bytes = resource(name);
    if (!bytes || bytes->empty()) throw std::runtime_error("station asset missing: " + name);
    return {reinterpret_cast<const std::uint8_t*>(bytes->data()), bytes->size()};
}

Mp3Tones::Loop adtsFrames(const std::string& name) {
    const auto bytes = asset(name);
    Mp3Tones::Loop frames;
    for (std::size_t pos = 0; pos < bytes.size();) {
        const auto length = AssetTones::adtsFrameLength(bytes.subspan(pos));
        if (!length || pos + *length > bytes.size())
            throw std::runtime_error(name + " is not whole ADTS frames at byte " + std::to_string(pos));
        frames.emplace_back(bytes.begin() + pos, bytes.begin() + pos + *length);
        pos += *length;
    }
    if (frames.size() <= 2 * kEdgeFrames) throw std::runtime_error(name + " holds too few frames");
    return Mp3Tones::Loop(frames.begin() + kEdgeFrames, frames.end() - kEdgeFrames);
}

}  // namespace

std::optional<std::size_t> AssetTones::adtsFrameLength(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < 7 || bytes[0] != 0xFF || (bytes[1] & 0xF6) != 0xF0) return std::nullopt;
    const std::size_t length = ((bytes[3] & 0x03u) << 11) | (bytes[4] << 3) | (bytes[5] >> 5);
    return length > 7 ? std::optional(length) : std::nullopt;
}

std::shared_ptr<const Mp3Tones::Loops> AssetTones::aac() {
    static std::mutex mutex;
    static std::shared_ptr<const Mp3Tones::Loops> loops;
    std::lock_guard lock(mutex);
    if (!loops) {
        auto made = std::make_shared<Mp3Tones::Loops>();
        for (std::size_t k = 0; k < kAacTones; ++k)
            made->push_back(adtsFrames("aac-tone-" + std::to_string(k) + ".aac"));
        loops = std::move(made);
    }
    return loops;
}

std::shared_ptr<const Mp3Tones::Loops> AssetTones::ogg() {
    static std::mutex mutex;
    static std::shared_ptr<const Mp3Tones::Loops> loops;
    std::lock_guard lock(mutex);
    if (!loops) {
        const auto bytes = asset("ogg-tone.ogg");
        if (bytes.size() < 4 || std::string(bytes.begin(), bytes.begin() + 4) != "OggS")
            throw std::runtime_error("ogg-tone.ogg does not begin with an Ogg page");
        loops = std::make_shared<Mp3Tones::Loops>(Mp3Tones::Loops{{Bytes(bytes.begin(), bytes.end())}});
    }
    return loops;
}

}  // namespace quillon
