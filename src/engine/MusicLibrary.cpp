#include "engine/MusicLibrary.h"

#include "engine/TrackName.h"

namespace quillon {

namespace {
constexpr std::string_view kExtension = ".m3u8";
}

std::string MusicLibrary::safePlaylistName(std::string_view name) {
    const std::size_t start = name.find_first_not_of(". ");
    name = start == std::string_view::npos ? std::string_view{} : name.substr(start);
    std::string file = fileNameForTrack(name, "Quillon", kExtension);
    file.resize(file.size() - kExtension.size());
    return file;
}

}  // namespace quillon
