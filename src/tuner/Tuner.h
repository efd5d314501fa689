#pragma once
// The station directory: genres holding stations and streams (TunerItem),
// downloaded as a whole from a directory server, kept in the local file
// "kv.qlntuner.tun" (an XML property-list array of the genres' archives), and
// filtered by keyword and bit rate.
//
// The server's base address is the preference "tunerServer" (setServer
// overrides it). Its files: "/qlntunv.txt" (the directory version, an
// integer), "/tunerLocation.txt" (the base address of the directory files),
// and at that base "genres.tun" (an array of genre names) and one
// "NAME.tun" per genre (its archive). Playlists come from
// "/sbin/shoutcast-playlist.pls" on the same server.
//
// A second source fills the same tree and file: Radio Browser (RadioBrowser),
// its most used tags as genres, without a version check. The source of the
// last update is the preference "tunerSource" ("server" or "radio-browser").
//
// Thread contract: main thread, except where a member says otherwise. The
// version check completes on the main thread; an update downloads on a worker
// thread of the directory's own and hands every progress step and its outcome
// to the main loop (the events below run there). The tree (genres, filtered
// genres, the index) changes on the main thread under `tunerLock`, which the
// filter thread (TunerFilter) holds while it filters: code that walks the tree
// while a filter may run brackets the walk with lock() / unlock(). Destruction
// cancels a running update and joins its thread; a worker blocked in a hand-off
// to the main loop is released, so the main thread never waits for itself.
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/MainLoop.h"
#include "tuner/TunerItem.h"

namespace quillon {

class TunerDownload;
class URLDataLoader;

class Tuner {
public:
    static constexpr const char* kServerKey = "tunerServer";
    static constexpr const char* kVersionKey = "tunerVersion";
    static constexpr const char* kFileName = "kv.qlntuner.tun";
    static constexpr const char* kVersionFile = "/qlntunv.txt";
    static constexpr const char* kLocationFile = "/tunerLocation.txt";
    static constexpr const char* kGenresFile = "genres.tun";
    static constexpr const char* kFileExtension = "tun";
    static constexpr int kNeutralMax = 320;
    static constexpr const char* kSourceKey = "tunerSource";

    enum class Source { server, radioBrowser };
    // "server" / "radio-browser", and back (none for another text).
    static const char* sourceName(Source source);
    static std::optional<Source> sourceNamed(std::string_view name);

    // Deliberate: everything the server sends is bounded.
    static constexpr std::uint64_t kMaxTextBytes = 64 * 1024;
    static constexpr std::uint64_t kMaxGenresBytes = 1 << 20;
    static constexpr std::uint64_t kMaxGenreBytes = 16u << 20;
    static constexpr std::size_t kMaxGenres = 1000;

    // A filter request: the search text (already lower-cased), and the bit
    // rates let through, both bounds included.
    struct Filter {
        std::string keywords;
        std::uint16_t min = 0;
        std::uint16_t max = kNeutralMax;
        // From the dictionary of the notification "FilterChanged" (keys
        // "FilterKeywords", "FilterMin", "FilterMax").
        static Filter fromDictionary(const PlistValue::Dictionary& entries);
        bool neutral() const { return keywords.empty() && min == 0 && max == kNeutralMax; }
    };

    enum class Outcome { upToDate, updated, checkFailed, updateFailed };
    // Main thread only, all of them optional.
    struct Events {
        // A step of a running update: its text and 0..100.
        std::function<void(const std::string& text, int percent)> progress;
        // The tree changed (an update began or ended).
        std::function<void()> refresh;
        // A version check or update has ended; `message` says how (localised).
        std::function<void(Outcome outcome, const std::string& message)> finished;
        // An alert the user asked for (key, text), and a refused request.
        std::function<void(const std::string& key, const std::string& text)> alert;
        std::function<void()> beep;
    };

    // The shared directory, on the local file of the home folder. resetShared
    // forgets it (the daemon's end, tests).
    static std::shared_ptr<Tuner> tuner();
    static void resetShared();

    // `path`: the local file; empty: the tuner folder's kv.qlntuner.tun.
    explicit Tuner(std::string path = {});
    ~Tuner();
    Tuner(const Tuner&) = delete;
    Tuner& operator=(const Tuner&) = delete;

    void setEvents(Events events) { events_ = std::move(events); }
    // The base address of the server ("http://host:port"); empty: the preference.
    void setServer(std::string base) { server_ = std::move(base); }
    std::string server() const;
    // Where the next update comes from; unset: the preference "tunerSource"
    // (the source of the last update), else the directory server.
    void setSource(std::optional<Source> source) { source_ = source; }
    Source source() const;
    // Radio Browser: keep the streams of every codec, not only MP3.
    void setAllCodecs(bool on) { allCodecs_ = on; }
    // Radio Browser's base address: setServer's, else the preference
    // "radioBrowserServer"; empty: a mirror chosen at update time.
    std::string radioBrowserServer() const;
    const std::string& tunerPath() const { return tunerPath_; }

