#pragma once
// Where a connection's audio goes: the delay-line writer and the track files
// behind it. It opens each track's file (a new one with its ID3 tag, or the
// connection's own last file when that track resumes), moves finished files,
// takes the audio block by block, and writes out everything held when the
// recording ends.
//
// Deliberate differences that protect what the user has (named where made):
// no file is ever truncated, replaced or shared; a file that cannot be
// created or written raises "Disk error: ..." on the connection's thread;
// nothing held is lost at the end.
//
// Thread contract: the connection thread calls add, finish and the track
// switches; the first file may be opened on the main thread while the
// connection thread waits. `mutex_` guards the writer and the file state;
// reset and filledValue run on the main thread.
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "engine/QLNBuffer.h"

namespace quillon {

class TrackSink {
public:
    // What the tag of a new file says.
    struct Tag {
        std::string trackName;
        std::string genre;
        std::string separator;
    };

    TrackSink() = default;
    TrackSink(const TrackSink&) = delete;
    TrackSink& operator=(const TrackSink&) = delete;

    // A fresh writer for a new connection set-up (offset: the record offset
    // in seconds); no file is open until the first track.
    void reset(int recordOffset);
    // Sizes the writer once the stream's bit rate (kbit/s) and format are
    // known.
    void initValues(unsigned bitrate, AudioFormat format = AudioFormat::mp3);

    // Opens the file of the next track at `path`, or at the next free
    // numbered name beside it, with its tag (none for formats that take no
    // ID3 tag: `tag` unset); with `mayResume`, the sink's own
    // last file of that name is appended to instead. The writer switches to
    // it at its cut. Returns the path used; nothing when the file cannot be
    // made (the audio then goes nowhere and the next add raises the failure).
    std::optional<std::string> openTrack(const std::string& path, const std::optional<Tag>& tag,
                                         bool mayResume);
    // The next track's audio is discarded (a skipped track, relaying only).
    void discardTrack();
    // Moves a finished file to `to`, or to the next free name beside it; the
    // path it has now (`from` when the move failed).
    static std::string moveFinished(const std::string& from, const std::string& to);

    // One audio block; dropped while no track has begun. Raises "Disk error".
    void add(std::span<const std::uint8_t> block);
    // Writes out everything held, every file reaching the disk; a last file
    // left with its tag and no audio goes. Raises "Disk error". Idempotent.
    void finish();

    // Raises the failure of an open made on another thread, if any.
    void raiseFailure();
    // How full the delay line is, 0-100. Main thread only (reset runs there).
    unsigned filledValue() const;

private:
    void raisePendingError();  // caller holds mutex_

    mutable std::mutex mutex_;
    std::unique_ptr<QLNBuffer> writer_;
    bool open_ = false;
    std::string pendingError_;
    // The last file created and the name it was asked for (before a numbered
    // name was taken): a resumed track appends to it.
    std::string lastPath_;
    std::string lastAsked_;
    bool lastFresh_ = false;            // the last file was created by this sink (it has only our bytes)
    std::uintmax_t lastHeadBytes_ = 0;  // the size of the tag it began with
};

}  // namespace quillon
