#pragma once
// The bytes of one client stream after its header: audio cut into blocks of the
// meta interval, each followed by a metadata block, in the order TitlePlan
// describes, ending after the close-after limit when one is set (right after the
// last audio byte, before any metadata block that would follow it).
//
// Pure byte production, no I/O; one client thread uses one generator.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/ByteBuffer.h"
#include "station/AudioSource.h"
#include "station/StationOptions.h"
#include "station/TitlePlan.h"

namespace quillon {

class StreamGenerator {
public:
    // `withMetadata`: the client asked for metadata and the station has a meta interval.
    StreamGenerator(const StationOptions& options, bool withMetadata);

    // Appends the next stretch of the stream to `out`: at most `maxAudio` audio
    // bytes and the metadata blocks between them. Returns the audio bytes added
    // (0 once the stream has ended).
    std::size_t produce(Bytes& out, std::size_t maxAudio);

    bool ended() const;
    std::uint64_t audioOffset() const { return audio_.offset(); }
    const std::vector<TitleAnnouncement>& announcements() const { return announcements_; }

private:
    void appendMetadata(Bytes& out);

    const StationOptions& options_;
    TitlePlan plan_;
    AudioSource audio_;
    std::uint32_t metaint_;
    std::uint32_t inBlock_ = 0;  // audio bytes of the current block already produced
    std::optional<std::uint32_t> lastAnnounced_;
    std::vector<TitleAnnouncement> announcements_;
};

}  // namespace quillon
