#include "engine/TrackSink.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include <fmt/format.h>

#include "engine/TinyID3.h"
#include "engine/TrackFile.h"
#include "platform/NamedException.h"

namespace quillon {

namespace {
// The seconds of audio the writer holds at most (half of it is the delay line).
constexpr unsigned kWriterSeconds = 60;
}  // namespace

void TrackSink::reset(int recordOffset) {
    std::lock_guard lock(mutex_);
    writer_ = std::make_unique<QLNBuffer>(kWriterSeconds, recordOffset);
    open_ = false;
    pendingError_.clear();
}

void TrackSink::initValues(unsigned bitrate, AudioFormat format) {
    std::lock_guard lock(mutex_);
    writer_->initValues(bitrate, format);
}

std::optional<std::string> TrackSink::openTrack(const std::string& path, const std::optional<Tag>& tag,
                                                bool mayResume) {
    std::string resumePath, resumeAsked;
    {
        std::lock_guard lock(mutex_);
        resumePath = lastPath_;
        resumeAsked = lastAsked_;
    }
    // Deliberate: an existing file is never truncated or shared. The sink's
    // own last file is appended to when its track resumes (after a reconnect,
    // or when recording is switched on again); any other name that is taken
    // gets the next free numbered name.
    TrackFile::Opened opened;
    if (mayResume && !resumePath.empty() && (path == resumeAsked || path == resumePath))
        opened = TrackFile::openForAppending(resumePath);
    const bool resumed = opened.file.isOpen();
    if (!resumed) opened = TrackFile::createUnique(path);
    if (opened.file.isOpen() && !resumed && tag) {
        TinyID3 id3;
        id3.setGenre(tag->genre);
        id3.setSeparator(tag->separator);
        if (!id3.updateFile(opened.file, tag->trackName) && TinyID3::tagSize() > 0) opened.error = errno;
    }
    std::lock_guard lock(mutex_);
    if (!opened.file.isOpen() || (!resumed && opened.error != 0)) {
        pendingError_ =
            fmt::format("Disk error: cannot write {}: {}", opened.path, std::strerror(opened.error));
        writer_->setNewFileHandle(FileHandle::nullDevice());
        open_ = true;
        return std::nullopt;
    }
    lastPath_ = opened.path;
    if (!resumed) {
        lastAsked_ = path;
        lastFresh_ = true;
        lastHeadBytes_ = tag ? TinyID3::tagSize() : 0;
    }
    writer_->setNewFileHandle(std::move(opened.file));
    open_ = true;
    return opened.path;
}

void TrackSink::discardTrack() {
    std::lock_guard lock(mutex_);
    writer_->setNewFileHandle(FileHandle::nullDevice());
    open_ = true;
}

std::string TrackSink::moveFinished(const std::string& from, const std::string& to) {
    // Deliberate: a file already there under the finished name is never
    // replaced; the track takes the next free name beside it.
    return TrackFile::moveUnique(from, to);
}

void TrackSink::raisePendingError() {
    if (!pendingError_.empty()) throw NamedException(QLNBuffer::kDiskError, std::exchange(pendingError_, {}));
}

void TrackSink::raiseFailure() {
    std::lock_guard lock(mutex_);
    raisePendingError();
}

void TrackSink::add(std::span<const std::uint8_t> block) {
    std::lock_guard lock(mutex_);
    raisePendingError();
    if (open_) writer_->addData(block);
}

void TrackSink::finish() {
    std::string last;
    std::uintmax_t headBytes = 0;
    {
        std::lock_guard lock(mutex_);
        if (!open_) return;
        open_ = false;
        last = lastFresh_ ? lastPath_ : std::string();
        headBytes = lastHeadBytes_;
        // Deliberate: what the delay line holds is written out at every end
        // (stop, end of stream, failure, reconnect, quit): a recording ends
        // where the stream did, not 30 seconds earlier.
        writer_->finish();
    }
    // A file that got its tag (if any) but no audio (a cut that the end came
    // before) is no track: it goes rather than staying as an empty file.
    std::error_code ec;
    if (!last.empty() && std::filesystem::file_size(last, ec) == headBytes && !ec)
        std::filesystem::remove(last, ec);
}

unsigned TrackSink::filledValue() const {
    // The writer's fill level is atomic; the pointer changes only in reset,
    // on this same thread.
    return writer_ ? writer_->filledValue() : 0;
}

}  // namespace quillon
