#include "app/WebAssets.h"

#include <array>
#include <utility>

// Defined by the generated source (cmake/GenerateWebAssets.cmake): the bytes
// of a built file by its path under the build's output ("/index.html",
// "/assets/index-abc123.js"), a null view for none.
std::string_view quillon_web_asset(std::string_view path);

namespace quillon {

std::optional<WebAssets::File> WebAssets::find(std::string_view path) {
    if (path == "/" || path.empty()) path = "/index.html";
    // Only built names: no "..", no query, nothing outside the build's output.
    if (path.find("..") != std::string_view::npos) return std::nullopt;
    std::string_view body = quillon_web_asset(path);
    if (body.data() == nullptr) return std::nullopt;
    File file{body, contentTypeFor(path), "no-cache"};
    if (path.starts_with("/assets/")) file.cacheControl = "public, max-age=31536000, immutable";
    return file;
}

std::string WebAssets::contentTypeFor(std::string_view name) {
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 9> kTypes{{
        {".html", "text/html; charset=utf-8"},
        {".js", "text/javascript; charset=utf-8"},
        {".css", "text/css; charset=utf-8"},
        {".svg", "image/svg+xml"},
        {".png", "image/png"},
        {".ico", "image/x-icon"},
        {".woff2", "font/woff2"},
        {".json", "application/json"},
        {".txt", "text/plain; charset=utf-8"},
    }};
    for (const auto& [extension, type] : kTypes)
        if (name.ends_with(extension)) return std::string(type);
    return "application/octet-stream";
}

}  // namespace quillon
