#pragma once
// Makes a bookmark from a location (stream URL, playlist URL, local playlist
// file) or from playlist text without blocking: the location is fetched and
// the playlist read in the background, and the outcome handed to `done` on the
// main loop, once. A live stream whose header
// names no stream address, and an Icecast stream answering in HTTP, are taken
// as the stream itself.
//
// Thread contract: main thread only, construction and destruction included.
// `done` never runs inside the constructor or after destruction, so its owner
// may destroy the probe from `done`.
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "platform/MainLoop.h"
#include "store/BookmarkLocator.h"

namespace quillon {

class Bookmark;

class LocationProbe {
public:
    struct Outcome {
        std::shared_ptr<Bookmark> bookmark;  // null when no stream was found
        std::string failure;                 // why, when no bookmark
    };
    using Done = std::function<void(Outcome)>;

    // Checks the location first: throws BadInput for an empty location, a
    // malformed URL, or a local file that is missing or unreadable. A non-empty
    // `name` replaces the name the location gives.
    LocationProbe(const std::string& location, std::string name, Done done);
    // Playlist text the user handed over (a dropped .pls file).
    struct PlaylistText {
        std::string text;
    };
    LocationProbe(PlaylistText playlist, std::string name, Done done);
    ~LocationProbe();
    LocationProbe(const LocationProbe&) = delete;
    LocationProbe& operator=(const LocationProbe&) = delete;

    // How long a probe may take: the fetch and one redirect probe.
    static double timeLimit();

private:
    // Reads playlist text on a thread of its own: a playlist whose address is
    // a script is followed over the network.
    void parse(std::string text);
    void finish();

    const std::string location_;
    const std::string name_;
    Done done_;
    bool finished_ = false;
    Outcome found_;
    std::optional<std::string> streamHeader_, httpHeader_, alert_;
    std::optional<MainLoop::TimerId> timeout_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    std::unique_ptr<BookmarkLocator> locator_;
    std::jthread parser_;  // last: joined first
};

}  // namespace quillon
