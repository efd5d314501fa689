#pragma once
// The recording history as a connection sees it: one entry per recorded track.
// Implemented by the history subsystem; a connection without one records no
// history. Called from connection threads: implementations lock themselves.
#include <memory>
#include <string>

namespace quillon {

class TrackHistoryEntry {
public:
    virtual ~TrackHistoryEntry() = default;
    virtual void setComplete(bool complete) = 0;
    virtual void setSkipped(bool skipped) = 0;
    virtual bool skipped() const = 0;
    virtual void setPath(const std::string& path) = 0;
    virtual std::string path() const = 0;
};

class TrackHistory {
public:
    virtual ~TrackHistory() = default;
    // A new entry for a track (not yet in the history).
    virtual std::shared_ptr<TrackHistoryEntry> newItem(const std::string& trackName,
                                                       const std::string& recordedOn, int trackNumber) = 0;
    // The entry of an earlier recording of the same track name, if any.
    virtual std::shared_ptr<TrackHistoryEntry> existing(const std::string& trackName) = 0;
    virtual void add(std::shared_ptr<TrackHistoryEntry> entry) = 0;
};

}  // namespace quillon
