#pragma once
// Child processes started by tests, always ended and reaped by them: a process
// whose output is captured through pipes (commands the test waits for, or reads
// line by line), and a long-running server whose output goes to a log file and
// which is stopped with SIGTERM when the test is done. Neither reads the test's
// own standard input.
#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/FileHandle.h"

namespace quillon::test {

// Upper bound for any single wait; only reached when something hangs.
constexpr int kWaitMs = 10000;

// Variables to set (or, with an empty value, to remove) in a child's environment.
using Environment = std::map<std::string, std::string>;

struct ProcessOptions {
    Environment environment{};
    // Typed into a pseudo-terminal that is the child's standard input, for
    // commands that ask before they act; unset: standard input is /dev/null.
    std::optional<std::string> terminalInput{};
};

struct ProcessResult {
    int status = -1;  // exit status, or 128 + signal
    std::string out, err;
};

// A child process with captured stdout and stderr; the destructor kills
// (SIGKILL) and reaps it when it is still running.
class CapturedProcess {
public:
    explicit CapturedProcess(const std::vector<std::string>& argv, const ProcessOptions& options = {});
    ~CapturedProcess();
    CapturedProcess(const CapturedProcess&) = delete;
    CapturedProcess& operator=(const CapturedProcess&) = delete;
    std::optional<std::string> readLine();       // the next stdout line, none on EOF or time-out
    std::optional<std::string> readErrorLine();  // the same for stderr
    void signal(int number);
    ProcessResult wait();  // the rest of the output and the exit status

private:
    pid_t pid_ = -1;
    FileHandle out_, err_;
    FileHandle terminal_;            // the pseudo-terminal's master side, kept open until the child ends
    std::string outText_, errText_;  // read, not yet handed out
};

inline ProcessResult runProcess(const std::vector<std::string>& argv, const ProcessOptions& options = {}) {
    return CapturedProcess(argv, options).wait();
}

// A server started in the background, its output in `logFile`; the destructor
// sends SIGTERM (SIGKILL after five seconds) and reaps it.
class ServerProcess {
public:
    ServerProcess(const std::vector<std::string>& argv, const std::string& logFile);
    ~ServerProcess() { stop(); }
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    pid_t pid() const { return pid_; }
    bool running();
    void stop();
    // Waits for the process to end; returns its exit status (128 + signal).
    int wait();

private:
    pid_t pid_ = -1;
    int status_ = -1;
};

}  // namespace quillon::test
