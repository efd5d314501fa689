#include "station/StreamGenerator.h"

#include <algorithm>

namespace quillon {

StreamGenerator::StreamGenerator(const StationOptions& options, bool withMetadata)
    : options_(options),
      plan_(options),
      audio_(options.payload, options.bitrate),
      metaint_(withMetadata ? options.metaint : 0) {}

bool StreamGenerator::ended() const { return options_.closeAfter && audio_.offset() >= *options_.closeAfter; }

std::size_t StreamGenerator::produce(Bytes& out, std::size_t maxAudio) {
    std::size_t produced = 0;
    while (produced < maxAudio && !ended()) {
        if (metaint_ > 0 && inBlock_ == metaint_) {
            appendMetadata(out);
            inBlock_ = 0;
        }
        std::uint64_t n = maxAudio - produced;
        if (metaint_ > 0) n = std::min<std::uint64_t>(n, metaint_ - inBlock_);
        if (options_.closeAfter) n = std::min(n, *options_.closeAfter - audio_.offset());
        const std::size_t start = out.size();
        out.resize(start + n);
        audio_.fill(std::span(out).subspan(start));
        produced += n;
        inBlock_ += static_cast<std::uint32_t>(metaint_ > 0 ? n : 0);
    }
    return produced;
}

void StreamGenerator::appendMetadata(Bytes& out) {
    Bytes block;
    switch (options_.emptyTitles) {
        case EmptyTitles::zeroLength:
            block = TitlePlan::metadataBlock("");
            break;
        case EmptyTitles::blank:
            block = TitlePlan::metadataBlock(TitlePlan::metadataText(""));
            break;
        case EmptyTitles::urlOnly:
            block = TitlePlan::metadataBlock("StreamUrl='http://127.0.0.1/';");
            break;
        case EmptyTitles::none: {
            const std::uint64_t boundary = audio_.offset();
            if (const auto index = plan_.announcementAt(boundary, lastAnnounced_)) {
                const bool bad = options_.badMetaAt && *options_.badMetaAt <= *index &&
                                 (!lastAnnounced_ || *lastAnnounced_ < *options_.badMetaAt);
                const std::string title = plan_.title(*index);
                block = TitlePlan::metadataBlock(TitlePlan::metadataText(plan_.wireTitle(*index)),
                                                 bad ? 0x80 : 0);
                announcements_.push_back({boundary, *index, title});
                lastAnnounced_ = index;
                audio_.setTone(*index);
            } else if (options_.repeatTitle) {
                block = TitlePlan::metadataBlock(TitlePlan::metadataText(plan_.wireTitle(*lastAnnounced_)));
            } else {
                block = TitlePlan::metadataBlock("");
            }
            break;
        }
    }
    out.insert(out.end(), block.begin(), block.end());
}

}  // namespace quillon
