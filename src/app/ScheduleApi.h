#pragma once
// The schedules over the daemon's API: list, add, change, enable, disable,
// delete, and the upcoming starts. The same operations as `quillon schedule`,
// on the daemon's own list (which ticks).
//
// Thread contract: routes are added before the server starts; handlers run on
// the main loop.
namespace quillon {

class ApiServer;
class Controller;
class EventHub;

void addScheduleRoutes(ApiServer& server, Controller& controller, EventHub& events);

}  // namespace quillon
