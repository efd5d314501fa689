#pragma once
// Downloads the MP3 files an M3U playlist lists, one after another, into the
// home folder. Its progress lives in the resource's dictionary: "URLS" (the
// URLs), "maxFiles" (their count) and "currFile" (the index of the next file,
// -1 once all are done). A failed download pauses the sequence at that index;
// startDownload() then fetches it again and goes on from there.
//
// Deliberate: a download never replaces a file. It goes to a hidden partial
// file beside its target and takes the target's name, or the next free
// numbered one ("song (2).mp3"), only once every byte is on disk; a failed one
// leaves nothing behind. So a user's own "song.mp3", or an earlier entry of the
// same name, stays as it was.
//
// Thread contract: main thread only. Each download runs on its UrlFetcher's
// thread, which writes the partial file; its outcome reaches this object on
// the main loop, and none after it is destroyed. Destruction cancels the
// running download and waits for its thread.
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "store/AbstractResource.h"

namespace quillon {

class M3URipper : public AbstractResource {
public:
    static constexpr const char* kCurrentFileKey = "currFile";
    static constexpr const char* kURLsKey = "URLS";
    static constexpr const char* kMaxFilesKey = "maxFiles";
    // Bounds on what is read: the playlist file and each download.
    static constexpr std::size_t kMaxPlaylistBytes = 4u << 20;
    static constexpr std::uint64_t kMaxFileBytes = 2ull << 30;

    // An empty ripper ("currFile" 0).
    M3URipper();
    ~M3URipper() override;

    // Parses the file and, when it gives at least one URL, starts downloading.
    static std::shared_ptr<M3URipper> ripperWithFile(const std::string& path);

    // Reads the playlist (see M3UPlaylist); false when it is unreadable, empty,
    // larger than kMaxPlaylistBytes or lists no URL.
    bool parseFile(const std::string& path);
    std::vector<std::string> pendingFiles() const;
    // The last parse dropped a last line that had no line end.
    bool partialParse() const { return partial_; }
    // The file name of an entry, "" when it has none (see M3UPlaylist).
    static std::string getFileNameFromURL(const std::string& text);
    static std::string cleanURL(const std::string& text);

    // Fetches the file "currFile" names, then the rest in turn; nothing when
    // all are done or a download is already running.
    void startDownload();
    // Does nothing: a download runs until it ends.
    void stopDownload() {}

    const std::string& title() const { return title_; }
    void setTitle(std::string title) { title_ = std::move(title); }
    const std::string& status() const { return status_; }
    void setStatus(std::string status);
    std::uint32_t servePort() const { return servePort_; }
    void setServePort(std::uint32_t port) { servePort_ = port; }
    int clientsCount() const { return 0; }
    // Does nothing; the change handler is what observers use.
    void refreshStatus() {}

    // Index of the file being fetched, and the number of URLs.
    int trackNo() const { return trackNo_; }
    int trackMax() const { return trackMax_; }
    bool downloading() const { return download_ != nullptr; }
    bool done() const { return intForKey(kCurrentFileKey) < 0; }
    // Bytes of the running download on disk so far (read while it runs).
    std::uint64_t bytesReceived() const;
    // Why the last download failed; empty after a success.
    const std::string& lastFailure() const { return lastFailure_; }
    // Where the last finished download was saved.
    const std::string& lastSavedPath() const { return lastSavedPath_; }
    // Called on the main thread at every step: a download started, finished
    // or failed, or the sequence completed.
    void setChangeHandler(std::function<void()> handler) { changed_ = std::move(handler); }

protected:
    std::shared_ptr<AbstractResource> newResource() const override;

private:
    struct Download;

    void finished(const std::string& savedPath);
    void failed(const std::string& reason);
    void notify();

    std::string status_;
    std::string listGenre_;
    std::string title_;
    std::string currentTrack_;
    int trackNo_ = 0;
    int trackMax_ = 0;
    std::uint32_t servePort_ = 0;
    bool partial_ = false;
    std::string lastFailure_;
    std::string lastSavedPath_;
    std::function<void()> changed_;
    // The running download; its fetcher's callbacks share it, posted outcomes
    // hold it weakly, so that dropping it silences them.
    std::shared_ptr<Download> download_;
};

}  // namespace quillon
