#include "platform/Home.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace quillon {

std::string homeFolder() {
    for (const char* var : {"QUILLON_HOME", "HOME"}) {
        const char* v = std::getenv(var);
        if (v && *v) {
            std::string home = v;
            while (home.size() > 1 && home.back() == '/') home.pop_back();
            return home;
        }
    }
    return "/";
}

std::string joinPath(const std::string& a, const std::string& b) {
    if (a.empty()) return b;
    if (b.empty()) return a;
    std::string out = a;
    while (out.size() > 1 && out.back() == '/') out.pop_back();
    std::size_t start = 0;
    while (start < b.size() && b[start] == '/') ++start;
    if (out != "/") out += '/';
    return out + b.substr(start);
}

std::string homePath(const std::string& relative) { return joinPath(homeFolder(), relative); }

bool makeFolders(const std::string& path) {
    std::error_code ec;
    std::filesystem::create_directories(path, ec);
    return std::filesystem::is_directory(path, ec);
}

bool fileExists(const std::string& path) {
    std::error_code ec;
    return std::filesystem::exists(path, ec);
}

bool isFolder(const std::string& path) {
    std::error_code ec;
    return std::filesystem::is_directory(path, ec);
}

}  // namespace quillon
