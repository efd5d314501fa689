#pragma once
// The recording options of a bookmark that a user changes, each one optional:
// a setting not given stays as it is. The command line's flags and the API's
// JSON both come here, so that one place checks the values.
//
// JSON fields: name, trackNum, sortArtists, clean, noSplit (bool), separator,
// genre, titleEncoding (text), recOffset (whole seconds), allowUntrusted
// (bool: take an https server's certificate even when it does not verify).
//
// Thread contract: a plain value.
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace quillon {

class Bookmark;

struct BookmarkChanges {
    std::optional<std::string> name, separator, genre, titleEncoding;
    std::optional<bool> trackNum, sortArtists, clean, noSplit, allowUntrusted;
    std::optional<int> recOffset;

    // Throws BadInput for unknown fields and values of the wrong type, then
    // as check() does. Fields in `also` are allowed and left to the caller.
    static BookmarkChanges fromJson(const nlohmann::json& body, std::initializer_list<const char*> also = {});
    // The values given, as fromJson reads them.
    nlohmann::json toJson() const;
    // Throws BadInput for a value the bookmark cannot take: a name that is
    // empty, not Latin-1 or without a letter or digit; an offset out of range;
    // an unknown title encoding.
    void check() const;
    // Sets every value given (check() first).
    void applyTo(Bookmark& bookmark) const;
};

}  // namespace quillon
