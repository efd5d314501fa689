#pragma once
// The secret that every call to the daemon's API must carry: 32 random bytes
// as 64 hex digits, made at the daemon's first start and kept in a file that
// only the user can read. The command line reads the same file to reach the
// daemon; the web page gets it only as a cookie (LoginLinks).
//
// Thread contract: stateless functions; any thread.
#include <optional>
#include <string>
#include <string_view>

namespace quillon {

class ApiToken {
public:
    static constexpr const char* kRelativePath = "Library/Preferences/quillon.token";
    static constexpr std::size_t kLength = 64;

    // The token file under the home folder.
    static std::string path();
    // Reads the token; makes it first when there is no file (mode 0600, written
    // whole before it appears). A file that does not hold a token is moved
    // aside and replaced. Nothing, with the reason, when the file can be
    // neither read nor made.
    static std::optional<std::string> loadOrCreate(const std::string& path, std::string& failure);
    // Reads an existing token; nothing when there is none (no daemon ever ran).
    static std::optional<std::string> read(const std::string& path);
    // `bytes` random bytes from the kernel, as lower-case hex digits.
    static std::string randomHex(std::size_t bytes);
    // Compares in a time that does not depend on where the texts differ.
    static bool matches(std::string_view given, std::string_view token);
};

}  // namespace quillon
