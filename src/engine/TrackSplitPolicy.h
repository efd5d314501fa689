#pragma once
// The decisions of track splitting and naming, as pure functions of what the
// connection knows: whether a title starts a new track, what a track's or a
// chunk's file is called, the date-stamped title of an untitled stream, and
// where a finished track goes. The connection (and its sink) carry them out.
// No I/O, no clock, no state: tested directly over tables.
#include <ctime>
#include <optional>
#include <span>
#include <string>

#include "engine/TitleEncoding.h"

namespace quillon {

class TrackSplitPolicy {
public:
    // What a stream title means for the tracks.
    enum class Step {
        Ignore,    // the same title again, or an empty one once a track has begun
        Chunk,     // no title: the next size-split chunk
        Generic,   // no title: a track under the date-stamped title
        NewTrack,  // a new titled track
    };
    static Step onTitle(const std::string& title, const std::string& lastTitle, int tracksOpened,
                        bool sizeSplit);

    // The title of a metadata block (the text between "StreamTitle='" and
    // "';") as UTF-8, read in `charset` (detected when Auto), then kept to
    // letters, digits, blanks, "-" and "&" when `clean`; nothing when the
    // block names none.
    static std::optional<std::string> titleFromMetadata(std::span<const std::uint8_t> metadata, bool clean,
                                                        TitleEncoding::Charset charset);

    // "Station-(d-m-yyyy@h:mm)" in 24-hour mode (timeMode 24), else
    // "Station-(m-d-yyyy@h:mm am)".
    static std::string genericTitle(const std::string& stationTitle, const std::tm& local, int timeMode);

    // A title as a file name stem: the standard filter, and with `numbered`
    // the track number as three digits and a blank ("005 "); from 1000 on only
    // the last three digits remain, as the numbering of titled tracks has it.
    static std::string trackStem(const std::string& title, int trackNumber, bool numbered);
    // A chunk of a size-split stream: "001 Station-(...)". Deliberate: the
    // number keeps all its digits past 999, so a long recording never comes
    // round to the names of its first chunks.
    static std::string chunkStem(const std::string& genericTitle, int chunkNumber);

    // Where a finished track goes: out of the "Incomplete" folder and, with
    // artist folders, into the folder of the artist (the text of the track
    // name ahead of the separator). The first track of a connection (fewer
    // than two opened) stays where it is.
    struct Finished {
        std::string path;
        std::optional<std::string> artistFolder;  // to be created first
    };
    static Finished finishedPath(const std::string& path, int tracksOpened, const std::string& incompleteName,
                                 const std::string& trackName, const std::string& separator,
                                 bool artistFolders);
};

}  // namespace quillon
