#include "platform/Desktop.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <vector>

#include "platform/Log.h"

extern char** environ;

namespace quillon {

namespace {

std::string firstWord(std::string_view command) {
    auto start = command.find_first_not_of(" \t");
    if (start == std::string_view::npos) return {};
    auto end = command.find_first_of(" \t", start);
    return std::string(command.substr(start, end == std::string_view::npos ? end : end - start));
}

bool isExecutable(const std::string& path) {
    std::error_code ec;
    return std::filesystem::is_regular_file(path, ec) && ::access(path.c_str(), X_OK) == 0;
}

}  // namespace

bool Desktop::commandExists(const std::string& command) {
    std::string program = firstWord(command);
    if (program.empty()) return false;
    if (program.find('/') != std::string::npos) return isExecutable(program);
    const char* path = std::getenv("PATH");
    std::string_view dirs = path ? path : "/usr/local/bin:/usr/bin:/bin";
    while (!dirs.empty()) {
        auto colon = dirs.find(':');
        std::string dir(dirs.substr(0, colon));
        if (!dir.empty() && isExecutable(dir + "/" + program)) return true;
        if (colon == std::string_view::npos) break;
        dirs.remove_prefix(colon + 1);
    }
    return false;
}

bool Desktop::openWith(const std::string& command, const std::string& path) {
    const std::string line = command.empty() ? std::string(kOpenCommand) : command;
    if (!commandExists(line)) {
        Log::info("Unable to open {} with {}", path, line);
        return false;
    }
    // The shell puts the program in the background and ends at once, so there
    // is nothing left to reap; the path travels as "$1" and needs no quoting.
    std::string script = line + " \"$1\" </dev/null >/dev/null 2>&1 &";
    std::vector<std::string> args = {"/bin/sh", "-c", script, "sh", path};
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (::posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
        Log::info("Unable to open {} with {}", path, line);
        return false;
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool Desktop::reveal(const std::string& path) {
    std::error_code ec;
    std::filesystem::path target(path);
    if (!std::filesystem::is_directory(target, ec)) target = target.parent_path();
    if (target.empty()) target = "/";
    return openWith(kOpenCommand, target.string());
}

}  // namespace quillon
