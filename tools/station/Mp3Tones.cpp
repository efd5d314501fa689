#include "station/Mp3Tones.h"

#include <lame/lame.h>

#include <array>
#include <cmath>
#include <map>
#include <mutex>
#include <numbers>
#include <stdexcept>

namespace quillon {

namespace {

// About two seconds per loop; the first and last frames carry the encoder's
// start-up and flush silence, which would click on every loop, so they are cut.
constexpr std::size_t loopFrames = 76;
constexpr std::size_t edgeFrames = 3;
constexpr std::size_t samplesPerFrame = 1152;

struct LameHandle {
    lame_global_flags* flags = lame_init();
    ~LameHandle() {
        if (flags) lame_close(flags);
    }
    LameHandle() = default;
    LameHandle(const LameHandle&) = delete;
    LameHandle& operator=(const LameHandle&) = delete;
};

}  // namespace

double Mp3Tones::frequency(std::size_t tone) {
    // Whole steps upwards from A3, far enough apart for a decoder test to tell them apart.
    return 220.0 * std::pow(2.0, static_cast<double>(tone % toneCount) * 2.0 / 12.0);
}

std::optional<std::size_t> Mp3Tones::frameLength(std::span<const std::uint8_t> bytes) {
    static constexpr std::array<int, 16> kbps{0,   32,  40,  48,  56,  64,  80,  96,
                                              112, 128, 160, 192, 224, 256, 320, -1};
    static constexpr std::array<int, 4> rates{44100, 48000, 32000, -1};
    if (bytes.size() < 4) return std::nullopt;
    // Sync, MPEG-1 (version bits 11), Layer III (layer bits 01).
    if (bytes[0] != 0xFF || (bytes[1] & 0xFE) != 0xFA) return std::nullopt;
    const int rate = kbps[bytes[2] >> 4];
    const int sampling = rates[(bytes[2] >> 2) & 0x3];
    if (rate <= 0 || sampling < 0) return std::nullopt;
    const int padding = (bytes[2] >> 1) & 0x1;
    return static_cast<std::size_t>(144 * rate * 1000 / sampling + padding);
}

Mp3Tones::Loop Mp3Tones::splitFrames(std::span<const std::uint8_t> stream) {
    Loop frames;
    std::size_t pos = 0;
    while (pos < stream.size()) {
        const auto length = frameLength(stream.subspan(pos));
        if (!length || pos + *length > stream.size()) {
            throw std::runtime_error("encoder output is not whole MPEG-1 Layer III frames at byte " +
                                     std::to_string(pos));
        }
        frames.emplace_back(stream.begin() + pos, stream.begin() + pos + *length);
        pos += *length;
    }
    return frames;
}

Mp3Tones::Loop Mp3Tones::encodeTone(std::uint32_t kbps, double hz) {
    LameHandle lame;
    if (!lame.flags) throw std::runtime_error("lame_init failed");
    lame_set_in_samplerate(lame.flags, sampleRate);
    lame_set_out_samplerate(lame.flags, sampleRate);
    lame_set_num_channels(lame.flags, 1);
    lame_set_mode(lame.flags, MONO);
    lame_set_brate(lame.flags, static_cast<int>(kbps));
    lame_set_VBR(lame.flags, vbr_off);
    lame_set_bWriteVbrTag(lame.flags, 0);
    lame_set_disable_reservoir(lame.flags, 1);
    lame_set_quality(lame.flags, 7);
    if (lame_init_params(lame.flags) < 0) {
        throw std::runtime_error("lame refuses " + std::to_string(kbps) + " kbit/s");
    }

    const std::size_t samples = (loopFrames + 2 * edgeFrames) * samplesPerFrame;
    std::vector<short> pcm(samples);
    for (std::size_t i = 0; i < samples; ++i) {
        const double phase = 2.0 * std::numbers::pi * hz * static_cast<double>(i) / sampleRate;
        pcm[i] = static_cast<short>(std::lround(12000.0 * std::sin(phase)));
    }
    Bytes out(samples * 5 / 4 + 7200 + 16384);
    const int written = lame_encode_buffer(lame.flags, pcm.data(), nullptr, static_cast<int>(samples),
                                           out.data(), static_cast<int>(out.size()));
    if (written < 0) throw std::runtime_error("lame_encode_buffer failed: " + std::to_string(written));
    const int flushed =
        lame_encode_flush(lame.flags, out.data() + written, static_cast<int>(out.size()) - written);
    if (flushed < 0) throw std::runtime_error("lame_encode_flush failed: " + std::to_string(flushed));

    Loop frames = splitFrames(std::span(out.data(), static_cast<std::size_t>(written + flushed)));
    if (frames.size() < loopFrames + 2 * edgeFrames) {
        throw std::runtime_error("lame produced only " + std::to_string(frames.size()) + " frames");
    }
    return Loop(frames.begin() + edgeFrames, frames.begin() + edgeFrames + loopFrames);
}

std::shared_ptr<const Mp3Tones::Loops> Mp3Tones::loops(std::uint32_t kbps) {
    static std::mutex mutex;
    static std::map<std::uint32_t, std::shared_ptr<const Loops>> cache;
    std::lock_guard lock(mutex);
    auto& entry = cache[kbps];
    if (!entry) {
        auto made = std::make_shared<Loops>();
        for (std::size_t tone = 0; tone < toneCount; ++tone)
            made->push_back(encodeTone(kbps, frequency(tone)));
        entry = std::move(made);
    }
    return entry;
}

}  // namespace quillon