    // Loads the local file, once; false when it is missing or empty.
    bool loadTunerData();

    // A version check that, when the server's version is newer than
    // "tunerVersion", updates (Radio Browser has no version: it updates). `message`: the user asked (report
    // being up to date, and failures, as alerts).
    void beginUpdate(bool message);
    void checkTunerVersion();
    void didCheckTunerVersion(URLDataLoader& loader);
    // Starts the download on the worker thread (a beep while one runs).
    void update();
    bool updating() const { return updating_; }
    bool checking() const { return loader_ != nullptr; }
    const std::string& cv() const { return cv_; }

    // Top-level rows: the filtered genres while a filter is in force, else all.
    std::size_t count() const;
    std::shared_ptr<TunerItem> itemAtIndex(std::size_t index) const;
    const TunerItem::List& tunerGenres() const { return tunerGenres_; }
    const TunerItem::List& filteredTunerGenres() const { return filteredTunerGenres_; }
    bool filtered() const { return filtered_; }
    // The streams that passed the last filter.
    int filterCount() const { return filterCount_; }

    // Rebuilds the filtered list. Caller holds the lock when a filter thread
    // may run; any thread.
    void filter(const Filter& request);

    void expand(bool on, const std::string& name);
    bool isExpanded(const std::string& name) const;

    // The genre of that name ("Other" for none), created at the end when missing.
    std::shared_ptr<TunerItem> groupForGenre(const std::optional<std::string>& name);
    void addItemWithGenre(std::shared_ptr<TunerItem> stream);
    // Adds to the selected row, or at the top level when there is none.
    void addItem(std::shared_ptr<TunerItem> item, const std::shared_ptr<TunerItem>& selected = nullptr);
    void sortWithDescriptors(const std::vector<TunerItem::SortDescriptor>& descriptors);

    void lock() { tunerLock_.lock(); }
    void unlock() { tunerLock_.unlock(); }
    std::mutex& tunerLock() { return tunerLock_; }

    // Maintenance: the genres as an archive to / from home + "tuner.tun", and
    // the server's files ("genres.tun" and one archive per genre) into `folder`
    // (default: home + "Tuner"). Each returns success; failures are logged.
    bool save() const;
    bool load();
    bool generateFiles(const std::string& folder = {}) const;
    // The server's directory files, by file name, as generateFiles writes them.
    static std::map<std::string, Bytes> serverFiles(const TunerItem::List& genres);
    // The file name of a genre and the address it is fetched from.
    static std::string genreFileName(const std::string& name) { return name + "." + kFileExtension; }
    static std::string genreURL(const std::string& location, const std::string& name);
    // Every byte outside the unreserved set as %XX.
    static std::string percentEncoded(std::string_view text);

    // The local file's genres (nothing when it cannot be read); any thread.
    static std::optional<TunerItem::List> readDirectoryFile(const std::string& path);
    static bool writeDirectoryFile(const std::string& path, const TunerItem::List& genres);

private:
    struct Download;
    // The worker's body: everything downloaded or nothing.
    void updateTuner(std::shared_ptr<Download> download);
    void updateRadioBrowser(std::shared_ptr<Download> download);
    // One mirror's whole tree; none with the reason. False in `live` once the
    // main loop is gone.
    std::optional<TunerItem::List> downloadRadioBrowser(Download& download, const std::string& base,
                                                        bool& live, std::string& failure);
    // Sorted genre names; sets the download's location.
    std::optional<std::vector<std::string>> downloadGenreList(Download& download, std::string& failure);
    std::shared_ptr<TunerItem> downloadGenre(Download& download, const std::string& name,
                                             std::string& failure);
    void errorMessage(const std::string& reason);
    // On the main thread, from the worker.
    void progress(const std::string& text, int percent);
    void finishUpdate(Outcome outcome, const std::string& message, std::optional<TunerItem::List> genres);
    void setGenres(TunerItem::List genres);
    void report(Outcome outcome, const std::string& message);

    TunerItem::List tunerGenres_;
    std::vector<std::string> expandedItems_;
    std::map<std::string, std::shared_ptr<TunerItem>> tunerData_;
    std::string tunerPath_;
    std::string tunerLocationURL_;
    TunerItem::List filteredTunerGenres_;
    bool filtered_ = false;
    int filterCount_ = 0;
    std::mutex tunerLock_;
    std::string cv_;
    bool updating_ = false;
    bool message_ = false;
    bool loaded_ = false;
    std::unique_ptr<URLDataLoader> loader_;
    std::string server_;
    std::optional<Source> source_;
    Source updateSource_ = Source::server;  // the running or last update's
    bool allCodecs_ = false;
    Events events_;

    InvokeGuard guard_;
    std::shared_ptr<TunerDownload> download_;  // the running update's, to cancel it
    std::thread worker_;
};

}  // namespace quillon
