#pragma once
// The station directory as the command line and the daemon's routes share it:
// the tree as JSON, an entry found by what a user types, a filter from the
// given words and bit rates, and an entry saved as a bookmark.
//
// JSON (stable): the tree {version, source ("server", "radio-browser"),
// filtered, count, genres: [{name, streams: [entry]}]}; an entry {name,
// description, genre, bitrate, class ("low", "medium", "high"), hasMeta, type,
// id (the station identifier, "rn"), source, codec, homepage (both empty for
// the directory server's entries)}.
//
// Thread contract: stateless; the caller owns the directory (main thread, or
// under its lock while a filter thread may run).
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "app/OperationResult.h"
#include "tuner/Tuner.h"

namespace quillon {

class Bookmark;

class DirectoryOperations {
public:
    static nlohmann::json entry(const TunerItem& item);
    // The rows in view (filtered while a filter is in force).
    static nlohmann::json tree(const Tuner& tuner);
    // A filter from search words (joined by blanks, lower-cased) and bounds.
    // Throws BadInput when min > max.
    static Tuner::Filter filterFor(const std::vector<std::string>& words, int minKbps, int maxKbps);
    // The stream an argument names: its identifier, "Genre/Name", or its name
    // (without regard to ASCII case). Null with the reason when none or
    // several match.
    static std::shared_ptr<TunerItem> find(const Tuner& tuner, const std::string& what, std::string& failure);
    // Saves the bookmark made from an entry in the bookmarks folder, under
    // `name` when given.
    static OperationResult saveBookmark(Bookmark& bookmark, const std::string& name, bool replace);
};

}  // namespace quillon
