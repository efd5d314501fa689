#pragma once
// The web page's files, built from web/ and embedded into the binary, as the
// daemon serves them: "/" is index.html, which is never cached, so that a new
// build's page is picked up at once; the files under /assets/ carry a hash of
// their contents in their names and are cached for a year.
//
// Thread contract: none; the files are constant.
#include <optional>
#include <string>
#include <string_view>

namespace quillon {

class WebAssets {
public:
    struct File {
        std::string_view body;
        std::string contentType;
        std::string cacheControl;
    };

    // The file at a request path, or nothing for a path that is no file of the page.
    static std::optional<File> find(std::string_view path);
    // The content type of a file name, by its extension.
    static std::string contentTypeFor(std::string_view name);
};

}  // namespace quillon
