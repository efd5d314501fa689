#pragma once
// The ID3v2.4 tag at the head of every new track file: the template resource
// "extag.txt" with its five fixed-size UTF-8 text slots (title, artist, album,
// genre, comment) overwritten, so every tag has the same size and never grows.
//
// Thread contract: an instance is used by one thread at a time (the connection
// thread that creates the track file); createtagwithArtist is pure.
#include <cstddef>
#include <string>
#include <string_view>

#include "platform/ByteBuffer.h"
#include "platform/FileHandle.h"
#include "platform/VoObject.h"

namespace quillon {

class TinyID3 : public VoObject {
public:
    static constexpr std::size_t kSlotSize = 128;
    static constexpr std::size_t kTrackNameOffset = 21;
    static constexpr std::size_t kArtistOffset = 161;
    static constexpr std::size_t kAlbumOffset = 301;
    static constexpr std::size_t kStyleOffset = 441;
    static constexpr std::size_t kCommentOffset = 585;
    static constexpr const char* kComment = "Recorded by Quillon for Mac OS X";

    TinyID3() = default;

    const std::string& genre() const { return genre_; }
    void setGenre(std::string genre) { genre_ = std::move(genre); }
    const std::string& separator() const { return separator_; }
    void setSeparator(std::string separator) { separator_ = std::move(separator); }

    // Writes the tag for the track name at the handle's position (the start of
    // a new, empty file). The artist is the text ahead of the first separator,
    // the title the text behind it; without a separator (or nothing behind it)
    // the title is the whole name. False when there is no template or the write
    // failed; the file then simply begins with the audio.
    bool updateFile(FileHandle& file, std::string_view trackName) const;

    // The size of every tag (that of the template); 0 without one.
    static std::size_t tagSize();

    // The filled template. Each value is cut to its slot at the last whole UTF-8
    // character, shorter ones are zero-filled. Empty when the template is missing
    // or too short for the slots.
    static Bytes createtagwithArtist(std::string_view artist, std::string_view trackName,
                                     std::string_view album, std::string_view style,
                                     std::string_view comment);

private:
    std::string genre_;
    std::string separator_;
};

}  // namespace quillon
