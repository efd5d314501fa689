#pragma once
// The bookmarks over the daemon's API: the list, one bookmark, a new one from a
// location or from dropped playlist text (answered once the location has been
// fetched), changes and deletion. The same operations as `quillon bookmark`,
// on the same files; each change publishes a "bookmarks" event.
//
// Thread contract: construct before the server starts, destroy on the main
// thread after it stopped; handlers and probes run on the main loop.
#include <cstdint>
#include <map>
#include <memory>

namespace quillon {

class ApiServer;
class EventHub;
class LocationProbe;

class BookmarkApi {
public:
    BookmarkApi(ApiServer& server, EventHub& events);
    ~BookmarkApi();
    BookmarkApi(const BookmarkApi&) = delete;
    BookmarkApi& operator=(const BookmarkApi&) = delete;

private:
    EventHub& events_;
    // Locations being fetched for a new bookmark, by number.
    std::map<std::uint64_t, std::unique_ptr<LocationProbe>> probes_;
    std::uint64_t nextProbe_ = 1;
};

}  // namespace quillon
