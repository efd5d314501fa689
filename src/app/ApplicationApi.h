#pragma once
// The application's own calls over the daemon's API: its status, the web
// page's window state, the open questions and their answers, the storage
// folders, and one-time login links for the web page.
//
// Thread contract: routes are added before the server starts; handlers run on
// the main loop.
namespace quillon {

class ApiServer;
class Controller;
class LoginLinks;

void addApplicationRoutes(ApiServer& server, Controller& controller, LoginLinks& logins);

}  // namespace quillon
