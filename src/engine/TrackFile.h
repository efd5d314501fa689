#pragma once
// Opens and moves track files without ever truncating or replacing a file that
// is already there. A name is claimed by creating the file exclusively, so two
// connections (of one process or of two) never write one file: whoever comes
// second takes the next free name, "Title (2).mp3", "Title (3).mp3", ...
// Pure file-system operations, safe on any thread.
#include <string>

#include "platform/FileHandle.h"

namespace quillon {

class TrackFile {
public:
    // How many numbered names are tried before giving up.
    static constexpr int kMaxCopies = 9999;

    struct Opened {
        FileHandle file;   // open for writing, positioned at the end; closed on failure
        std::string path;  // the path actually used
        int error = 0;     // errno of the failure
    };

    // A new, empty file at `path` or at the first free numbered name beside it.
    static Opened createUnique(const std::string& path);
    // An existing file opened to append to it (a resumed track).
    static Opened openForAppending(const std::string& path);
    // Moves a finished file to `to`, or to the first free numbered name beside
    // it; never replaces a file. The path it now has; `from` when it failed.
    static std::string moveUnique(const std::string& from, const std::string& to);
};

}  // namespace quillon
