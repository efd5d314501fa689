#include "platform/InterruptWatcher.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/MainLoop.h"

namespace quillon {

namespace {

// The pipe the handler writes to; -1 while no watcher exists.
std::atomic<int> signalPipe{-1};
constexpr char kSignal = 's';
constexpr char kQuit = 'q';

extern "C" void forwardSignal(int) {
    const int saved = errno;
    if (int fd = signalPipe.load(); fd >= 0) {
        [[maybe_unused]] auto written = ::write(fd, &kSignal, 1);
    }
    errno = saved;
}

}  // namespace

InterruptWatcher::InterruptWatcher(std::function<void()> onInterrupt) : onInterrupt_(std::move(onInterrupt)) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return;
    readEnd_ = FileHandle(ends[0]);
    writeEnd_ = FileHandle(ends[1]);
    // A full pipe must never block the handler: one waiting byte says enough.
    ::fcntl(writeEnd_.fd(), F_SETFL, O_NONBLOCK);
    signalPipe = writeEnd_.fd();
    struct sigaction action {};
    action.sa_handler = forwardSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, &previousInt_);
    ::sigaction(SIGTERM, &action, &previousTerm_);
    thread_ = std::thread([this] { watch(); });
}

InterruptWatcher::~InterruptWatcher() {
    if (!thread_.joinable()) return;
    ::sigaction(SIGINT, &previousInt_, nullptr);
    ::sigaction(SIGTERM, &previousTerm_, nullptr);
    signalPipe = -1;
    // Blocking, unlike the handler's: the quit byte must get through.
    ::fcntl(writeEnd_.fd(), F_SETFL, 0);
    [[maybe_unused]] auto written = ::write(writeEnd_.fd(), &kQuit, 1);
    thread_.join();
}

void InterruptWatcher::watch() {
    while (true) {
        char byte = 0;
        ssize_t got = ::read(readEnd_.fd(), &byte, 1);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0 || byte == kQuit) return;
        interrupted_ = true;
        MainLoop::main().post(onInterrupt_);
    }
}

}  // namespace quillon
