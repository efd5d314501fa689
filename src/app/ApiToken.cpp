#include "app/ApiToken.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "platform/AtomicFile.h"
#include "platform/DamagedFile.h"
#include "platform/FileHandle.h"
#include "platform/Home.h"
#include "platform/Log.h"

namespace quillon {

namespace {

bool isToken(std::string_view text) {
    return text.size() == ApiToken::kLength && std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
           });
}

std::string folderOf(const std::string& path) {
    auto slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

// Writes a new token file that is never readable by others, not even while
// it is being written, and never replaces a file that appeared meanwhile.
bool createTokenFile(const std::string& path, const std::string& token, std::string& failure) {
    if (!makeFolders(folderOf(path))) {
        failure = "cannot create the folder of " + path + ": " + std::strerror(errno);
        return false;
    }
    std::string temp = path + ".new-" + ApiToken::randomHex(4);
    int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
        failure = "cannot create " + temp + ": " + std::strerror(errno);
        return false;
    }
    FileHandle file(fd);
    std::string line = token + "\n";
    bool ok = ::fchmod(fd, 0600) == 0 &&
              ::write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size()) && ::fsync(fd) == 0;
    if (!ok) failure = "cannot write " + temp + ": " + std::strerror(errno);
    file = FileHandle();
    if (ok && !renameNoReplace(temp, path)) {
        ok = errno == EEXIST;  // another daemon made it first: use that one
        if (!ok) failure = "cannot create " + path + ": " + std::strerror(errno);
    }
    ::unlink(temp.c_str());
    return ok;
}

}  // namespace

std::string ApiToken::path() { return homePath(kRelativePath); }

std::optional<std::string> ApiToken::read(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    FileHandle file(fd);
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > 1024) return std::nullopt;
    // A token that others could read is no secret: close it down.
    if ((st.st_mode & 077) != 0) {
        Log::warn("The token file {} was readable by others; it is now readable by you only", path);
        ::fchmod(fd, 0600);
    }
    char buffer[1024];
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n <= 0) return std::nullopt;
    std::string text(buffer, static_cast<std::size_t>(n));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    if (!isToken(text)) return std::nullopt;
    return text;
}

std::optional<std::string> ApiToken::loadOrCreate(const std::string& path, std::string& failure) {
    if (auto token = read(path)) return token;
    if (fileExists(path)) DamagedFile::moveAside(path, "it does not hold a token");
    if (!createTokenFile(path, randomHex(32), failure)) return std::nullopt;
    auto token = read(path);
    if (!token) failure = "cannot read the token back from " + path;
    return token;
}

std::string ApiToken::randomHex(std::size_t bytes) {
    std::string raw(bytes, '\0');
    std::size_t got = 0;
    while (got < bytes) {
        ssize_t n = ::getrandom(raw.data() + got, bytes - got, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) throw std::runtime_error(std::string("no random numbers: ") + std::strerror(errno));
        got += static_cast<std::size_t>(n);
    }
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(bytes * 2);
    for (unsigned char c : raw) {
        hex += kDigits[c >> 4];
        hex += kDigits[c & 15];
    }
    return hex;
}

bool ApiToken::matches(std::string_view given, std::string_view token) {
    if (given.size() != token.size() || token.empty()) return false;
    unsigned char difference = 0;
    for (std::size_t i = 0; i < token.size(); ++i)
        difference |= static_cast<unsigned char>(given[i] ^ token[i]);
    return difference == 0;
}

}  // namespace quillon
