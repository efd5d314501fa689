#pragma once
// Tells Radio Browser that a user took one of its stations (records or saves
// it): GET /json/url/STATIONUUID on a mirror, the station list's click count
// being how the directory ranks stations. Fire and forget: count() only queues;
// an owned worker thread sends, one at a time, and a failure is a log line.
//
// Thread contract: count() and finish() from any thread but the worker;
// destruction cancels what is in flight, drops what waits and joins. The queue
// (at most kMaxWaiting) is guarded by one mutex.
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace quillon {

class TunerDownload;

class RadioBrowserClicks {
public:
    static constexpr std::size_t kMaxWaiting = 16;

    // `server`: a base address; empty: the preference "radioBrowserServer"
    // (read here, on the caller's thread), else a mirror found as the update
    // finds one (on the worker).
    explicit RadioBrowserClicks(std::string server = {});
    ~RadioBrowserClicks();
    RadioBrowserClicks(const RadioBrowserClicks&) = delete;
    RadioBrowserClicks& operator=(const RadioBrowserClicks&) = delete;

    // Queues a click for the station; false when the queue is full (dropped).
    bool count(const std::string& stationUuid);
    // Waits until every queued click has been sent or has failed (each is
    // bounded by the directory's time-out); for a command about to exit.
    void finish();

private:
    void run();
    void send(const std::string& stationUuid);

    std::string server_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::string> waiting_;  // guarded by mutex_
    bool sending_ = false;             // guarded by mutex_
    bool stopping_ = false;            // guarded by mutex_
    std::shared_ptr<TunerDownload> download_;
    std::thread worker_;
};

}  // namespace quillon
