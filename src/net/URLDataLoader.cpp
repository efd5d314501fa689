#include "net/URLDataLoader.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/AtomicFile.h"
#include "platform/FileHandle.h"
#include "platform/Log.h"
#include "platform/MainLoop.h"

namespace quillon {

// One start of the loader: the temporary file and the hand-over of events.
struct URLDataLoader::Download {
    FileHandle file;       // written and closed by the fetch thread
    std::string tempPath;  // main thread; removed unless renamed into place
    std::atomic<bool> dataPending{false};

    ~Download() { removeTemporaryFile(); }
    void removeTemporaryFile() {
        if (!tempPath.empty()) ::unlink(tempPath.c_str());
        tempPath.clear();
    }
};

URLDataLoader::~URLDataLoader() { dropDownload(); }

std::unique_ptr<URLDataLoader> URLDataLoader::dataLoaderWithURL(
    const std::string& url, double timeout, const std::string& notifyComplete, const std::string& newData,
    const std::string& failed, const std::string& cancelled, const std::string& timeoutMethod,
    Target target) {
    auto loader = std::make_unique<URLDataLoader>();
    loader->setUrlString(url);
    const std::pair<Event, const std::string&> names[] = {{Event::complete, notifyComplete},
                                                          {Event::newData, newData},
                                                          {Event::failed, failed},
                                                          {Event::cancelled, cancelled},
                                                          {Event::timeout, timeoutMethod}};
    std::int32_t mask = 0;
    for (const auto& [event, name] : names) {
        if (name.empty()) continue;
        loader->getNotified(target, event, name);
        mask |= static_cast<std::int32_t>(event);
    }
    loader->setMask(mask, timeout);
    loader->startLoading();
    return loader;
}

std::unique_ptr<URLDataLoader> URLDataLoader::dataLoaderWithURL(const std::string& url, double timeout,
                                                                const std::string& genericSelector,
                                                                Target target) {
    return dataLoaderWithURL(url, timeout, genericSelector, "", genericSelector, "", genericSelector,
                             std::move(target));
}

void URLDataLoader::getNotified(Target target, Event event, const std::string& method) {
    target_ = std::move(target);
    selectors_[event] = method;
}

void URLDataLoader::setMask(std::int32_t mask, double timeout) {
    eventMask_ = mask;
    timeout_ = timeout;
}

void URLDataLoader::dropDownload() {
    // The fetcher first: its callbacks share the download, and joining it
    // guarantees that nothing writes to the temporary file any more.
    fetcher_.reset();
    download_.reset();
}

void URLDataLoader::deliver(URLDataLoader* self, std::weak_ptr<Download> download,
                            std::function<void(URLDataLoader&)> task) {
    MainLoop::main().post([self, download = std::move(download), task = std::move(task)] {
        // While the download lives, so does the loader: the download's owners
        // are the loader and its fetcher, and no other task runs meanwhile.
        auto current = download.lock();
        if (!current || current != self->download_ || self->status_ != Status::loading) return;
        task(*self);
    });
}

void URLDataLoader::startLoading() {
    dropDownload();
    filePath_.clear();
    status_ = Status::loading;
    auto download = std::make_shared<Download>();
    download_ = download;
    std::weak_ptr<Download> weak = download;

    std::string pattern = std::string(kDestinationFolder) + ".quillon-download-XXXXXX";
    int fd = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (fd < 0) {
        Log::info("Unable to create a file in {} for {}: {}", kDestinationFolder, url_, std::strerror(errno));
        deliver(this, weak, [](URLDataLoader& loader) { loader.failed(); });
        return;
    }
    download->file = FileHandle(fd);
    download->tempPath = pattern;

    // The fetcher's callbacks share the download: it lives as long as they can
    // write to it.
    UrlFetcher::Callbacks callbacks;
    callbacks.onData = [this, download, url = url_](std::span<const std::uint8_t> chunk) {
        if (!download->file.writeAll(chunk)) {
            Log::info("Unable to write the download of {}: {}", url, std::strerror(errno));
            deliver(this, download, [](URLDataLoader& loader) { loader.failed(); });
            return false;
        }
        // Deliberate: one event per batch of chunks the main loop has not yet
        // seen, so a fast download cannot flood the main loop.
        if (!download->dataPending.exchange(true)) {
            deliver(this, download, [raw = download.get()](URLDataLoader& loader) {
                raw->dataPending = false;
                loader.performSelectorForEvent(Event::newData);
            });
        }
        return true;
    };
    callbacks.onFinished = [this, download, url = url_] {
        bool closed = ::close(download->file.release()) == 0;
        if (!closed) Log::info("Unable to write the download of {}: {}", url, std::strerror(errno));
        deliver(this, download, [closed](URLDataLoader& loader) {
            if (closed) {
                loader.finished();
            } else {
                loader.failed();
            }
        });
    };
    callbacks.onFailed = [this, weak](const std::string&) {
        deliver(this, weak, [](URLDataLoader& loader) { loader.failed(); });
    };

    fetcher_ = std::make_unique<UrlFetcher>(url_, timeout_, std::move(callbacks));
    fetcher_->setMaxBytes(maxBytes_);
    // Deliberate: an HTTP error page is a failure, not the file, because a
    // version check would read "404 Not Found" as "up to date".
    fetcher_->setFailOnHttpError(true);
    fetcher_->start();
}

void URLDataLoader::finished() {
    // The fetcher set the name before it reported the end, which the main loop
    // hand-over orders before this.
    std::string target = std::string(kDestinationFolder) + fetcher_->suggestedFileName();
    if (::rename(download_->tempPath.c_str(), target.c_str()) != 0) {
        Log::info("Unable to save the download of {} as {}: {}", url_, target, std::strerror(errno));
        failed();
        return;
    }
    download_->tempPath.clear();
    filePath_ = target;
    status_ = Status::finished;
    performSelectorForEvent(Event::complete);
}

void URLDataLoader::failed() {
    download_->removeTemporaryFile();
    status_ = Status::failed;
    performSelectorForEvent(Event::failed);
}

void URLDataLoader::stopLoading() {
    if (fetcher_) fetcher_->cancel();
    if (download_) download_->removeTemporaryFile();
    status_ = Status::cancelled;
    performSelectorForEvent(Event::cancelled);
}

void URLDataLoader::URLTimeout() {
    if (status_ != Status::loading) return;
    // Deliberate: the download is cancelled too, since its outcome could no
    // longer be reported.
    if (fetcher_) fetcher_->cancel();
    if (download_) download_->removeTemporaryFile();
    status_ = Status::timedOut;
    performSelectorForEvent(Event::timeout);
}

std::optional<Bytes> URLDataLoader::data() const {
    if (filePath_.empty()) return std::nullopt;
    return readWholeFile(filePath_);
}

void URLDataLoader::performSelectorForEvent(Event event) {
    auto it = selectors_.find(event);
    if (it == selectors_.end() || !target_) return;
    // Copies: the target may destroy this loader while it runs.
    Target target = target_;
    std::string method = it->second;
    target(method, *this);
}

}  // namespace quillon
