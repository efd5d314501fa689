#include "engine/TinyID3.h"

#include <algorithm>
#include <cstring>

#include "platform/Resources.h"
#include "platform/TextUtil.h"

namespace quillon {

namespace {

void fillSlot(Bytes& tag, std::size_t offset, std::string_view value) {
    std::string_view cut = utf8Prefix(value, TinyID3::kSlotSize);
    std::uint8_t* slot = tag.data() + offset;
    if (!cut.empty()) std::memcpy(slot, cut.data(), cut.size());
    std::memset(slot + cut.size(), 0, TinyID3::kSlotSize - cut.size());
}

}  // namespace

Bytes TinyID3::createtagwithArtist(std::string_view artist, std::string_view trackName,
                                   std::string_view album, std::string_view style, std::string_view comment) {
    auto templateBytes = resource("extag.txt");
    if (!templateBytes || templateBytes->size() < kCommentOffset + kSlotSize) return {};
    Bytes tag(asBytes(*templateBytes).begin(), asBytes(*templateBytes).end());
    fillSlot(tag, kTrackNameOffset, trackName);
    fillSlot(tag, kArtistOffset, artist);
    fillSlot(tag, kAlbumOffset, album);
    fillSlot(tag, kStyleOffset, style);
    fillSlot(tag, kCommentOffset, comment);
    return tag;
}

std::size_t TinyID3::tagSize() {
    static const std::size_t size = createtagwithArtist("", "", "", "", "").size();
    return size;
}

bool TinyID3::updateFile(FileHandle& file, std::string_view trackName) const {
    std::string_view artist, title;
    if (!separator_.empty()) {
        std::size_t at = trackName.find(separator_);
        if (at != std::string_view::npos) {
            artist = trackName.substr(0, at);
            title = trackName.substr(at + separator_.size());
        }
    }
    if (title.empty()) title = trackName;
    Bytes tag = createtagwithArtist(artist, title, "", genre_, kComment);
    if (tag.empty()) return false;
    return file.writeAll(tag);
}

}  // namespace quillon
