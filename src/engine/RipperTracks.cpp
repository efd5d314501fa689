// Track splitting and file naming of a recording connection: when a track ends,
// what the next file is called, in which folder it lies, and what goes into the
// history. Runs on the connection thread (title changes, size splits) or on the
// main thread while the connection thread waits (the first file).
#include <filesystem>

#include <fmt/format.h>

#include "engine/Ripper.h"
#include "engine/RipperOwner.h"
#include "engine/TrackHistory.h"
#include "engine/TrackName.h"
#include "platform/Home.h"
#include "platform/Localization.h"
#include "platform/TextUtil.h"
#include "platform/TimeUtil.h"
#include "platform/Timing.h"
#include "platform/VoObject.h"
#include "store/Bookmark.h"

namespace quillon {

namespace {

std::string standardFiltered(const std::string& text) {
    return VoObject::filterString(text, VoObject::standartFilter());
}
}  // namespace

std::string Ripper::incompleteFolderName() const { return localized("incomp", "Incomplete"); }

void Ripper::setCurrentTrack(const std::string& track) {
    std::lock_guard lock(infoMutex_);
    currentTrack_ = track;
}

void Ripper::handToLibrary(const std::string& path) {
    if (services_.handToLibrary) services_.handToLibrary(path);
}

void Ripper::getName(const Bytes& metadata) {
    if (!useMeta_) return;
    auto title = VoObject::returnStringInData(metadata, "StreamTitle='", "';");
    if (!title) return;
    std::string text = *title;  // already UTF-8
    if (bookmark_->clean()) text = VoObject::alphabeticString(text);
    setFileName(text);
}

std::string Ripper::trackNumber(const std::string& text) {
    return text.size() <= 4 ? text : text.substr(text.size() - 4);
}

std::string Ripper::genericTitle() {
    {
        std::lock_guard lock(infoMutex_);
        if (genericTitle_) return *genericTitle_;
    }
    useMeta_ = false;
    if (settings_.sizeSplit()) {
        trackSplit_ = true;
        trackSize_ = settings_.chunkSizeMiB;
    }
    const int mode = settings_.timeMode;
    std::tm local = TimeUtil::localParts(std::chrono::system_clock::now());
    int day = local.tm_mday, month = local.tm_mon + 1, year = local.tm_year + 1900;
    std::string date =
        mode == 24 ? fmt::format("{}-{}-{}@", day, month, year) : fmt::format("{}-{}-{}@", month, day, year);
    std::string text =
        fmt::format("{}-({}{})", title(), date, TimeUtil::formatTime(local.tm_hour, local.tm_min, mode));
    genericName_ = true;
    std::lock_guard lock(infoMutex_);
    genericTitle_ = text;
    return text;
}

void Ripper::finishCurrentFile(std::string& finishedPath) {
    std::string current = filename();
    finishedPath = parentFolderIfIncomplete(current);
    bool skipped = currentItem_ && currentItem_->skipped();
    if (finishedPath != current && !skipped) {
        finishedPath = TrackSink::moveFinished(current, finishedPath);
        if (finishedPath != current) handToLibrary(finishedPath);
    }
}

void Ripper::setFileName(const std::string& newTitle) {
    std::string title = newTitle;
    if (!title.empty() && title == lname_) return;
    if (title.empty()) {
        if (trackNum_ > 0) return;
        if (trackSplit_) {
            setNoNameFile();
            return;
        }
        title = genericTitle();
    }

    std::optional<std::string> finished;
    bool titlesFromMeta = hasMeta_ && useMeta_;
    bool titlesFromPage = titleSource_ && titleSource_->enabled();
    if (!relayOnly_ && (titlesFromMeta || titlesFromPage)) {
        std::string path;
        finishCurrentFile(path);
        finished = path;
    }

    if (closeAfterThisTrack_) {
        if (currentItem_ && trackNum_ >= 2) currentItem_->setComplete(true);
        userClose();
        return;
    }

    if (relayOnly_) {
        currentItem_.reset();
        setCurrentTrack(title);
        setState(State::Relaying);
        return;
    }

    const auto& history = services_.history;
    if (settings_.log && history) {
        if (currentItem_) {
            if (trackNum_ >= 2) currentItem_->setComplete(true);
            // A skipped track keeps pointing at the earlier recording.
            if (!currentItem_->skipped()) currentItem_->setPath(finished.value_or(""));
        }
        auto item = history->newItem(title, bookmark_->name().value_or(""), trackNum_);
        if (settings_.skip) {
            if (auto earlier = history->existing(title)) {
                item->setSkipped(true);
                item->setComplete(true);
                item->setPath(earlier->path());
            }
        }
        history->add(item);
        currentItem_ = item;
    }

    lname_ = title;

    std::string folder = downloadPath();
    if (settings_.incomplete && hasMeta_ && !genericName_) {
        incomplete_ = true;
        folder = joinPath(folder, incompleteFolderName());
        makeFolders(folder);
    }

    std::string name = standardFiltered(title);
    if (bookmark_->trackNum()) name = trackNumber(fmt::format("000{} ", trackNum_.load())) + name;

    ++trackNum_;
    setCurrentTrack(name);
    setState(State::Recording);
    std::string path =
        joinPath(folder, fileNameForTrack(name, standardFiltered(bookmark_->name().value_or(""))));
    {
        std::lock_guard lock(infoMutex_);
        filename_ = path;
    }
    if (currentItem_ && !currentItem_->skipped()) currentItem_->setPath(path);
    setupFile(true, firstFileOfRun_.exchange(false));
}

void Ripper::setNoNameFile() {
    std::string generic = genericTitle();
    if (closeAfterThisTrack_) {
        if (currentItem_) currentItem_->setComplete(true);
        userClose();
        return;
    }
    if (relayOnly_) {
        setCurrentTrack(generic);
        setState(State::Relaying);
        return;
    }
    const auto& history = services_.history;
    if (settings_.log && history) {
        if (currentItem_) {
            currentItem_->setComplete(true);
            currentItem_->setPath(filename());
        }
        currentItem_ = history->newItem(generic, bookmark_->name().value_or(""), trackNum_);
        history->add(currentItem_);
    }
    std::string name = standardFiltered(generic);
    setCurrentTrack(name);
    setState(State::Recording);
    // Deliberate: chunk numbers keep all their digits past 999 ("1000 "), so
    // that a long recording does not come round to the names of its first chunks.
    if (trackSplit_) name = fmt::format("{:03} ", trackNum_.load()) + name;
    ++trackNum_;
    std::string path =
        joinPath(downloadPath(), fileNameForTrack(name, standardFiltered(bookmark_->name().value_or(""))));
    {
        std::lock_guard lock(infoMutex_);
        filename_ = path;
    }
    if (currentItem_) currentItem_->setPath(path);
    setupFile(true, firstFileOfRun_.exchange(false));
    std::weak_ptr<bool> alive = alive_;
    MainLoop::main().addTimer(timing().libraryHandOffDelay, [this, alive, path = filename()] {
        if (auto a = alive.lock(); a && *a) handToLibrary(path);
    });
}

std::string Ripper::parentFolderIfIncomplete(const std::string& path) {
    if (trackNum_ < 2) return path;
    std::filesystem::path file(path);
    std::filesystem::path folder = file.parent_path();
    if (folder.filename() == incompleteFolderName()) folder = folder.parent_path();
    std::string track = currentTrack();
    const std::string separator = bookmark_->separator().value_or("");
    bool skipped = currentItem_ && currentItem_->skipped();
    if (bookmark_->sortArtists() && !skipped && !separator.empty()) {
        auto at = track.find(separator);
        if (at != std::string::npos && at > 0) {
            folder /= safeFolderName(track.substr(0, at), "Unknown Artist");
            makeFolders(folder.string());
        }
    }
    return (folder / file.filename()).string();
}

void Ripper::createFolderHierarchy() {
    std::string path = owner_.downloadPath();
    if (settings_.genreSort) {
        path = joinPath(path, safeFolderName(standardFiltered(bookmark_->genre()), "-"));
        makeFolders(path);
    }
    if (settings_.subFolders) {
        path = joinPath(path, safeFolderName(standardFiltered(title()), "Untitled Stream"));
        subFolders_ = true;
        makeFolders(path);
    }
    std::lock_guard lock(infoMutex_);
    downloadPath_ = path;
}

void Ripper::setupFile(bool write, bool mayResume) {
    const bool skipped = currentItem_ && currentItem_->skipped();
    if (!write || skipped) {
        sink_.discardTrack();
        return;
    }
    TrackSink::Tag tag{currentTrack(), bookmark_->genre(), bookmark_->separator().value_or("")};
    auto path = sink_.openTrack(filename(), tag, mayResume);
    if (!path) return;  // the failure is raised on the connection thread
    {
        std::lock_guard lock(infoMutex_);
        filename_ = *path;
    }
    if (currentItem_) currentItem_->setPath(*path);
}

}  // namespace quillon
