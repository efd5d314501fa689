#pragma once
// Makes a bookmark from a location the user typed, pasted or dropped, with a
// pending name: a Live365 page address, a local playlist file, or a URL that is
// fetched in the background and recognised as a live stream ("ICY 200 OK"
// header) or read as playlist text. Every success hands a new bookmark to
// `openEditor`; nothing is saved here.
//
// Thread contract: main thread only (the thread running MainLoop::main()).
// The fetch and any redirect probe run on the fetcher's thread; all callbacks
// are delivered on the main thread through the main loop, and none arrives
// after the locator is destroyed or after a newer getUrl/cancel. Destroying
// the locator (or starting a new search) joins the fetch thread; while that
// thread probes a playlist's redirect this waits for the probe's time-outs.
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "net/UrlFetcher.h"
#include "store/Bookmark.h"

namespace quillon {

class BookmarkLocator {
public:
    static constexpr const char* kLive365Host = "www.live365.com";
    static constexpr const char* kLive365Prefix = "http://www.live365.com";
    // The fetch gives up on a stream that has sent this much without a header.
    static constexpr std::size_t kMaxProbeBytes = 2048;

    struct Callbacks {
        // A bookmark for the editor to confirm.
        std::function<void(std::shared_ptr<Bookmark>)> openEditor;
        // Title and message of an alert ("URL Failed to load").
        std::function<void(const std::string& title, const std::string& message)> alert;
        // The progress indicator and cancel control: on while fetching.
        std::function<void(bool searching)> searching;
        // An ICY stream header was recognised (the header text); optional.
        std::function<void(const std::string& header)> liveStream;
        // The header of an HTTP reply, once complete (an Icecast stream answers
        // in HTTP, which the search itself does not recognise); optional.
        std::function<void(const std::string& header)> httpHeader;
    };

    explicit BookmarkLocator(Callbacks callbacks);
    ~BookmarkLocator();
    BookmarkLocator(const BookmarkLocator&) = delete;
    BookmarkLocator& operator=(const BookmarkLocator&) = delete;

    // Starts making a bookmark from the location. A non-empty pending name
    // replaces the name the location gives.
    void getUrl(const std::string& location, const std::string& pendingName);
    // A URL known to be a stream: needs an explicit port of at least 1.
    bool directURL(const std::string& url, const std::string& name);
    // Stops a running fetch (the cancel control).
    void cancel();
    bool searching() const { return searching_; }

    // Playlist text into a fresh bookmark; opens the editor when it is usable.
    void parseURLfromData(std::span<const std::uint8_t> data, const std::string& pendingName);

private:
    struct Search;

    void startFetch(const std::string& location, const std::string& pendingName);
    void endSearch();
    // Runs `task` on the main thread unless the search it belongs to is over.
    void deliver(std::uint64_t generation, std::function<void()> task);

    Callbacks callbacks_;
    std::unique_ptr<UrlFetcher> fetcher_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    std::uint64_t generation_ = 0;
    bool searching_ = false;
};

}  // namespace quillon
