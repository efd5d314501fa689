#pragma once
// The work of `quillon bookmark` on the bookmarks folder, independent of where
// the request came from, so that the daemon's routes give the same answers as
// the command line. Bookmarks are named as the folder lists them: relative
// paths without the extension, groups being sub-folders ("Talk/News").
//
// JSON field names (stable), a bookmark: name, host, port, path, user,
// hasPassword, genre, separator, clean, noSplit, sortArtists, trackNum,
// recOffset, titleEncoding, scheme ("http" or "https"), allowUntrusted, file; in lists also entry (the name
// to use) and group.
//
// Thread contract: stateless; any one thread at a time per bookmark file.
#include <string>

#include <nlohmann/json.hpp>

#include "app/BookmarkChanges.h"
#include "app/OperationResult.h"

namespace quillon {

class Bookmark;

class BookmarkOperations {
public:
    // A bookmark name as given, relative to the folder, without the extension;
    // never leaves the folder. Throws BadInput.
    static std::string checkedName(std::string name);
    static nlohmann::json record(const Bookmark& bookmark, const std::string& file);

    // Every bookmark of the folder; files that do not load are logged and left out.
    static OperationResult list();
    static OperationResult show(const std::string& name);
    // Saves a new bookmark (from a location) with the changes over it, in the
    // top of the folder. Conflict when the name is taken and not `replace`.
    static OperationResult add(Bookmark& bookmark, const BookmarkChanges& changes, bool replace);
    // Changes a saved bookmark; a new name moves its file within its group
    // (Conflict when taken, unless `replace`). The value has "changed": false
    // when nothing did.
    static OperationResult edit(const std::string& name, const BookmarkChanges& changes, bool replace);
    // Deletes the bookmark's file; the value: {file}.
    static OperationResult remove(const std::string& name);
};

}  // namespace quillon
