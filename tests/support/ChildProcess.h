#pragma once
// A process started by a test and always ended by it: the destructor sends
// SIGTERM to the process it started (by its id) and reaps it.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace quillon::test {

class ChildProcess {
public:
    // Starts argv[0] (looked up in PATH) with its output sent to `logFile`
    // (or /dev/null when empty).
    explicit ChildProcess(const std::vector<std::string>& argv, const std::string& logFile = "") {
        std::vector<char*> args;
        for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        std::string out = logFile.empty() ? "/dev/null" : logFile;
        posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        if (posix_spawnp(&pid_, args[0], &actions, nullptr, args.data(), environ) != 0) pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
    }
    ~ChildProcess() { stop(); }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool started() const { return pid_ > 0; }
    pid_t pid() const { return pid_; }

    bool running() {
        if (pid_ <= 0) return false;
        int status;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            exitStatus_ = status;
            pid_ = -1;
            return false;
        }
        return true;
    }

    void stop() {
        if (!running()) return;
        kill(pid_, SIGTERM);
        for (int i = 0; i < 50 && running(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(100));
        if (running()) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
            pid_ = -1;
        }
    }

    // Waits for the process to end; returns its exit code (-1 if killed).
    int wait() {
        if (pid_ <= 0) return WIFEXITED(exitStatus_) ? WEXITSTATUS(exitStatus_) : -1;
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        exitStatus_ = status;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t pid_ = -1;
    int exitStatus_ = 0;
};

// Runs a command to its end; returns its exit code and output (stdout+stderr).
inline int runCommand(const std::vector<std::string>& argv, std::string* output = nullptr) {
    char path[] = "/tmp/quillon-cmd-XXXXXX";
    int fd = mkstemp(path);
    if (fd < 0) return -1;
    close(fd);
    int code;
    {
        ChildProcess child(argv, path);
        code = child.started() ? child.wait() : -1;
    }
    if (output) {
        output->clear();
        if (FILE* f = fopen(path, "rb")) {
            char buf[4096];
            size_t n;
            while ((n = fread(buf, 1, sizeof buf, f)) > 0) output->append(buf, n);
            fclose(f);
        }
    }
    unlink(path);
    return code;
}

}  // namespace quillon::test
