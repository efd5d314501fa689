#pragma once
// Records one connection in the foreground: owns the Ripper, shows a live status
// line, and ends on Ctrl-C, after a set duration, or when the connection stops
// for good. Runs on the main thread (it runs the main loop).
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/Ripper.h"
#include "engine/RipperOwner.h"
#include "platform/Log.h"

namespace quillon {

class Bookmark;

struct RecordOptions {
    std::optional<double> seconds;  // stop after this long
    bool relayOnly = false;
    bool listen = false;     // open the relay in the player once streaming starts
    std::string folder;      // the recordings folder
    bool statusLine = true;  // redraw a status line on stderr
    // Stop once this many tracks are finished, i.e. cut and closed (the demo);
    // 0: no limit.
    int finishedTracks = 0;
};

class RecordSession : public RipperOwner {
public:
    explicit RecordSession(RecordOptions options);
    ~RecordSession() override;

    // Records until done; returns the exit status (0, or 1 when the connection
    // never reached the stream).
    int run(const Bookmark& bookmark);

    std::uint16_t firstFreeRelay() override;
    std::string downloadPath() override { return options_.folder; }
    void refreshDetails(Ripper& changed) override;

    // The recordings folder of the command line: --to, else the defaults-store
    // key "RECORDS_STORAGE_FOLDER", else home + "/Music".
    static std::string defaultFolder();

private:
    void drawStatusLine(bool final);
    bool finished();

    RecordOptions options_;
    std::unique_ptr<Ripper> ripper_;
    Log::Capture log_;
    bool everStreamed_ = false;
    std::uint64_t bytesAtLastTrack_ = 0;
    std::size_t lastLineLength_ = 0;
    std::string lastStatus_;
};

}  // namespace quillon
