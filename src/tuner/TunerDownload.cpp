#include "tuner/TunerDownload.h"

#include "net/UrlFetcher.h"

namespace quillon {

TunerDownload::~TunerDownload() { cancel(); }

std::optional<Bytes> TunerDownload::fetch(const std::string& url, double timeout, std::uint64_t maxBytes,
                                          std::string& failure, const std::string& userAgent) {
    struct Outcome {
        Bytes body;
        bool ended = false;
        bool ok = false;
        std::string failure;
    };
    auto outcome = std::make_shared<Outcome>();
    UrlFetcher::Callbacks callbacks;
    // The callbacks run on the fetch thread; the outcome is read once it has ended.
    callbacks.onData = [outcome](std::span<const std::uint8_t> chunk) {
        outcome->body.insert(outcome->body.end(), chunk.begin(), chunk.end());
        return true;
    };
    callbacks.onFinished = [this, outcome] {
        std::lock_guard lock(mutex_);
        outcome->ok = true;
        outcome->ended = true;
        done_.notify_all();
    };
    callbacks.onFailed = [this, outcome](const std::string& reason) {
        std::lock_guard lock(mutex_);
        outcome->failure = reason;
        outcome->ended = true;
        done_.notify_all();
    };
    auto fetcher = std::make_shared<UrlFetcher>(url, timeout, std::move(callbacks));
    fetcher->setMaxBytes(maxBytes);
    fetcher->setFailOnHttpError(true);
    if (!userAgent.empty()) fetcher->setUserAgent(userAgent);
    {
        std::unique_lock lock(mutex_);
        if (cancelled_) {
            failure = "cancelled";
            return std::nullopt;
        }
        running_ = fetcher;
        fetcher->start();
        done_.wait(lock, [&] { return outcome->ended || cancelled_; });
        running_.reset();
    }
    // Joins the fetch thread, which no longer runs a callback after a cancel.
    fetcher.reset();
    if (!outcome->ended) {
        failure = "cancelled";
        return std::nullopt;
    }
    if (!outcome->ok) {
        failure = outcome->failure.empty() ? "download failed" : outcome->failure;
        return std::nullopt;
    }
    return std::move(outcome->body);
}

void TunerDownload::cancel() {
    std::lock_guard lock(mutex_);
    cancelled_ = true;
    if (running_) running_->cancel();
    done_.notify_all();
}

}  // namespace quillon
