#include "engine/M3URipper.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "engine/TrackFile.h"
#include "net/M3UPlaylist.h"
#include "net/UrlFetcher.h"
#include "platform/AtomicFile.h"
#include "platform/FileHandle.h"
#include "platform/Home.h"
#include "platform/Log.h"
#include "platform/MainLoop.h"
#include "platform/Timing.h"

namespace quillon {

struct M3URipper::Download {
    std::string target;
    std::string partPath;
    FileHandle file;
    std::atomic<std::uint64_t> bytes{0};
    std::atomic<bool> committed{false};
    // Declared last, so destroyed first: its thread is joined before the file goes.
    std::unique_ptr<UrlFetcher> fetcher;

    ~Download() {
        fetcher.reset();
        if (!committed && !partPath.empty()) ::unlink(partPath.c_str());
    }
};

M3URipper::M3URipper() { setInt(0, kCurrentFileKey); }

M3URipper::~M3URipper() {
    if (download_) Log::line("Resource URLHandleResourceDidCancelLoading");
    download_.reset();
}

std::shared_ptr<AbstractResource> M3URipper::newResource() const { return std::make_shared<M3URipper>(); }

std::shared_ptr<M3URipper> M3URipper::ripperWithFile(const std::string& path) {
    auto ripper = std::make_shared<M3URipper>();
    if (ripper->parseFile(path)) ripper->startDownload();
    return ripper;
}

std::string M3URipper::getFileNameFromURL(const std::string& text) {
    return M3UPlaylist::fileNameFromURL(text).value_or("");
}

std::string M3URipper::cleanURL(const std::string& text) { return M3UPlaylist::cleanURL(text).value_or(""); }

bool M3URipper::parseFile(const std::string& path) {
    auto bytes = readWholeFile(path);
    if (!bytes || bytes->empty()) return false;
    if (bytes->size() > kMaxPlaylistBytes) {
        Log::info("{} is larger than {} bytes: not read as a playlist", path, kMaxPlaylistBytes);
        return false;
    }
    auto parsed = M3UPlaylist::parse(*bytes);
    partial_ = parsed && parsed->partial;
    if (parsed && parsed->partial) Log::line("Error parsing file returning partial results.");
    if (!parsed) return false;
    for (const std::string& url : parsed->urls) Log::info("{}", getFileNameFromURL(url));
    Log::info("{}", parsed->urls.front());
    PlistValue::Array list;
    for (const std::string& url : parsed->urls) list.emplace_back(url);
    setObject(PlistValue(std::move(list)), kURLsKey);
    trackMax_ = static_cast<int>(parsed->urls.size());
    setInt(trackMax_, kMaxFilesKey);
    return true;
}

std::vector<std::string> M3URipper::pendingFiles() const {
    std::vector<std::string> out;
    auto value = objectForKey(kURLsKey);
    if (!value || !value->isArray()) return out;
    for (const PlistValue& item : *value->asArray()) {
        if (const std::string* s = item.asString()) out.push_back(*s);
    }
    return out;
}

void M3URipper::setStatus(std::string status) {
    status_ = std::move(status);
    refreshStatus();
}

std::uint64_t M3URipper::bytesReceived() const { return download_ ? download_->bytes.load() : 0; }

void M3URipper::notify() {
    if (changed_) changed_();
}

void M3URipper::startDownload() {
    if (download_) return;
    trackNo_ = intForKey(kCurrentFileKey);
    if (trackNo_ < 0) return;
    const std::vector<std::string> urls = pendingFiles();
    trackMax_ = static_cast<int>(urls.size());
    lastFailure_.clear();
    if (trackNo_ >= trackMax_) {
        failed("the playlist has no entry " + std::to_string(trackNo_ + 1));
        return;
    }
    const std::string& url = urls[static_cast<std::size_t>(trackNo_)];
    const std::string name = getFileNameFromURL(url);
    if (name.empty()) {
        failed("no file name in " + url);
        return;
    }
    currentTrack_ = name;
    auto download = std::make_shared<Download>();
    download->target = joinPath(homeFolder(), name);
    TrackFile::Opened part = TrackFile::createUnique(joinPath(homeFolder(), "." + name + ".part"));
    if (!part.file.isOpen()) {
        failed("cannot create " + part.path + ": " + std::strerror(part.error));
        return;
    }
    download->partPath = part.path;
    download->file = std::move(part.file);

    std::weak_ptr<Download> weak = download;
    Download* d = download.get();
    // Outcomes are handed to the main thread while the download is still the running one.
    auto deliver = [this, weak](std::function<void(M3URipper&)> task) {
        MainLoop::main().post([this, weak, task = std::move(task)] {
            auto running = weak.lock();
            if (running && running == download_) task(*this);
        });
    };
    UrlFetcher::Callbacks callbacks;
    callbacks.onData = [d, deliver](std::span<const std::uint8_t> chunk) {
        if (!d->file.writeAll(chunk)) {
            std::string reason = std::string("Disk error: ") + std::strerror(errno);
            deliver([reason](M3URipper& r) { r.failed(reason); });
            return false;  // cancels: no other outcome follows
        }
        d->bytes += chunk.size();
        return true;
    };
    callbacks.onFinished = [d, deliver] {
        std::string reason;
        if (!d->file.sync()) reason = std::string("Disk error: ") + std::strerror(errno);
        d->file.close();
        std::string saved;
        if (reason.empty()) {
            saved = TrackFile::moveUnique(d->partPath, d->target);
            if (saved == d->partPath) {
                reason = "cannot move the download to " + d->target + ": " + std::strerror(errno);
            } else {
                d->committed = true;
            }
        }
        deliver([reason, saved](M3URipper& r) {
            if (reason.empty())
                r.finished(saved);
            else
                r.failed(reason);
        });
    };
    callbacks.onFailed = [deliver](const std::string& reason) {
        deliver([reason](M3URipper& r) { r.failed(reason); });
    };
    download->fetcher = std::make_unique<UrlFetcher>(url, timing().urlFetchTimeout, std::move(callbacks));
    download->fetcher->setMaxBytes(kMaxFileBytes);
    download->fetcher->setFailOnHttpError(true);
    download_ = download;
    download->fetcher->start();
    Log::line("Resource URLHandleResourceDidBeginLoading");
    Log::info("Downloading : {}", name);
    setStatus("Downloading : " + name);
    notify();
}

void M3URipper::finished(const std::string& savedPath) {
    Log::line("Resource URLHandleResourceDidFinishLoading");
    download_.reset();
    lastSavedPath_ = savedPath;
    ++trackNo_;
    if (trackNo_ >= trackMax_) {
        setInt(-1, kCurrentFileKey);
        setStatus("Done");
        notify();
        return;
    }
    setInt(trackNo_, kCurrentFileKey);
    notify();
    startDownload();
}

void M3URipper::failed(const std::string& reason) {
    Log::info("Resource didFailLoading : {}", reason);
    // Dropping the download removes its partial file; "currFile" still names
    // the entry, so the next startDownload fetches it again.
    download_.reset();
    lastFailure_ = reason;
    setStatus("Failed : " + reason);
    notify();
}

}  // namespace quillon
