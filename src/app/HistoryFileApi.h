#pragma once
// A recorded file for the web page's audio element:
// GET /api/history/file?path=... The daemon serves only a file that is a track
// of the history, by the exact path the history lists, so the route never
// reads a path a caller merely names. The file goes out whole (200, no byte
// ranges: an audio element plays it from the start), under the audio content
// type of its extension, read in bounded parts so that a stopping daemon is
// not held up.
//
// Thread contract: construct before the server starts; the route runs on the
// server's workers, looks the path up in the history on the main loop and
// reads the file on the worker.
#include <cstddef>
#include <string>
#include <string_view>

namespace quillon {

class ApiServer;
class History;

class HistoryFileApi {
public:
    static constexpr std::size_t kReadBytes = 64 * 1024;

    HistoryFileApi(ApiServer& server, History& history);

    // Whether `path` is the file of one of the history's tracks.
    static bool holdsFile(const History& history, const std::string& path);
    // The content type of a recorded file by its extension; "audio/mpeg"
    // for anything else (the recorder writes MP3 unless the stream is other).
    static std::string audioTypeFor(std::string_view path);
};

}  // namespace quillon
