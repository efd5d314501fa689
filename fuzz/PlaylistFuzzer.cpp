// Playlist text (.pls with "File1="/"Title1=", .m3u with a bare "http://"
// line) filling a bookmark, as a downloaded or local playlist does.
#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzCheck.h"
#include "platform/TextUtil.h"
#include "store/Bookmark.h"

using namespace quillon;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    // A URL with a query makes the bookmark probe the server for a redirect:
    // no network here. The probe's reply is read by Url::parse, which the Url
    // target covers with "Location: " lines.
    for (char& c : text)
        if (c == '?') c = '&';

    auto bookmark = Bookmark::bookmark();
    bool usable = bookmark->getUrlFromData(text);
    auto name = bookmark->name();
    FUZZ_CHECK(name && isValidUtf8(*name));
    if (usable) {
        // A usable bookmark always has a port to connect to.
        std::string port = bookmark->port().value_or("");
        FUZZ_CHECK(intValue(port) > 0 && std::to_string(intValue(port)) == port);
        FUZZ_CHECK(!bookmark->path().empty());
    }
    (void)bookmark->description();
    return 0;
}
