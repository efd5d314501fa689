#pragma once
// The recent-connections list over the daemon's API: its entries, newest
// first, with the address each bookmark copy holds. An entry is recorded or
// listened to by its file through POST /api/activity; the list changes only
// when a connection starts, which the "activity" event already announces.
//
// Thread contract: routes are added before the server starts; handlers run on
// the main loop, where the list lives.
namespace quillon {

class ApiServer;
class Controller;

void addRecentRoutes(ApiServer& server, Controller& controller);

}  // namespace quillon
