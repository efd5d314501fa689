#pragma once
// Every delay and time-out of the system, in seconds, with the documented values
// as defaults. Only tests shorten them (before starting the code under test).
namespace quillon {

struct Timing {
    double streamReadTimeout = 60;   // a connection's header and stream reads and writes
    double connectRetryDelay = 10;   // between connect attempts
    double restartDelay = 20;        // after a failure while streaming
    double acceptWait = 2;           // a listening socket's accept wait
    double acceptRetryDelay = 0.1;   // after a failed accept; doubled per failure up to 10 times
    double relayRequestTimeout = 10; // a relay player's whole request
    double relayCadence = 0.1;       // relay feeder and listener writers
    double autoListenDelay = 3;      // opening the player after streaming starts
    double scheduleTick = 10;        // schedule rules
    double freeSpaceCheck = 60;      // free-space guard
    double libraryHandOffDelay = 30; // hand-off of a size-split chunk
    double libraryTimeout = 60;      // a music-library connection, and MPD's update of one file
    double redirectTimeout = 60;     // a bookmark's redirect probe
    double versionCheckTimeout = 10; // the version file download
    double mailTimeout = 60;         // each read and write of the mail dialogue
    double urlFetchTimeout = 60;     // a playlist entry's or a station page's download (each silence)
    double pageTitleWait = 5;        // a station page that does not say when its track ends
    double directoryTimeout = 10;    // the station directory's files and playlists
};

// The process's timing table.
Timing& timing();

}  // namespace quillon
