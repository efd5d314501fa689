#pragma once
// One entry of the station directory: a genre (type 0), a station grouping
// streams (type 1) or one playable stream (type 2). Entries form a two-level
// tree: a genre or station holds its children under "stl". The persistent
// values live in the resource dictionary under short keys; the children are
// held as items and go into the dictionary, as their archives, only when the
// item itself is archived.
//
// Thread contract: an item is built on one thread and then shared read-only
// (the directory's filter thread reads it under the directory's lock); setters
// and the children list belong to whoever builds or sorts the tree, under that
// same lock once the tree is shared.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "store/AbstractResource.h"

namespace quillon {

class Bookmark;

class TunerItem : public AbstractResource {
public:
    enum class Type { genre = 0, station = 1, stream = 2 };

    static constexpr const char* kName = "sn";
    static constexpr const char* kDescription = "sd";
    static constexpr const char* kHasMeta = "sm";
    static constexpr const char* kBitRate = "sb";
    static constexpr const char* kItemType = "it";
    static constexpr const char* kCustomPicture = "scp";
    static constexpr const char* kURL = "su";
    static constexpr const char* kGenre = "sg";
    static constexpr const char* kOffset = "so";
    static constexpr const char* kSeparator = "ss";
    static constexpr const char* kHost = "sh";
    static constexpr const char* kPort = "sp";
    static constexpr const char* kPath = "spt";
    static constexpr const char* kResourceNum = "rn";
    static constexpr const char* kMultiGenres = "mg";
    static constexpr const char* kStreams = "stl";
    // Deliberate: three keys more, for entries of the Radio Browser directory:
    // where the entry comes from ("src"; absent for the directory server's),
    // its codec ("sco") and the station's web page ("shp").
    static constexpr const char* kSource = "src";
    static constexpr const char* kCodec = "sco";
    static constexpr const char* kHomepage = "shp";

    static constexpr const char* kPlaylistPath = "/sbin/shoutcast-playlist.pls";
    static constexpr const char* kPlaylistUserAgent =
        "Mozilla/5.0 (Macintosh; U; PPC Mac OS X 10_5_4; fr-fr) AppleWebKit/525.18 (KHTML, like Gecko) "
        "Version/3.1.2 Safari/525.20.1";
    // Deliberate: the playlist answer is bounded; a playlist is a few lines.
    static constexpr std::uint64_t kMaxPlaylistBytes = 64 * 1024;

    static std::shared_ptr<TunerItem> tunerItem() { return std::make_shared<TunerItem>(); }

    std::optional<std::string> name() const override;
    void setName(std::optional<std::string> name) override;
    // The empty text when absent.
    std::string description() const override;
    void setDescription(std::optional<std::string> text);
    bool hasMeta() const { return boolForKey(kHasMeta); }
    void setHasMeta(bool on) { setBool(on, kHasMeta); }
    int bitRate() const { return intForKey(kBitRate); }
    void setBitRate(int kbps) { setInt(kbps, kBitRate); }
    int itemType() const { return intForKey(kItemType); }
    void setItemType(int type) { setInt(type, kItemType); }
    // Image bytes; none removes the key.
    std::optional<Bytes> customPicture() const;
    void setCustomPicture(std::optional<Bytes> image);
    std::optional<std::string> URL() const { return stringForKey(kURL); }
    void setURL(std::optional<std::string> url) { setString(std::move(url), kURL); }
    std::optional<std::string> genre() const { return stringForKey(kGenre); }
    void setGenre(std::optional<std::string> genre) { setString(std::move(genre), kGenre); }
    int offset() const { return intForKey(kOffset); }
    void setOffset(int offset) { setInt(offset, kOffset); }
    std::optional<std::string> separator() const { return stringForKey(kSeparator); }
    void setSeparator(std::optional<std::string> text) { setString(std::move(text), kSeparator); }
    std::optional<std::string> host() const { return stringForKey(kHost); }
    void setHost(std::optional<std::string> text) { setString(std::move(text), kHost); }
    std::optional<std::string> port() const { return stringForKey(kPort); }
    void setPort(std::optional<std::string> text) { setString(std::move(text), kPort); }
    std::optional<std::string> path() const { return stringForKey(kPath); }
    void setPath(std::optional<std::string> text) { setString(std::move(text), kPath); }
    std::optional<std::string> resourceNum() const { return stringForKey(kResourceNum); }
    void setResourceNum(std::optional<std::string> id) { setString(std::move(id), kResourceNum); }
    std::optional<std::string> multiGenres() const { return stringForKey(kMultiGenres); }
    void setMultiGenres(std::optional<std::string> text) { setString(std::move(text), kMultiGenres); }
    std::optional<std::string> source() const { return stringForKey(kSource); }
    void setSource(std::optional<std::string> text) { setString(std::move(text), kSource); }
    std::optional<std::string> codec() const { return stringForKey(kCodec); }
    void setCodec(std::optional<std::string> text) { setString(std::move(text), kCodec); }
    std::optional<std::string> homepage() const { return stringForKey(kHomepage); }
    void setHomepage(std::optional<std::string> text) { setString(std::move(text), kHomepage); }
    // An entry that names its stream itself ("su"), as Radio Browser's do,
    // needs no playlist and no directory server to become a bookmark.
    bool hasDirectStream() const { return source().has_value() && URL().has_value(); }

