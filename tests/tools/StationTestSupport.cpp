#include "StationTestSupport.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <utility>

extern char** environ;

namespace quillon::test {

IcyStream splitIcy(const Bytes& bytes, std::uint32_t metaint) {
    IcyStream stream;
    std::size_t pos = 0;
    while (pos < bytes.size()) {
        const std::size_t n =
            metaint == 0 ? bytes.size() - pos : std::min<std::size_t>(metaint, bytes.size() - pos);
        stream.audio.insert(stream.audio.end(), bytes.begin() + pos, bytes.begin() + pos + n);
        pos += n;
        if (metaint == 0 || n < metaint || pos == bytes.size()) break;
        const std::size_t length = bytes[pos] * 16u;
        if (pos + 1 + length > bytes.size()) break;
        std::string text(bytes.begin() + pos + 1, bytes.begin() + pos + 1 + length);
        text.erase(text.find_last_not_of('\0') + 1);
        stream.blocks.push_back({stream.audio.size(), bytes[pos], text});
        pos += 1 + length;
    }
    return stream;
}

std::optional<std::string> streamTitle(const std::string& text) {
    const std::string open = "StreamTitle='";
    const auto start = text.find(open);
    const auto end = start == std::string::npos ? start : text.find("';", start);
    if (end == std::string::npos) return std::nullopt;
    return text.substr(start + open.size(), end - start - open.size());
}

IcyClient::IcyClient(std::uint16_t port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(socket_.fd(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error(std::string("connect failed: ") + std::strerror(errno));
    }
}

void IcyClient::send(const std::string& text) {
    if (::send(socket_.fd(), text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error("send failed");
    }
}

void IcyClient::sendRequest(const std::string& path, bool metadata) {
    send("GET " + path + " HTTP/1.1\r\nAccept: */*\r\n" + (metadata ? "Icy-MetaData: 1\r\n" : "") +
         "Connection: close\r\nHost: 127.0.0.1\r\n\r\n");
}

bool IcyClient::fill(int timeoutMs) {
    pollfd fd{socket_.fd(), POLLIN, 0};
    if (closed_ || ::poll(&fd, 1, timeoutMs) <= 0) return false;
    std::uint8_t chunk[65536];
    const ssize_t got = ::recv(socket_.fd(), chunk, sizeof chunk, 0);
    closed_ = got <= 0;
    if (got > 0) buffer_.insert(buffer_.end(), chunk, chunk + got);
    return got > 0;
}

std::string IcyClient::readHeader() {
    std::size_t end;
    while ((end = asText(buffer_).find("\r\n\r\n")) == std::string_view::npos && fill(kWaitMs)) {
    }
    end = end == std::string_view::npos ? buffer_.size() : end + 4;
    std::string header(asText(buffer_).substr(0, end));
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(end));
    return header;
}

Bytes IcyClient::read(std::size_t count) {
    while (buffer_.size() < count && fill(kWaitMs)) {
    }
    return std::exchange(buffer_, {});
}

IcyStream IcyClient::readStream(std::uint32_t metaint, std::size_t audioBytes) {
    while (splitIcy(buffer_, metaint).audio.size() < audioBytes && fill(kWaitMs)) {
    }
    return splitIcy(std::exchange(buffer_, {}), metaint);
}

bool IcyClient::peerClosed(int timeoutMs) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!closed_ && std::chrono::steady_clock::now() < end) {
        fill(static_cast<int>(
            std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now())
                .count()));
    }
    return closed_;
}

CapturedProcess::CapturedProcess(const std::vector<std::string>& argv) {
    int outPipe[2], errPipe[2];
    if (::pipe2(outPipe, O_CLOEXEC) != 0 || ::pipe2(errPipe, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe");
    FileHandle outWrite(outPipe[1]), errWrite(errPipe[1]);
    out_ = FileHandle(outPipe[0]);
    err_ = FileHandle(errPipe[0]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, outWrite.fd(), 1);
    posix_spawn_file_actions_adddup2(&actions, errWrite.fd(), 2);
    std::vector<char*> args;
    for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    const int failed = ::posix_spawnp(&pid_, args[0], &actions, nullptr, args.data(), environ);
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

std::optional<std::string> CapturedProcess::readLine() {
    pollfd fd{out_.fd(), POLLIN, 0};
    while (outText_.find('\n') == std::string::npos) {
        if (!out_.isOpen() || ::poll(&fd, 1, kWaitMs) <= 0) return std::nullopt;
        readSome(out_, outText_);
    }
    std::string line = outText_.substr(0, outText_.find('\n'));
    outText_.erase(0, line.size() + 1);
    return line;
}

void CapturedProcess::signal(int number) { ::kill(pid_, number); }

ProcessResult CapturedProcess::wait() {
    ProcessResult result;
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
    result.out = outText_;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

}  // namespace quillon::test
