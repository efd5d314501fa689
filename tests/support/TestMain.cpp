// Runs a test binary with a private, temporary home folder, so that no test
// reads or writes the user's own settings, bookmarks or recordings.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/Log.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    std::signal(SIGPIPE, SIG_IGN);
    quillon::Log::setSyslog(false);
    // QUILLON_TEST_VERBOSE=1 shows the system log while a test runs.
    if (const char* v = std::getenv("QUILLON_TEST_VERBOSE"); v && *v == '1') quillon::Log::setVerbose(true);
    std::string pattern = (std::filesystem::temp_directory_path() / "quillon-test-XXXXXX").string();
    char* home = ::mkdtemp(pattern.data());
    if (!home) return 1;
    ::setenv("QUILLON_HOME", home, 1);
    int result = RUN_ALL_TESTS();
    std::error_code ec;
    std::filesystem::remove_all(home, ec);
    return result;
}
