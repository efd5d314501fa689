#pragma once
// The deterministic title rule of the station, shared by every client stream and
// by tests that must know exactly where each title begins.
//
// Audio is cut into blocks of `metaint` bytes; after each block comes one metadata
// block. Title j (counting from 0) is due from audio byte j * titleEvery on; it is
// announced in the metadata block that follows the audio block holding that byte,
// so title j is announced at audio offset (floor(j * titleEvery / metaint) + 1) *
// metaint. When several titles fall due within one block, only the last is
// announced. The audio after an announcement belongs to the announced title.
//
// Pure and immutable: any thread.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ByteBuffer.h"
#include "station/StationOptions.h"

namespace quillon {

struct TitleAnnouncement {
    std::uint64_t audioOffset = 0;  // audio bytes sent before this metadata block
    std::uint32_t index = 0;        // title index j
    std::string title;
    bool operator==(const TitleAnnouncement&) const = default;
};

class TitlePlan {
public:
    // A metadata block holds at most 127 * 16 bytes: the length byte stays below 128.
    static constexpr std::size_t maxMetadataBytes = 127 * 16;

    explicit TitlePlan(const StationOptions& options);

    // The text of title j: from the list (cycling), else "Artist N - Title N" with N = j + 1.
    std::string title(std::uint32_t index) const;
    // The bytes of title j as sent: in the station's title encoding.
    std::string wireTitle(std::uint32_t index) const;
    // The index of the title due at audio byte `byteOffset`: byteOffset / titleEvery.
    std::uint32_t dueIndex(std::uint64_t byteOffset) const;
    // The title to announce at a block boundary (an audio offset above 0: the
    // title due at the block's last byte), given the last one announced.
    std::optional<std::uint32_t> announcementAt(std::uint64_t boundary,
                                                std::optional<std::uint32_t> lastAnnounced) const;
    // Every announcement a metadata-enabled client receives up to and including
    // the block boundary at `audioBytes` (empty without metadata or with empty titles).
    std::vector<TitleAnnouncement> schedule(std::uint64_t audioBytes) const;

    // "StreamTitle='TITLE';StreamUrl='';"
    static std::string metadataText(std::string_view title);
    // The length byte L and L * 16 bytes: `text` padded with zeros. With
    // `lengthFlag` (0x80) added to L the block claims 128 more sixteen-byte units
    // and is padded to match, so a lenient reader still stays in step.
    static Bytes metadataBlock(std::string_view text, std::uint8_t lengthFlag = 0);

private:
    std::uint32_t metaint_;
    std::uint64_t titleEvery_;
    std::vector<std::string> titles_;
    std::vector<std::string> wireTitles_;
    bool titlesWithheld_;
};

}  // namespace quillon
