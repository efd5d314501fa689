#include "station/AudioSource.h"

#include <algorithm>

#include "station/AssetTones.h"

namespace quillon {

AudioSource::AudioSource(StationPayload payload, std::uint32_t kbps) : payload_(payload) {
    switch (payload_) {
        case StationPayload::mp3:
            loops_ = Mp3Tones::loops(kbps);
            break;
        case StationPayload::aac:
            loops_ = AssetTones::aac();
            break;
        case StationPayload::ogg:
            loops_ = AssetTones::ogg();
            break;
        case StationPayload::counter:
            break;
    }
}

void AudioSource::setTone(std::size_t tone) { nextTone_ = loops_ ? tone % loops_->size() : 0; }

void AudioSource::fill(std::span<std::uint8_t> out) {
    if (payload_ == StationPayload::counter) {
        for (auto& byte : out) byte = counterByte(offset_++);
        return;
    }
    std::size_t done = 0;
    while (done < out.size()) {
        if (inFrame_ == 0 && nextTone_ != tone_) {
            tone_ = nextTone_;
            frame_ = 0;
        }
        const Mp3Tones::Loop& loop = (*loops_)[tone_];
        const Bytes& frame = loop[frame_];
        const std::size_t n = std::min(frame.size() - inFrame_, out.size() - done);
        std::copy_n(frame.begin() + static_cast<std::ptrdiff_t>(inFrame_), n,
                    out.begin() + static_cast<std::ptrdiff_t>(done));
        done += n;
        inFrame_ += n;
        if (inFrame_ == frame.size()) {
            inFrame_ = 0;
            frame_ = (frame_ + 1) % loop.size();
        }
    }
    offset_ += out.size();
}

}  // namespace quillon
