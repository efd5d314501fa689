#include "engine/IcyDemuxer.h"

#include <algorithm>

#include "platform/NamedException.h"

namespace quillon {

IcyDemuxer::IcyDemuxer(std::size_t blockSize, bool hasMeta) : blockSize_(blockSize), hasMeta_(hasMeta) {}

void IcyDemuxer::append(std::span<const std::uint8_t> bytes) { buffer_.append(bytes); }

std::optional<IcyDemuxer::Block> IcyDemuxer::next() {
    if (buffer_.size() < blockSize_ + kLookahead) return std::nullopt;
    return cut(blockSize_, false);
}

std::optional<IcyDemuxer::Block> IcyDemuxer::nextAtEnd() {
    if (buffer_.empty()) return std::nullopt;
    return cut(std::min(blockSize_, buffer_.size()), true);
}

std::optional<IcyDemuxer::Block> IcyDemuxer::cut(std::size_t audioBytes, bool atEnd) {
    buffer_.getBytesInto(audioBytes, audio_);
    Block block;
    block.audio = audio_;
    if (!hasMeta_ || (atEnd && buffer_.empty())) return block;
    const auto length = static_cast<std::int8_t>(buffer_[0]);
    if (length < 0) {
        // What follows a lost sync cannot be told apart into audio and metadata.
        buffer_.clear();
        throw NamedException("Error getting fileName", "Error getting name : stream sync failed");
    }
    buffer_.dropFront(1);
    const auto metaBytes = static_cast<std::size_t>(length) * 16;
    if (metaBytes == 0) {
        block.metadata = Metadata::Empty;
        return block;
    }
    if (atEnd && buffer_.size() < metaBytes) {
        buffer_.clear();
        return block;
    }
    buffer_.getBytesInto(metaBytes, metadata_);
    block.metadata = Metadata::Block;
    block.metadataBytes = metadata_;
    return block;
}

}  // namespace quillon
