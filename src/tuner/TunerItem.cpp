#include "tuner/TunerItem.h"

#include <algorithm>

#include "platform/Log.h"
#include "platform/TextUtil.h"
#include "platform/Timing.h"
#include "store/Bookmark.h"
#include "tuner/Tuner.h"
#include "tuner/TunerDownload.h"

namespace quillon {

namespace {

int sign(int n) { return n < 0 ? -1 : n > 0 ? 1 : 0; }

}  // namespace

std::optional<std::string> TunerItem::name() const { return stringForKey(kName); }

void TunerItem::setName(std::optional<std::string> name) { setString(std::move(name), kName); }

std::string TunerItem::description() const { return stringForKey(kDescription).value_or(""); }

void TunerItem::setDescription(std::optional<std::string> text) { setString(std::move(text), kDescription); }

std::optional<Bytes> TunerItem::customPicture() const {
    auto value = objectForKey(kCustomPicture);
    if (!value || !value->asData()) return std::nullopt;
    return *value->asData();
}

void TunerItem::setCustomPicture(std::optional<Bytes> image) {
    if (!image) {
        removeObjectForKey(kCustomPicture);
        return;
    }
    setObject(PlistValue(std::move(*image)), kCustomPicture);
}

std::shared_ptr<TunerItem> TunerItem::itemAtIndex(std::size_t index) const {
    return index < streams_.size() ? streams_[index] : nullptr;
}

void TunerItem::addItem(std::shared_ptr<TunerItem> item) {
    List list = streams_;
    list.push_back(std::move(item));
    streams_ = std::move(list);
}

bool TunerItem::expanded() const { return Tuner::tuner()->isExpanded(name().value_or("")); }

void TunerItem::setExpanded(bool on) { Tuner::tuner()->expand(on, name().value_or("")); }

std::optional<TunerItem::Picture> TunerItem::picture() const {
    if (auto custom = customPicture()) return Picture{{}, std::move(*custom)};
    switch (itemType()) {
        case 0:
            return Picture{"streamgroup.psd", {}};
        case 1:
            return Picture{"StreamPict.psd", {}};
        case 2:
            return Picture{"SubStreamPict.psd", {}};
        default:
            return std::nullopt;
    }
}

std::optional<std::string> TunerItem::hasMetaPict() const {
    if (itemType() != static_cast<int>(Type::stream)) return std::nullopt;
    return hasMeta() ? "True.psd" : "False.psd";
}

void TunerItem::cacheTunerData() {
    fullDescription_ = toLowerAscii(name().value_or("") + description());
    // The filter compares unsigned 16-bit rates; out-of-range values are clamped
    // rather than wrapped, so that 65536 kbit/s does not pass as 0.
    bitrate_ = static_cast<std::uint16_t>(std::clamp(bitRate(), 0, 65535));
}

bool TunerItem::containsKeyword(std::string_view text) const {
    return fullDescription_.find(text) != std::string::npos;
}

int TunerItem::compareName(const TunerItem& other) const {
    return sign(name().value_or("").compare(other.name().value_or("")));
}

int TunerItem::compareDescription(const TunerItem& other) const {
    return sign(description().compare(other.description()));
}

int TunerItem::compareBitrates(const TunerItem& other) const {
    const int a = bitRate(), b = other.bitRate();
    return a < b ? -1 : a > b ? 1 : 0;
}

void TunerItem::sortList(List& list, const std::vector<SortDescriptor>& descriptors) {
    std::stable_sort(list.begin(), list.end(), [&](const auto& a, const auto& b) {
        for (const SortDescriptor& d : descriptors) {
            int order = d.key == SortKey::name          ? a->compareName(*b)
                        : d.key == SortKey::description ? a->compareDescription(*b)
                                                        : a->compareBitrates(*b);
            if (!d.ascending) order = -order;
            if (order != 0) return order < 0;
        }
        return false;
    });
}

void TunerItem::sortWithDescriptors(const std::vector<SortDescriptor>& descriptors) {
    sortList(streams_, descriptors);
}

Bytes TunerItem::archivedResource() const {
    PlistValue::Dictionary entries = container();
    if (!streams_.empty()) {
        List sorted = streams_;
        sortList(sorted, {{SortKey::name, true}});
        PlistValue::Array children;
        children.reserve(sorted.size());
        for (const auto& child : sorted) children.emplace_back(child->archivedResource());
        entries[kStreams] = PlistValue(std::move(children));
    }
    return PlistCodec::encodeBinary(PlistValue(std::move(entries)));
}

bool TunerItem::setResourceFromArchive(std::span<const std::uint8_t> archive) {
    auto value = PlistCodec::decode(archive);
    if (!value || !value->isDictionary()) return false;
    PlistValue::Dictionary entries = std::move(*value->asDictionary());
    List children;
    if (auto it = entries.find(kStreams); it != entries.end()) {
        if (const PlistValue::Array* list = it->second.asArray()) {
            for (const PlistValue& element : *list) {
                auto child = std::make_shared<TunerItem>();
                bool restored = false;
                if (const PlistValue::Data* data = element.asData()) {
                    restored = child->setResourceFromArchive(*data);
                } else if (const PlistValue::Dictionary* plain = element.asDictionary()) {
                    // A hand-written directory may list children as plain dictionaries.
                    child->setContainer(*plain);
                    restored = true;
                }
                if (!restored) continue;
                child->cacheTunerData();
                children.push_back(std::move(child));
            }
        }
        entries.erase(it);
    }
    setContainer(std::move(entries));
    streams_ = std::move(children);
    cacheTunerData();
    return true;
}

std::shared_ptr<TunerItem> TunerItem::fromArchive(std::span<const std::uint8_t> archive) {
    auto item = tunerItem();
    if (!item->setResourceFromArchive(archive)) return nullptr;
    return item;
}

std::string TunerItem::plsURLWithNum(const std::string& server, const std::string& id) {
    std::string base = server;
    while (!base.empty() && base.back() == '/') base.pop_back();
    return base + kPlaylistPath + "?rn=" + Tuner::percentEncoded(id) + "&file=filename.pls";
}

std::optional<std::string> TunerItem::resourceURL(const std::string& server) const {
    auto id = resourceNum();
    if (!id) return std::nullopt;
    return plsURLWithNum(server, *id);
}

std::shared_ptr<Bookmark> TunerItem::bookmark(const std::string& server, std::string& failure) const {
    auto bookmark = Bookmark::bookmark();
    bookmark->setName(name());
    bookmark->setRecOffset(0);
    bookmark->setNoSplit(false);
    if (hasDirectStream()) {
        if (!bookmark->getUrlFromData(*URL() + "\n")) {
            failure = "the entry's address " + *URL() + " names no stream";
            Log::line(failure);
            return nullptr;
        }
        return bookmark;
    }
    auto url = resourceURL(server);
    if (!url) {
        Log::line("No resource ID");
        failure = "No resource ID";
        return nullptr;
    }
    TunerDownload download;
    auto data =
        download.fetch(*url, timing().directoryTimeout, kMaxPlaylistBytes, failure, kPlaylistUserAgent);
    if (!data) {
        failure = "the playlist " + *url + " could not be loaded: " + failure;
        Log::line(failure);
        return nullptr;
    }
    if (!bookmark->getUrlFromData(*data)) {
        failure = "the playlist " + *url + " names no stream";
        Log::line(failure);
        return nullptr;
    }
    return bookmark;
}

}  // namespace quillon
