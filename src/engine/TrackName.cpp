#include "engine/TrackName.h"

#include "platform/TextUtil.h"

namespace quillon {

namespace {

// Used when both the title and the fallback leave nothing.
constexpr std::string_view kLastResort = "untitled";

// Drops NUL bytes (they end a path early) and turns "/" into "_", as the
// standard filter does, for names that did not pass through it. Control
// characters (C0, DEL and, in UTF-8, C1) become blanks: a title's escape
// sequences must not reach a listing of the folder.
std::string cleaned(std::string_view name) {
    std::string out;
    out.reserve(name.size());
    for (std::size_t i = 0; i < name.size(); ++i) {
        const auto c = static_cast<unsigned char>(name[i]);
        if (c == 0) continue;
        if (c < 0x20 || c == 0x7f) {
            out += ' ';
        } else if (c == 0xc2 && i + 1 < name.size() && static_cast<unsigned char>(name[i + 1]) >= 0x80 &&
                   static_cast<unsigned char>(name[i + 1]) <= 0x9f) {
            out += ' ';
            ++i;
        } else {
            out += c == '/' ? '_' : name[i];
        }
    }
    return out;
}

// Only blanks and dots: empty, ".", ".." or a name no listing would show.
bool unusable(std::string_view name) { return name.find_first_not_of(" .") == std::string_view::npos; }

std::string fitted(std::string_view name, std::string_view fallback, std::size_t maxBytes) {
    for (std::string_view candidate : {name, fallback, kLastResort}) {
        std::string clean = cleaned(candidate);
        std::string shortened(utf8Prefix(clean, maxBytes));
        // Shortening can leave a name of blanks and dots only; that is no name.
        if (!unusable(shortened)) return shortened;
    }
    return std::string(kLastResort);
}

}  // namespace

std::string fileNameForTrack(std::string_view filteredName, std::string_view fallback,
                             std::string_view extension) {
    std::size_t room = extension.size() < kMaxFileNameBytes ? kMaxFileNameBytes - extension.size() : 1;
    return fitted(filteredName, fallback, room) + std::string(extension);
}

std::string numberedFileName(std::string_view fileName, int copy) {
    if (copy < 2) return std::string(fileName);
    std::size_t dot = fileName.rfind('.');
    if (dot == std::string_view::npos || dot == 0) dot = fileName.size();
    const std::string suffix = " (" + std::to_string(copy) + ")" + std::string(fileName.substr(dot));
    const std::size_t room = kMaxFileNameBytes - suffix.size();
    return std::string(utf8Prefix(fileName.substr(0, dot), room)) + suffix;
}

std::string safeFolderName(std::string_view filteredName, std::string_view fallback) {
    return fitted(filteredName, fallback, kMaxFileNameBytes);
}

}  // namespace quillon
