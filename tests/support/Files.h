#pragma once
// Files as tests see them: whole texts read and written, a fresh folder for the
// running test, and the entries of a folder counted (in /proc: this process's
// open descriptors and threads, which must not grow).
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "platform/Home.h"

namespace quillon::test {

// The whole file, or "" when it cannot be read.
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

// An empty folder of the running test's own, `area/<test name>` under the home;
// whatever an earlier run left there is gone.
inline std::string testFolder(const std::string& area) {
    const std::string folder =
        homePath(area + "/" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(folder);
    makeFolders(folder);
    return folder;
}

inline std::size_t countEntries(const std::string& folder) {
    std::size_t n = 0;
    for ([[maybe_unused]] auto& entry : std::filesystem::directory_iterator(folder)) ++n;
    return n;
}

inline std::size_t openDescriptorCount() { return countEntries("/proc/self/fd"); }
inline std::size_t threadCount() { return countEntries("/proc/self/task"); }

}  // namespace quillon::test
