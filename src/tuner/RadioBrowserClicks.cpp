#include "tuner/RadioBrowserClicks.h"

#include <chrono>

#include "platform/Log.h"
#include "platform/Timing.h"
#include "store/Preferences.h"
#include "tuner/RadioBrowser.h"
#include "tuner/TunerDownload.h"

namespace quillon {

RadioBrowserClicks::RadioBrowserClicks(std::string server)
    : server_(RadioBrowser::baseOf(server.empty()
                                       ? Preferences::preferences()->getParam(RadioBrowser::kServerKey)
                                       : std::move(server))),
      download_(std::make_shared<TunerDownload>()) {
    worker_ = std::thread([this] { run(); });
}

RadioBrowserClicks::~RadioBrowserClicks() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        waiting_.clear();
    }
    changed_.notify_all();
    download_->cancel();
    worker_.join();
}

bool RadioBrowserClicks::count(const std::string& stationUuid) {
    {
        std::lock_guard lock(mutex_);
        if (stopping_ || waiting_.size() >= kMaxWaiting) {
            Log::warning("Radio Browser click for " + stationUuid + " dropped: too many waiting");
            return false;
        }
        waiting_.push_back(stationUuid);
    }
    changed_.notify_all();
    return true;
}

void RadioBrowserClicks::finish() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return stopping_ || (waiting_.empty() && !sending_); });
}

void RadioBrowserClicks::run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
        if (stopping_) return;
        std::string uuid = std::move(waiting_.front());
        waiting_.pop_front();
        sending_ = true;
        lock.unlock();
        send(uuid);
        lock.lock();
        sending_ = false;
        changed_.notify_all();
    }
}

void RadioBrowserClicks::send(const std::string& stationUuid) {
    std::string failure;
    std::vector<std::string> bases;
    if (!server_.empty()) {
        bases.push_back(server_);
    } else if (auto names = RadioBrowser::discoverMirrors(*download_, failure)) {
        const auto seed =
            static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
        bases = RadioBrowser::mirrorOrder(*names, seed);
    }
    if (bases.size() > RadioBrowser::kMaxMirrorsTried) bases.resize(RadioBrowser::kMaxMirrorsTried);
    for (const std::string& base : bases) {
        const std::string url = base + RadioBrowser::clickPath(stationUuid);
        if (download_->fetch(url, timing().directoryTimeout, RadioBrowser::kMaxClickBytes, failure,
                             RadioBrowser::userAgent()))
            return;
        failure = url + ": " + failure;
    }
    Log::warning("The Radio Browser click for " + stationUuid +
                 " was not counted: " + (failure.empty() ? "no server" : failure));
}

}  // namespace quillon
