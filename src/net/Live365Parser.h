#pragma once
// The title source of a Live365 station: the station's stream carries no
// usable titles, so the track playing is read from the station's playlist
// page. Made for every connection once its header is read; active only when
// the connection's request text holds "session=", whose value up to the first
// ":" is the station's handle. Active, it polls the page on a thread of its
// own while the connection streams: artist and title name the file being
// recorded, and the page's count of seconds left says when to look again.
//
// Thread contract: construct, query and destroy on one thread (the
// connection's). The polling thread calls the Connection (live, setFileName,
// setNoNameFile); setStationURL is called during construction. Destruction
// stops the polling thread, cancelling a page download under way, and joins it.
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>

namespace quillon {

class UrlFetcher;

class Live365Parser {
public:
    // What the parser needs of its recording connection.
    class Connection {
    public:
        virtual ~Connection() = default;
        // Recording or relaying (the states that count as streaming).
        virtual bool live() const = 0;
        virtual void setFileName(const std::string& name) = 0;
        virtual void setNoNameFile() = 0;
        virtual void setStationURL(const std::string& url) = 0;
    };

    // The track block of a playlist page.
    struct Track {
        std::string currentName;                  // "artist - title"
        std::optional<std::int32_t> secondsLeft;  // none: the page does not say
    };

    // The service's web host when the preference names none.
    static constexpr const char* kDefaultWebHost = "www.live365.com";
    // Pages larger than this are not read.
    static constexpr std::uint64_t kMaxPageBytes = 1u << 20;

    // `webHost`: host with an optional ":port" ("" for the default).
    Live365Parser(Connection& connection, std::string_view headerText, std::string webHost);
    ~Live365Parser();
    Live365Parser(const Live365Parser&) = delete;
    Live365Parser& operator=(const Live365Parser&) = delete;

    // Whether polling started.
    bool enabled() const { return enabled_; }
    const std::string& stationURL() const { return stationURL_; }
    const std::string& playlistURL() const { return playlistURL_; }

    // The handle after "session=" up to the first ":"; none without "session=".
    static std::optional<std::string> stationHandle(std::string_view headerText);
    // The playlist page of a station; none when no URL can be made of them.
    static std::optional<std::string> playlistPageURL(std::string_view webHost, std::string_view handle);
    // The station's own page.
    static std::string stationPageURL(std::string_view webHost, std::string_view handle);
    // The track block of a page; none when the page has no block.
    static std::optional<Track> getTrackName(std::span<const std::uint8_t> page);

private:
    bool connectToPlaylist(const std::string& handle);
    void readNameLoop();
    // The page's bytes; empty when both tries gave nothing or polling stops.
    std::string getNewData();
    std::string fetchOnce();
    // Waits up to `seconds`; false when polling stops.
    bool pause(double seconds);

    Connection& connection_;
    std::string webHost_;
    std::string playlistURL_;
    std::string stationURL_;
    std::string currentName_;  // polling thread only
    bool enabled_ = false;

    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;           // under mutex_
    UrlFetcher* fetching_ = nullptr;  // under mutex_: the download under way
    std::thread thread_;
};

}  // namespace quillon
