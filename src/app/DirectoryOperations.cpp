#include "app/DirectoryOperations.h"

#include "app/BadInput.h"
#include "app/BookmarkOperations.h"
#include "platform/TextUtil.h"
#include "store/Bookmark.h"
#include "store/Preferences.h"

namespace quillon {

nlohmann::json DirectoryOperations::entry(const TunerItem& item) {
    return {{"name", item.name().value_or("")},
            {"description", item.description()},
            {"genre", item.genre().value_or("")},
            {"bitrate", item.bitRate()},
            {"class", item.lowBitrate<std::string>("low", "medium", "high")},
            {"hasMeta", item.hasMeta()},
            {"type", item.itemType()},
            {"id", item.resourceNum().value_or("")},
            {"source", item.source().value_or("server")},
            {"codec", item.codec().value_or("")},
            {"homepage", item.homepage().value_or("")}};
}

nlohmann::json DirectoryOperations::tree(const Tuner& tuner) {
    nlohmann::json genres = nlohmann::json::array();
    std::size_t streams = 0;
    for (std::size_t i = 0; i < tuner.count(); ++i) {
        auto genre = tuner.itemAtIndex(i);
        nlohmann::json list = nlohmann::json::array();
        for (const auto& stream : genre->streams()) list.push_back(entry(*stream));
        streams += list.size();
        genres.push_back({{"name", genre->name().value_or("")}, {"streams", std::move(list)}});
    }
    return {{"version", Preferences::preferences()->getParam(Tuner::kVersionKey)},
            // The file's source: the last finished update's, not the one asked for next.
            {"source",
             Tuner::sourceName(Tuner::sourceNamed(Preferences::preferences()->getParam(Tuner::kSourceKey))
                                   .value_or(Tuner::Source::server))},
            {"filtered", tuner.filtered()},
            {"count", streams},
            {"genres", std::move(genres)}};
}

Tuner::Filter DirectoryOperations::filterFor(const std::vector<std::string>& words, int minKbps,
                                             int maxKbps) {
    if (minKbps < 0 || maxKbps < 0 || minKbps > 65535 || maxKbps > 65535)
        throw BadInput("bit rates lie between 0 and 65535 kbit/s");
    if (minKbps > maxKbps) throw BadInput("the minimum bit rate is above the maximum");
    Tuner::Filter filter;
    for (const auto& word : words) {
        if (word.empty()) continue;
        if (!filter.keywords.empty()) filter.keywords += ' ';
        filter.keywords += word;
    }
    // The search text is lower case, as the filter bar makes it.
    filter.keywords = toLowerAscii(filter.keywords);
    filter.min = static_cast<std::uint16_t>(minKbps);
    filter.max = static_cast<std::uint16_t>(maxKbps);
    return filter;
}

std::shared_ptr<TunerItem> DirectoryOperations::find(const Tuner& tuner, const std::string& what,
                                                     std::string& failure) {
    std::vector<std::shared_ptr<TunerItem>> byId, byPath, byName;
    const std::string lowered = toLowerAscii(what);
    for (const auto& genre : tuner.tunerGenres()) {
        const std::string genreName = genre->name().value_or("");
        for (const auto& stream : genre->streams()) {
            const std::string name = stream->name().value_or("");
            if (stream->resourceNum() == what) byId.push_back(stream);
            if (toLowerAscii(genreName + "/" + name) == lowered) byPath.push_back(stream);
            if (toLowerAscii(name) == lowered) byName.push_back(stream);
        }
    }
    for (const auto* found : {&byId, &byPath, &byName}) {
        if (found->empty()) continue;
        // One station may be listed under several genres: the same identifier is one entry.
        bool same = true;
        for (const auto& item : *found) same = same && item->resourceNum() == found->front()->resourceNum();
        if (same) return found->front();
        failure = "'" + what + "' names several entries; give its id or Genre/Name";
        return nullptr;
    }
    failure = "no directory entry '" + what + "' (give its id, Genre/Name or name)";
    return nullptr;
}

OperationResult DirectoryOperations::saveBookmark(Bookmark& bookmark, const std::string& name, bool replace) {
    BookmarkChanges changes;
    if (!name.empty()) changes.name = name;
    return BookmarkOperations::add(bookmark, changes, replace);
}

}  // namespace quillon
