#pragma once
// Blocking downloads for the directory's worker threads: one URL at a time into
// memory, bounded in size, an HTTP error status counting as a failure. Another
// thread may cancel the running download (the directory being destroyed), which
// then fails at once, as does every later one.
//
// Thread contract: fetch() on one worker thread at a time; cancel() from any
// thread. One mutex guards the running fetcher and the cancelled flag.
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/ByteBuffer.h"

namespace quillon {

class UrlFetcher;

class TunerDownload {
public:
    TunerDownload() = default;
    ~TunerDownload();
    TunerDownload(const TunerDownload&) = delete;
    TunerDownload& operator=(const TunerDownload&) = delete;

    // The body; none with the reason in `failure` (no answer, an error
    // status, more than maxBytes, cancelled).
    std::optional<Bytes> fetch(const std::string& url, double timeout, std::uint64_t maxBytes,
                               std::string& failure, const std::string& userAgent = {});
    void cancel();

private:
    std::mutex mutex_;
    std::condition_variable done_;
    std::shared_ptr<UrlFetcher> running_;  // guarded by mutex_
    bool cancelled_ = false;               // guarded by mutex_
};

}  // namespace quillon
