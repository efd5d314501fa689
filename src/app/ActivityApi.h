#pragma once
// The activity list over the daemon's API: list, start (bookmark or stream
// URL), stop, start again, stop after this track, listen, remove, clear, stop
// all, and open a bookmark file.
//
// Thread contract: routes are added before the server starts; handlers run on
// the main loop.
namespace quillon {

class ApiServer;
class Controller;

void addActivityRoutes(ApiServer& server, Controller& controller);

}  // namespace quillon
