#include "app/RecentApi.h"

#include "app/ApiServer.h"
#include "app/Controller.h"
#include "store/Bookmark.h"

namespace quillon {

namespace {

// The entry's stream address, read from its bookmark copy; empty (and not
// available) when the copy is gone or unreadable, so that the page offers no
// button that can only fail.
nlohmann::json entryJson(const RecentMenuItem& item) {
    nlohmann::json entry{
        {"name", item.title()}, {"file", item.filePath()}, {"location", ""}, {"available", false}};
    auto bookmark = Bookmark::resourceFromPath<Bookmark>(item.filePath());
    if (!bookmark || !bookmark->host()) return entry;
    std::string address = bookmark->scheme() + "://" + *bookmark->host();
    if (auto port = bookmark->port(); port && !port->empty()) address += ":" + *port;
    entry["location"] = address + bookmark->path();
    entry["available"] = true;
    return entry;
}

}  // namespace

void addRecentRoutes(ApiServer& server, Controller& c) {
    server.route("GET", "/api/recent", [&c](const ApiRequest&) {
        nlohmann::json items = nlohmann::json::array();
        for (const RecentMenuItem& item : c.activity().recentMenu().menuItems())
            items.push_back(entryJson(item));
        return ApiReply{200, {{"items", std::move(items)}}};
    });
}

}  // namespace quillon
