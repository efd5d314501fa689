#include "support/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <utility>

extern char** environ;

namespace quillon::test {

namespace {

std::vector<std::string> environmentWith(const Environment& changes) {
    std::vector<std::string> env;
    for (char** e = ::environ; *e; ++e) {
        std::string entry = *e;
        if (!changes.count(entry.substr(0, entry.find('=')))) env.push_back(entry);
    }
    for (const auto& [name, value] : changes)
        if (!value.empty()) env.push_back(name + "=" + value);
    return env;
}

int exitStatus(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status); }

}  // namespace

CapturedProcess::CapturedProcess(const std::vector<std::string>& argv, const ProcessOptions& options) {
    int outPipe[2], errPipe[2];
    if (::pipe2(outPipe, O_CLOEXEC) != 0 || ::pipe2(errPipe, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe");
    FileHandle outWrite(outPipe[1]), errWrite(errPipe[1]);
    out_ = FileHandle(outPipe[0]);
    err_ = FileHandle(errPipe[0]);
    FileHandle input;
    if (options.terminalInput) {
        terminal_ = FileHandle(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
        if (terminal_.isOpen() && ::grantpt(terminal_.fd()) == 0 && ::unlockpt(terminal_.fd()) == 0)
            input = FileHandle(::open(::ptsname(terminal_.fd()), O_RDWR | O_NOCTTY | O_CLOEXEC));
        // Typed ahead: the lines wait in the terminal until the child reads them.
        const std::string& typed = *options.terminalInput;
        if (!input.isOpen() ||
            ::write(terminal_.fd(), typed.data(), typed.size()) != static_cast<ssize_t>(typed.size()))
            throw std::runtime_error("no pseudo-terminal to type into");
    } else {
        input = FileHandle(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input.fd(), 0);
    posix_spawn_file_actions_adddup2(&actions, outWrite.fd(), 1);
    posix_spawn_file_actions_adddup2(&actions, errWrite.fd(), 2);
    std::vector<char*> args;
    for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    std::vector<std::string> env = environmentWith(options.environment);
    std::vector<char*> envp;
    for (auto& e : env) envp.push_back(e.data());
    envp.push_back(nullptr);
    const int failed = ::posix_spawnp(&pid_, args[0], &actions, nullptr, args.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) throw std::runtime_error("cannot run " + argv[0] + ": " + std::strerror(failed));
}

CapturedProcess::~CapturedProcess() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
}

namespace {

// One read into `text`; closes `fd` at its end.
void readSome(FileHandle& fd, std::string& text) {
    char chunk[65536];
    const ssize_t got = ::read(fd.fd(), chunk, sizeof chunk);
    if (got > 0) text.append(chunk, static_cast<std::size_t>(got));
    if (got == 0 || (got < 0 && errno != EINTR)) fd.close();
}

}  // namespace

namespace {

std::optional<std::string> nextLine(FileHandle& from, std::string& text) {
    pollfd fd{from.fd(), POLLIN, 0};
    while (text.find('\n') == std::string::npos) {
        if (!from.isOpen() || ::poll(&fd, 1, kWaitMs) <= 0) return std::nullopt;
        readSome(from, text);
    }
    std::string line = text.substr(0, text.find('\n'));
    text.erase(0, line.size() + 1);
    return line;
}

}  // namespace

std::optional<std::string> CapturedProcess::readLine() { return nextLine(out_, outText_); }
std::optional<std::string> CapturedProcess::readErrorLine() { return nextLine(err_, errText_); }

void CapturedProcess::signal(int number) { ::kill(pid_, number); }

ProcessResult CapturedProcess::wait() {
    ProcessResult result;
    result.err = std::exchange(errText_, {});
    while (out_.isOpen() || err_.isOpen()) {
        pollfd fds[2] = {{out_.isOpen() ? out_.fd() : -1, POLLIN, 0},
                         {err_.isOpen() ? err_.fd() : -1, POLLIN, 0}};
        if (::poll(fds, 2, kWaitMs) <= 0) break;  // hung: the kill below ends it
        if (fds[0].revents) readSome(out_, outText_);
        if (fds[1].revents) readSome(err_, result.err);
    }
    if (out_.isOpen() || err_.isOpen()) ::kill(pid_, SIGKILL);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    terminal_.close();
    result.out = outText_;
    result.status = exitStatus(status);
    return result;
}

ServerProcess::ServerProcess(const std::vector<std::string>& argv, const std::string& logFile) {
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, logFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    if (::posix_spawnp(&pid_, args[0], &actions, nullptr, args.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
}

bool ServerProcess::running() {
    if (pid_ <= 0) return false;
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
        status_ = exitStatus(status);
        pid_ = -1;
        return false;
    }
    return true;
}

void ServerProcess::stop() {
    if (!running()) return;
    ::kill(pid_, SIGTERM);
    for (int i = 0; i < 50 && running(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    if (running()) {
        ::kill(pid_, SIGKILL);
        wait();
    }
}

int ServerProcess::wait() {
    if (pid_ > 0) {
        int status = 0;
        ::waitpid(pid_, &status, 0);
        status_ = exitStatus(status);
        pid_ = -1;
    }
    return status_;
}

}  // namespace quillon::test
