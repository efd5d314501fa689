#pragma once
// The settings over the daemon's API: the preferences (read; changed as a
// whole set, checked by the preference rules, saved at once) and the version
// check (its outcome; a check on request).
//
// Thread contract: routes are added before the server starts; handlers run on
// the main loop.
namespace quillon {

class ApiServer;
class Controller;
class EventHub;

void addSettingsRoutes(ApiServer& server, Controller& controller, EventHub& events);

}  // namespace quillon
