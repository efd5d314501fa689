#pragma once
// Helpers of the history tests: a fresh history folder per test, local dates,
// item makers, and a runner for programs (the quillon binary, python3) whose
// standard input is a given text, nothing, or a terminal.
#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "history/History.h"
#include "history/HistoryItem.h"
#include "platform/Home.h"
#include "store/Preferences.h"

extern char** environ;

namespace quillon::test {

// A local date and time.
inline std::chrono::system_clock::time_point localDate(int year, int month, int day, int hour = 12,
                                                       int minute = 0, int second = 0) {
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    parts.tm_isdst = -1;
    return std::chrono::system_clock::from_time_t(std::mktime(&parts));
}

inline std::shared_ptr<HistoryItem> makeItem(const std::string& track, const std::string& radio,
                                             std::chrono::system_clock::time_point when, bool complete,
                                             bool skipped = false, const std::string& path = "") {
    auto item = HistoryItem::newItem(track, radio, 3);
    item->setRecDate(when);
    item->setComplete(complete);
    item->setSkipped(skipped);
    if (!path.empty()) item->setPath(path);
    return item;
}

inline std::string readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

inline void writeText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
}

// A folder of its own for each test, under the test binary's home; the shared
// history and preferences are forgotten before and after.
class HistoryFixture : public ::testing::Test {
protected:
    void SetUp() override {
        std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        folder_ = homePath("history-tests/" + name);
        std::filesystem::remove_all(folder_);
        makeFolders(folder_);
        History::resetShared();
        Preferences::resetShared();
    }
    void TearDown() override {
        History::resetShared();
        Preferences::resetShared();
        std::error_code ec;
        std::filesystem::remove_all(folder_, ec);
    }

    std::string dayFile(const std::string& key) const { return folder_ + "/" + key + ".historyDB"; }

    std::string folder_;
};

struct RunResult {
    int status = -1;
    std::string out;
    std::string err;
};

enum class Input { text, terminal };

// Runs a program with QUILLON_HOME set to `home` and waits for it. Its standard
// input is `input` through a pipe-like file, or a pseudo-terminal that `input`
// is typed into. The program is always reaped before this returns.
inline RunResult runProgram(const std::vector<std::string>& argv, const std::string& home,
                            const std::string& input = "", Input mode = Input::text) {
    std::string base = home + "/.run-" + std::to_string(::getpid());
    std::string inPath = base + ".in", outPath = base + ".out", errPath = base + ".err";
    writeText(inPath, input);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    int master = -1, slave = -1;
    if (mode == Input::terminal) {
        master = ::posix_openpt(O_RDWR | O_NOCTTY);
        if (master >= 0 && ::grantpt(master) == 0 && ::unlockpt(master) == 0) {
            slave = ::open(::ptsname(master), O_RDWR | O_NOCTTY);
        }
        if (slave < 0) {
            ADD_FAILURE() << "no pseudo-terminal";
            if (master >= 0) ::close(master);
            return {};
        }
        posix_spawn_file_actions_adddup2(&actions, slave, 0);
    } else {
        posix_spawn_file_actions_addopen(&actions, 0, inPath.c_str(), O_RDONLY, 0);
    }
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::vector<std::string> env;
    for (char** e = ::environ; *e; ++e) {
        if (std::string_view(*e).substr(0, 13) != "QUILLON_HOME=") env.emplace_back(*e);
    }
    env.push_back("QUILLON_HOME=" + home);
    std::vector<char*> envp;
    for (auto& e : env) envp.push_back(e.data());
    envp.push_back(nullptr);
    std::vector<std::string> args = argv;
    std::vector<char*> argp;
    for (auto& a : args) argp.push_back(a.data());
    argp.push_back(nullptr);
    RunResult result;
    pid_t pid = 0;
    if (posix_spawn(&pid, argp[0], &actions, nullptr, argp.data(), envp.data()) == 0) {
        if (master >= 0) {
            // Typed lines wait in the terminal until the program reads them.
            [[maybe_unused]] auto n = ::write(master, input.data(), input.size());
        }
        int status = 0;
        ::waitpid(pid, &status, 0);
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    if (slave >= 0) ::close(slave);
    if (master >= 0) ::close(master);
    result.out = readText(outPath);
    result.err = readText(errPath);
    std::filesystem::remove(inPath);
    std::filesystem::remove(outPath);
    std::filesystem::remove(errPath);
    return result;
}

}  // namespace quillon::test
