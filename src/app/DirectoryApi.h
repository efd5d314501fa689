#pragma once
// The station directory over the daemon's API: the tree (filtered while a
// filter is in force), a filter request handed to the filter thread, an update
// whose progress and outcome are published as events, and an entry saved as
// a bookmark (answered once its playlist has been fetched, off the main loop;
// an entry of Radio Browser's has its click counted then).
// Events: {"type":"directory"} after a filter or an update changed the tree,
// {"type":"directoryProgress", text, percent}, {"type":"directoryUpdate",
// outcome, message}.
//
// Thread contract: construct before the server starts, destroy on the main
// thread after it stopped; handlers run on the main loop. Tree walks take the
// directory's lock, which the filter thread holds while it filters. Each
// bookmark's playlist is fetched on a thread of its own, joined on destruction.
#include <cstdint>
#include <map>
#include <memory>
#include <thread>

namespace quillon {

class ApiServer;
class EventHub;
class RadioBrowserClicks;
class Tuner;
class TunerFilter;
class TunerItem;

class DirectoryApi {
public:
    DirectoryApi(ApiServer& server, EventHub& events);
    ~DirectoryApi();
    DirectoryApi(const DirectoryApi&) = delete;
    DirectoryApi& operator=(const DirectoryApi&) = delete;

private:
    // Main thread; queues the click of a Radio Browser entry (others: nothing).
    void countClick(const TunerItem& item);

    EventHub& events_;
    std::shared_ptr<Tuner> tuner_;
    std::unique_ptr<TunerFilter> filter_;
    std::unique_ptr<RadioBrowserClicks> clicks_;  // made at the first click
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    std::map<std::uint64_t, std::jthread> fetches_;
    std::uint64_t nextFetch_ = 1;
};

}  // namespace quillon