    // --- Children
    using List = std::vector<std::shared_ptr<TunerItem>>;
    // The children list (empty until something is added).
    List& streams() { return streams_; }
    const List& streams() const { return streams_; }
    std::size_t count() const { return streams_.size(); }
    std::shared_ptr<TunerItem> itemAtIndex(std::size_t index) const;
    // Appends in place.
    void addItemToList(std::shared_ptr<TunerItem> item) { streams_.push_back(std::move(item)); }
    // A new list: the children plus the item.
    void addItem(std::shared_ptr<TunerItem> item);
    bool isExpandable() const { return itemType() != static_cast<int>(Type::stream); }
    // The directory keeps the expansion state, by name.
    bool expanded() const;
    void setExpanded(bool on);

    // The icon: the custom picture, else the interface's resource name by type
    // (none for an unknown type).
    struct Picture {
        std::string resourceName;  // empty for a custom picture
        Bytes custom;
    };
    std::optional<Picture> picture() const;
    // Streams only: "True.psd" or "False.psd" after hasMeta.
    std::optional<std::string> hasMetaPict() const;

    // --- Filtering
    // Fills the search text (name followed by description, lower-cased) and
    // the bit rate kept for filtering.
    void cacheTunerData();
    std::uint16_t cachedBitrate() const { return bitrate_; }
    const std::string& fullDescription() const { return fullDescription_; }
    // The whole text as one substring of the search text (case-sensitive: the
    // filter lower-cases it).
    bool containsKeyword(std::string_view text) const;
    // low below 32 kbit/s, high above 95, else medium.
    template <typename T>
    T lowBitrate(T low, T med, T hi) const {
        return bitrate_ < 32 ? low : bitrate_ > 95 ? hi : med;
    }

    // --- Sorting (-1, 0, 1)
    int compare(const TunerItem& other) const { return compareName(other); }
    int compareName(const TunerItem& other) const;
    int compareDescription(const TunerItem& other) const;
    int compareBitrates(const TunerItem& other) const;
    enum class SortKey { name, description, bitRate };
    struct SortDescriptor {
        SortKey key = SortKey::name;
        bool ascending = true;
    };
    // Sorts the children, stably, by the first descriptor that tells two apart.
    void sortWithDescriptors(const std::vector<SortDescriptor>& descriptors);
    static void sortList(List& list, const std::vector<SortDescriptor>& descriptors);

    // --- Archives: the children travel inside, as an array of their archives.
    // The children go in sorted by name.
    Bytes archivedResource() const override;
    // Restores the item and its children, each child's cache filled. A child
    // entry that does not decode is left out.
    bool setResourceFromArchive(std::span<const std::uint8_t> archive) override;
    static std::shared_ptr<TunerItem> fromArchive(std::span<const std::uint8_t> archive);

    // --- Bookmarks
    // The playlist address of the public directory at `server` (scheme, host
    // and optional port; no trailing slash needed) for a station identifier.
    static std::string plsURLWithNum(const std::string& server, const std::string& id);
    std::optional<std::string> resourceURL(const std::string& server) const;
    // A bookmark for the stream: fetches the playlist (blocking, with the
    // fixed User-Agent) and reads the stream address out of it. None, with
    // the reason in `failure` and a log line, when the item has no "rn" or the
    // playlist names no stream. Not on the main thread of the daemon. An entry
    // with a direct stream takes its "su" instead (`server` unused).
    std::shared_ptr<Bookmark> bookmark(const std::string& server, std::string& failure) const;

protected:
    std::shared_ptr<AbstractResource> newResource() const override { return std::make_shared<TunerItem>(); }

private:
    List streams_;
    std::uint16_t bitrate_ = 0;
    std::string fullDescription_;
};

}  // namespace quillon
