#include "engine/TrackName.h"

#include "platform/TextUtil.h"

namespace quillon {

namespace {

// Used when both the title and the fallback leave nothing.
constexpr std::string_view kLastResort = "untitled";

// Drops NUL bytes (they end a path early) and turns "/" into "_", as the
// standard filter does, for names that did not pass through it.
std::string cleaned(std::string_view name) {
    std::string out;
    out.reserve(name.size());
    for (char c : name) {
        if (c == '\0') continue;
        out += c == '/' ? '_' : c;
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

std::string safeFolderName(std::string_view filteredName, std::string_view fallback) {
    return fitted(filteredName, fallback, kMaxFileNameBytes);
}

}  // namespace quillon
