#include "net/M3UPlaylist.h"

#include <algorithm>

#include "platform/TextUtil.h"

namespace quillon {

namespace {

constexpr std::string_view kExtension = ".mp3";
// Longer names are refused by the file systems the downloads go to.
constexpr std::size_t kMaxFileNameBytes = 255;

// Where the last path component of the text starts, and where it ends.
// Deliberate: the component is looked for ahead of any query or fragment, so
// that a "/" inside a query ("song.mp3?from=/list") cannot pass for the path.
struct Component {
    std::size_t begin;
    std::size_t end;
};

Component lastComponent(std::string_view text) {
    std::size_t end = text.find_first_of("?#");
    if (end == std::string_view::npos) end = text.size();
    std::size_t slash = text.substr(0, end).rfind('/');
    std::size_t begin = slash == std::string_view::npos ? 0 : slash + 1;
    return {begin, end};
}

// What a URL may hold: printable ASCII without blanks, quotes or angle brackets.
bool urlCharacter(char c) {
    auto byte = static_cast<unsigned char>(c);
    return byte > 0x20 && byte < 0x7f && c != '"' && c != '<' && c != '>' && c != '\\' && c != '^' &&
           c != '`' && c != '{' && c != '|' && c != '}';
}

// Whether the text is an absolute http or https URL with a host.
bool absoluteHttpURL(std::string_view text) {
    if (!std::all_of(text.begin(), text.end(), urlCharacter)) return false;
    std::string lower = toLowerAscii(text.substr(0, 8));
    std::size_t rest = startsWith(lower, "http://") ? 7 : startsWith(lower, "https://") ? 8 : 0;
    if (rest == 0) return false;
    std::size_t hostEnd = text.find_first_of("/?#", rest);
    return hostEnd != rest && rest < text.size();
}

}  // namespace

std::optional<std::string> M3UPlaylist::fileNameFromURL(std::string_view text) {
    Component c = lastComponent(text);
    std::string_view component = text.substr(c.begin, c.end - c.begin);
    std::size_t cut = component.find(kExtension);
    if (cut == std::string_view::npos) return std::nullopt;
    return std::string(component.substr(0, cut)) + std::string(kExtension);
}

std::optional<std::string> M3UPlaylist::cleanURL(std::string_view text) {
    auto name = fileNameFromURL(text);
    if (!name) return std::nullopt;
    return std::string(text.substr(0, lastComponent(text).begin)) + *name;
}

std::optional<M3UPlaylist::Parsed> M3UPlaylist::parse(std::span<const std::uint8_t> bytes) {
    if (bytes.empty()) return std::nullopt;
    std::string_view rest(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    Parsed out;
    while (!rest.empty()) {
        std::size_t newline = rest.find('\n');
        if (newline == std::string_view::npos) {
            out.partial = true;
            break;
        }
        std::string_view line = trimmedBlanks(rest.substr(0, newline + 1));
        rest.remove_prefix(newline + 1);
        auto url = line.starts_with('#') ? std::nullopt : cleanURL(line);
        auto name = url ? fileNameFromURL(*url) : std::nullopt;
        if (url && name && name->size() <= kMaxFileNameBytes && absoluteHttpURL(*url)) {
            out.urls.push_back(std::move(*url));
        } else {
            ++out.skipped;
        }
    }
    if (out.urls.empty()) return std::nullopt;
    return out;
}

}  // namespace quillon
