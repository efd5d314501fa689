#pragma once
// A connection's relay as plain audio for the web page's audio element:
// GET /api/activity/{id}/audio. A browser plays neither an "ICY 200 OK"
// answer nor audio with metadata blocks in it, so the daemon reads the relay
// like any player (over loopback, so the relay's own limits apply) and passes
// the audio on without the metadata, under the stream's audio content type.
// The page shows the title from the event stream instead.
//
// Everything is bounded: the relay's header (8 KiB, 5 s), each read (1 s, so
// that a stopping daemon is not held up), and the number of streams open at
// once (ApiServer::kMaxStreams).
//
// Thread contract: construct before the server starts; the route runs on the
// server's workers and reads the activity list on the main loop.
#include <string>
#include <string_view>

namespace quillon {

class ApiServer;
class Controller;

class RelayAudioApi {
public:
    static constexpr std::size_t kMaxHeaderBytes = 8192;
    static constexpr double kHeaderSeconds = 5;
    static constexpr double kReadSeconds = 1;
    static constexpr std::size_t kReadBytes = 4096;

    RelayAudioApi(ApiServer& server, Controller& controller);

    // The content type a browser plays for a stream's "Content-Type" value:
    // "audio/aac", "audio/ogg" or, for anything else, "audio/mpeg".
    static std::string browserAudioType(std::string_view streamType);
};

}  // namespace quillon
