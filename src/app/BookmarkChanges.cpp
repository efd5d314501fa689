#include "app/BookmarkChanges.h"

#include <algorithm>

#include <fmt/format.h>

#include "app/BadInput.h"
#include "engine/TitleEncoding.h"
#include "store/Bookmark.h"

namespace quillon {

namespace {

template <typename T>
void read(const nlohmann::json& body, const char* field, std::optional<T>& into) {
    auto it = body.find(field);
    if (it == body.end() || it->is_null()) return;
    bool fits = false;
    if constexpr (std::is_same_v<T, bool>) fits = it->is_boolean();
    if constexpr (std::is_same_v<T, std::string>) fits = it->is_string();
    if constexpr (std::is_same_v<T, int>) fits = it->is_number_integer();
    if (!fits) throw BadInput(std::string(field) + ": wrong type");
    if constexpr (std::is_same_v<T, int>) {
        auto value = it->get<std::int64_t>();
        if (value < Bookmark::kMinRecOffset || value > Bookmark::kMaxRecOffset) {
            throw BadInput(fmt::format("{}: whole seconds from {} to {}", field, Bookmark::kMinRecOffset,
                                       Bookmark::kMaxRecOffset));
        }
        into = static_cast<int>(value);
    } else {
        into = it->get<T>();
    }
}

}  // namespace

BookmarkChanges BookmarkChanges::fromJson(const nlohmann::json& body,
                                          std::initializer_list<const char*> also) {
    static const char* const known[] = {"name",          "separator",     "genre",   "trackNum",
                                        "clean",         "sortArtists",   "noSplit", "recOffset",
                                        "titleEncoding", "allowUntrusted"};
    for (const auto& [key, value] : body.items()) {
        bool ok = std::find(std::begin(known), std::end(known), key) != std::end(known) ||
                  std::find(also.begin(), also.end(), key) != also.end();
        if (!ok) throw BadInput("unknown field: " + key);
    }
    BookmarkChanges c;
    read(body, "name", c.name);
    read(body, "separator", c.separator);
    read(body, "genre", c.genre);
    read(body, "trackNum", c.trackNum);
    read(body, "sortArtists", c.sortArtists);
    read(body, "clean", c.clean);
    read(body, "noSplit", c.noSplit);
    read(body, "recOffset", c.recOffset);
    read(body, "titleEncoding", c.titleEncoding);
    read(body, "allowUntrusted", c.allowUntrusted);
    c.check();
    return c;
}

nlohmann::json BookmarkChanges::toJson() const {
    nlohmann::json j = nlohmann::json::object();
    auto put = [&j](const char* field, const auto& value) {
        if (value) j[field] = *value;
    };
    put("name", name);
    put("separator", separator);
    put("genre", genre);
    put("trackNum", trackNum);
    put("sortArtists", sortArtists);
    put("clean", clean);
    put("noSplit", noSplit);
    put("recOffset", recOffset);
    put("titleEncoding", titleEncoding);
    put("allowUntrusted", allowUntrusted);
    return j;
}

void BookmarkChanges::check() const {
    if (recOffset && (*recOffset < Bookmark::kMinRecOffset || *recOffset > Bookmark::kMaxRecOffset)) {
        throw BadInput(fmt::format("the offset takes whole seconds from {} to {}, not {}",
                                   Bookmark::kMinRecOffset, Bookmark::kMaxRecOffset, *recOffset));
    }
    if (titleEncoding && !TitleEncoding::fromName(*titleEncoding)) {
        throw BadInput("titleEncoding takes " + TitleEncoding::choices() + ", not '" + *titleEncoding + "'");
    }
    if (!name) return;
    if (name->empty()) throw BadInput("the bookmark name is empty");
    if (!Bookmark::isLatin1(*name))
        throw BadInput("bookmark names are limited to Latin-1 characters: \"" + *name + "\"");
    if (Bookmark::checkName(*name).find_first_not_of(' ') == std::string::npos)
        throw BadInput("a bookmark name needs a letter or digit: \"" + *name + "\"");
}

void BookmarkChanges::applyTo(Bookmark& bookmark) const {
    check();
    if (name) bookmark.setName(*name);
    if (trackNum) bookmark.setTrackNum(*trackNum);
    if (sortArtists) bookmark.setSortArtists(*sortArtists);
    if (clean) bookmark.setClean(*clean);
    if (noSplit) bookmark.setNoSplit(*noSplit);
    if (separator) bookmark.setSeparator(*separator);
    if (genre) bookmark.setGenre(*genre);
    if (recOffset) bookmark.setRecOffset(*recOffset);
    if (allowUntrusted) bookmark.setAllowUntrustedCertificate(*allowUntrusted);
    // Stored under its canonical name, whatever alias was given.
    if (titleEncoding)
        bookmark.setTitleEncoding(std::string(TitleEncoding::name(*TitleEncoding::fromName(*titleEncoding))));
}

}  // namespace quillon
