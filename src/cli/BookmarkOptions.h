#pragma once
// The recording options of a bookmark as command-line flags, one place for
// `bookmark add` and `bookmark edit`: each flag maps to one bookmark setting,
// and a setting whose flag is not given stays as it is.
//
// Thread contract: main thread only (command-line parsing and the command run
// after it). addTo binds the flags to this object, which must outlive parsing.
#include <optional>
#include <string>

#include "app/BookmarkChanges.h"
#include "cli/Command.h"

namespace quillon {

class BookmarkOptions {
public:
    // Registers the flags; `nameHelp` says what --name does for this command.
    void addTo(CLI::App& command, const std::string& nameHelp);

    // The options given, checked: throws UsageError for a value the bookmark
    // cannot take. Call before any slow work, so that bad input fails at once.
    BookmarkChanges changes() const;

    // The name given with --name, as typed.
    const std::optional<std::string>& name() const { return name_; }

private:
    std::optional<bool> trackNum_, sortArtists_, clean_, noSplit_, allowUntrusted_;
    std::optional<std::string> separator_, genre_, offset_, name_, titleEncoding_;
    std::string conflict_;  // a switch given both ways
};

}  // namespace quillon
