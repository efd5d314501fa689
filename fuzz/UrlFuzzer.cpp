// Location texts: a stream or playlist URL as typed or found in a playlist, and
// the "Location: " line of a redirect reply.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "FuzzCheck.h"
#include "store/Url.h"

using namespace quillon;

namespace {

bool hasBlankOrControl(std::string_view text) {
    for (char c : text) {
        auto u = static_cast<unsigned char>(c);
        if (u <= 0x20 || u == 0x7F) return true;
    }
    return false;
}

void checkParsed(std::string_view text) {
    auto url = Url::parse(text);
    if (!url) return;
    FUZZ_CHECK(!url->host || !hasBlankOrControl(*url->host));
    FUZZ_CHECK(!hasBlankOrControl(url->path));
    FUZZ_CHECK(url->path.find_first_of("?#") == std::string::npos);
    FUZZ_CHECK(!url->query || url->query->find('#') == std::string::npos);
    FUZZ_CHECK(!url->port || (*url->port >= 0 && *url->port <= 999'999'999));
    // What goes back on a request line is exactly what was written.
    std::string rebuilt = url->path;
    if (url->query) rebuilt += "?" + *url->query;
    if (url->fragment) rebuilt += "#" + *url->fragment;
    FUZZ_CHECK(text.find(rebuilt) != std::string_view::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    checkParsed(text);

    // A redirect reply: the target is the text behind "Location: " up to the
    // line end, as the bookmark's redirect probe reads it.
    if (std::size_t at = text.find("Location: "); at != std::string_view::npos) {
        std::string_view rest = text.substr(at + 10);
        checkParsed(rest.substr(0, rest.find('\n')));
    }

    std::string decoded = Url::percentDecode(text);
    FUZZ_CHECK(decoded.size() <= text.size());
    return 0;
}
