#pragma once
// The mail settings over the daemon's API: GET /api/mail shows where notices
// go and which are switched on; PUT /api/mail changes any of them at once,
// checked by the preference rules and saved. The password never travels: only
// the path of the file that holds it.
//
// Thread contract: construct before the server starts, destroy on the main
// thread after it stopped; handlers run on the main loop.
namespace quillon {

class ApiServer;
class EventHub;

class MailApi {
public:
    MailApi(ApiServer& server, EventHub& events);
    MailApi(const MailApi&) = delete;
    MailApi& operator=(const MailApi&) = delete;

private:
    EventHub& events_;
};

}  // namespace quillon
