// Track splitting and file naming of a recording connection: when a track ends,
// what the next file is called, in which folder it lies, and what goes into the
// history. Runs on the connection thread (title changes, size splits) or on the
// main thread while the connection thread waits (the first file).

#include <fmt/format.h>

#include "engine/Ripper.h"
#include "engine/RipperOwner.h"
#include "engine/TrackHistory.h"
#include "engine/TrackName.h"
#include "engine/TrackSplitPolicy.h"
#include "platform/Home.h"
#include "platform/Localization.h"
#include "platform/Log.h"
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
    const PlaylistRule& rule = settings_.playlist;
    if (!rule.feed) return;
    auto name = rule.playlistFor(bookmark_->genre(), bookmark_->name().value_or(""),
                                 TimeUtil::localParts(std::chrono::system_clock::now()));
    if (!name || name->empty() || path.empty()) {
        Log::warn("Warning : null name {} or trackname {}", name.value_or("(null)"), path);
        return;
    }
    if (services_.handToLibrary) services_.handToLibrary(path, *name);
}

void Ripper::getName(const Bytes& metadata) {
    if (!useMeta_) return;
    // An encoding name the engine does not know (a bookmark file edited by
    // hand) reads as the default, detection.
    const auto charset =
        TitleEncoding::fromName(bookmark_->titleEncoding()).value_or(TitleEncoding::Charset::Auto);
    if (auto title = TrackSplitPolicy::titleFromMetadata(metadata, bookmark_->clean(), charset))
        setFileName(*title);
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
    const std::string text = TrackSplitPolicy::genericTitle(
        title(), TimeUtil::localParts(std::chrono::system_clock::now()), settings_.timeMode);
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
    switch (TrackSplitPolicy::onTitle(title, lname_, trackNum_, trackSplit_)) {
        case TrackSplitPolicy::Step::Ignore:
            return;
        case TrackSplitPolicy::Step::Chunk:
            setNoNameFile();
            return;
        case TrackSplitPolicy::Step::Generic:
            title = genericTitle();
            break;
        case TrackSplitPolicy::Step::NewTrack:
            break;
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

    const std::string name = TrackSplitPolicy::trackStem(title, trackNum_, bookmark_->trackNum());

    ++trackNum_;
    setCurrentTrack(name);
    setState(State::Recording);
    std::string path = joinPath(
        folder,
        fileNameForTrack(name, standardFiltered(bookmark_->name().value_or("")), fileExtension(format_)));
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
    setCurrentTrack(standardFiltered(generic));
    setState(State::Recording);
    const std::string name = trackSplit_ ? TrackSplitPolicy::chunkStem(generic, trackNum_) : currentTrack();
    ++trackNum_;
    std::string path = joinPath(
        downloadPath(),
        fileNameForTrack(name, standardFiltered(bookmark_->name().value_or("")), fileExtension(format_)));
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
    const bool skipped = currentItem_ && currentItem_->skipped();
    auto finished = TrackSplitPolicy::finishedPath(path, trackNum_, incompleteFolderName(), currentTrack(),
                                                   bookmark_->separator().value_or(""),
                                                   bookmark_->sortArtists() && !skipped);
    if (finished.artistFolder) makeFolders(*finished.artistFolder);
    return finished.path;
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
    std::optional<TrackSink::Tag> tag;
    if (takesId3Tag(format_))
        tag = TrackSink::Tag{currentTrack(), bookmark_->genre(), bookmark_->separator().value_or("")};
    auto path = sink_.openTrack(filename(), tag, mayResume);
    if (!path) return;  // the failure is raised on the connection thread
    {
        std::lock_guard lock(infoMutex_);
        filename_ = *path;
    }
    if (currentItem_) currentItem_->setPath(*path);
}

}  // namespace quillon
