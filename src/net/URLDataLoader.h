#pragma once
// Fetches one URL in the background into a file in /tmp and reports the outcome
// to a target by the names of its methods, one name per kind of event. The
// directory's and the application's version checks use it with one name for
// every outcome.
//
// The file is named after what the server suggests (UrlFetcher's rule) and
// replaces a file of that name. Deliberate: the bytes go to a fresh temporary
// file that is renamed into place only when the download has finished (so the
// file and its path exist from then on, not from the first byte), because
// anyone can plant a link at a name in /tmp: it is replaced, never written
// through, and a failed download leaves no file. What the network may send is
// bounded (kMaxBytes).
//
// Thread contract: main thread only. The download runs on a UrlFetcher thread;
// every event reaches the target on the main thread through the main loop, and
// none after the loader is destroyed or restarted. The target may destroy the
// loader from within its call. Destruction cancels the download and waits for
// its thread (at most the fetcher's cancel latency).
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "net/UrlFetcher.h"
#include "platform/ByteBuffer.h"

namespace quillon {

class URLDataLoader {
public:
    // Bit values; `eventMask` is an OR of them.
    enum class Event : std::int32_t { complete = 1, newData = 2, failed = 4, cancelled = 8, timeout = 16 };
    enum class Status : std::int32_t {
        idle = 0,
        loading = 1,
        failed = 2,
        cancelled = 3,
        timedOut = 4,
        finished = 5
    };
    // Calls the target's method of that name with the loader.
    using Target = std::function<void(const std::string& method, URLDataLoader& loader)>;

    static constexpr const char* kDestinationFolder = "/tmp/";
    // Deliberate: the download is bounded, because the server decides its size
    // and a file in /tmp lives in memory on many systems.
    static constexpr std::uint64_t kMaxBytes = 64ull << 20;

    URLDataLoader() = default;
    ~URLDataLoader();
    URLDataLoader(const URLDataLoader&) = delete;
    URLDataLoader& operator=(const URLDataLoader&) = delete;

    // A started loader; an empty name registers nothing for its event.
    static std::unique_ptr<URLDataLoader> dataLoaderWithURL(const std::string& url, double timeout,
                                                            const std::string& notifyComplete,
                                                            const std::string& newData,
                                                            const std::string& failed,
                                                            const std::string& cancelled,
                                                            const std::string& timeoutMethod, Target target);
    // The same with one name for complete, failed and timeout.
    static std::unique_ptr<URLDataLoader> dataLoaderWithURL(const std::string& url, double timeout,
                                                            const std::string& genericSelector,
                                                            Target target);

    // Replaces the target and stores the method name for the event.
    void getNotified(Target target, Event event, const std::string& method);
    void setMask(std::int32_t mask, double timeout);
    void setUrlString(const std::string& url) { url_ = url; }
    // Bounds the bytes taken from the network (before startLoading).
    void setMaxBytes(std::uint64_t bytes) { maxBytes_ = bytes; }
    // Starts (or restarts) the download; the status becomes loading.
    void startLoading();
    // Cancels the download: status cancelled, event cancelled.
    void stopLoading();
    // If still loading: status timed out, event timeout. Nothing schedules it.
    void URLTimeout();

    Status status() const { return status_; }
    std::int32_t eventMask() const { return eventMask_; }
    // The downloaded file's contents; none before it exists. The file stays.
    std::optional<Bytes> data() const;
    // The downloaded file; empty before it exists.
    const std::string& dataFilepath() const { return filePath_; }

    // Calls the method stored for the event on the target, if both are set.
    void performSelectorForEvent(Event event);

private:
    struct Download;

    // Runs `task` on the main thread while `download` is still the loader's
    // running download; any thread.
    static void deliver(URLDataLoader* self, std::weak_ptr<Download> download,
                        std::function<void(URLDataLoader&)> task);
    void finished();
    void failed();
    void dropDownload();

    std::string url_;
    double timeout_ = 60;
    std::int32_t eventMask_ = 0;
    Target target_;
    std::map<Event, std::string> selectors_;
    Status status_ = Status::idle;
    std::string filePath_;
    std::uint64_t maxBytes_ = kMaxBytes;
    // The running download; the fetcher's callbacks share it, posted events
    // hold it weakly, so that dropping it here silences them.
    std::shared_ptr<Download> download_;
    std::unique_ptr<UrlFetcher> fetcher_;
};

}  // namespace quillon
