#pragma once
// The recording history over the daemon's API: the days, one day's tracks,
// search, deleting tracks or days, and adding MP3 files. The same operations as
// `quillon history`, on the daemon's history in memory, so that a day file is
// never rewritten from a stale copy. Recordings adding tracks, and every change
// here, publish a "history" event.
//
// Thread contract: routes are added before the server starts; handlers run on
// the main loop.
namespace quillon {

class ApiServer;
class EventHub;
class History;

void addHistoryRoutes(ApiServer& server, History& history, EventHub& events);

}  // namespace quillon
