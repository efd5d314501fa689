#include "history/HistoryDatabase.h"

#include <algorithm>
#include <ctime>

#include <fmt/format.h>

#include "platform/AtomicFile.h"
#include "platform/Home.h"
#include "platform/Localization.h"
#include "platform/Log.h"
#include "platform/PlistCodec.h"
#include "platform/TextUtil.h"
#include "platform/TimeUtil.h"

namespace quillon {

namespace {

// "00%i" with only the last two characters kept.
std::string lastTwoDigits(int value) {
    std::string text = fmt::format("00{}", value);
    return text.substr(text.size() - 2);
}

std::string keyWith(HistoryDatabase::Date date, char separator) {
    std::tm parts = TimeUtil::localParts(date);
    return fmt::format("{}{}{}{}{}", parts.tm_year + 1900, separator, lastTwoDigits(parts.tm_mon + 1),
                       separator, lastTwoDigits(parts.tm_mday));
}

std::optional<HistoryDatabase::Date> dateFrom(std::string_view key, char separator) {
    std::vector<std::string_view> parts;
    std::size_t from = 0;
    while (true) {
        std::size_t at = key.find(separator, from);
        parts.push_back(key.substr(from, at == std::string_view::npos ? std::string_view::npos : at - from));
        if (at == std::string_view::npos) break;
        from = at + 1;
    }
    if (parts.size() != 3) return std::nullopt;
    std::int64_t year = intValue(parts[0]);
    std::int64_t month = intValue(parts[1]);
    std::int64_t day = intValue(parts[2]);
    // year * month * day < 1, without the overflow of multiplying.
    int negatives = (year < 0) + (month < 0) + (day < 0);
    if (year == 0 || month == 0 || day == 0 || negatives % 2 != 0) return std::nullopt;
    std::tm when{};
    when.tm_year = static_cast<int>(year - 1900);
    when.tm_mon = static_cast<int>(month - 1);
    when.tm_mday = static_cast<int>(day);
    when.tm_sec = 1;
    when.tm_isdst = -1;  // whatever daylight saving applies that day
    std::time_t t = std::mktime(&when);
    if (t == static_cast<std::time_t>(-1)) return std::nullopt;
    // The clock spans the years 1678 to 2261; a day outside has no date.
    using Seconds = std::chrono::seconds;
    constexpr auto limit =
        std::chrono::duration_cast<Seconds>(HistoryDatabase::Date::duration::max()).count() - 1;
    if (t > limit || t < -limit) return std::nullopt;
    return std::chrono::system_clock::from_time_t(t);
}

// Orders two stored values: absent first, then by value within a kind
// (numbers by value, texts byte-wise, dates by time), other kinds by kind.
int compareValues(const std::optional<PlistValue>& a, const std::optional<PlistValue>& b) {
    if (!a || !b) return (a ? 1 : 0) - (b ? 1 : 0);
    if (a->isNumber() && b->isNumber()) {
        double x = a->doubleValue(), y = b->doubleValue();
        return x < y ? -1 : (x > y ? 1 : 0);
    }
    if (a->kind() != b->kind()) return static_cast<int>(a->kind()) < static_cast<int>(b->kind()) ? -1 : 1;
    if (a->isDate()) {
        double x = a->asDate()->secondsSince2001, y = b->asDate()->secondsSince2001;
        return x < y ? -1 : (x > y ? 1 : 0);
    }
    std::string x = a->text(), y = b->text();
    return x.compare(y) < 0 ? -1 : (x == y ? 0 : 1);
}

}  // namespace

HistoryDatabase::HistoryDatabase(Date date) : date_(date) {}

std::string HistoryDatabase::keyFromDate(Date date) { return keyWith(date, '_'); }
std::string HistoryDatabase::oldKeyFromDate(Date date) { return keyWith(date, '/'); }
std::string HistoryDatabase::key() { return oldKeyFromDate(std::chrono::system_clock::now()); }

std::optional<HistoryDatabase::Date> HistoryDatabase::dateFromKey(std::string_view key) {
    return dateFrom(key, '_');
}
std::optional<HistoryDatabase::Date> HistoryDatabase::dateFromOldKey(std::string_view key) {
    return dateFrom(key, '/');
}

std::shared_ptr<HistoryDatabase> HistoryDatabase::databaseAtPath(const std::string& path, Date date) {
    auto database = std::make_shared<HistoryDatabase>(date);
    if (!database->loadFromPath(path)) return nullptr;
    return database;
}

HistoryDatabase::Date HistoryDatabase::date() const {
    std::lock_guard lock(mutex_);
    return date_;
}

void HistoryDatabase::setDate(Date date) {
    std::lock_guard lock(mutex_);
    date_ = date;
}

bool HistoryDatabase::loadFromPath(const std::string& path) {
    if (!fileExists(path)) return true;
    std::string failure;
    if (auto bytes = readWholeFile(path); !bytes) {
        failure = "the file cannot be read";
    } else if (auto root = PlistCodec::decode(*bytes); !root) {
        failure = "not a property list";
    } else if (!root->isArray()) {
        failure = fmt::format("the root is a {}, not an array", PlistValue::kindName(root->kind()));
    } else {
        std::size_t index = 0;
        for (const PlistValue& element : *root->asArray()) {
            const PlistValue::Data* archive = element.asData();
            if (!archive) {
                failure = fmt::format("element {} is a {}, not an archive", index,
                                      PlistValue::kindName(element.kind()));
                break;
            }
            // Bytes that do not unarchive give an empty item, not a failure.
            addObject(AbstractResource::resourceFromData<HistoryItem>(*archive));
            ++index;
        }
    }
    if (failure.empty()) return true;
    Log::info("Unable to load history db at path {} : {}", path, failure);
    return false;
}

bool HistoryDatabase::saveAtPath(const std::string& folder, const std::string& key) const {
    PlistValue::Array archives;
    for (const ItemPtr& item : logItems()) archives.emplace_back(item->archivedResource());
    return PlistCodec::writeXmlFile(joinPath(folder, key + "." + kExtension),
                                    PlistValue(std::move(archives)));
}

void HistoryDatabase::addObject(ItemPtr item) {
    if (!item) return;
    std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
}

std::size_t HistoryDatabase::count() const {
    std::lock_guard lock(mutex_);
    return items_.size();
}

HistoryDatabase::ItemPtr HistoryDatabase::objectAtIndex(std::size_t index) const {
    std::lock_guard lock(mutex_);
    return index < items_.size() ? items_[index] : nullptr;
}

std::vector<HistoryDatabase::ItemPtr> HistoryDatabase::logItems() const {
    std::lock_guard lock(mutex_);
    return items_;
}

void HistoryDatabase::sortWithDescriptors(const std::vector<SortDescriptor>& descriptors) {
    std::lock_guard lock(mutex_);
    std::stable_sort(items_.begin(), items_.end(), [&](const ItemPtr& a, const ItemPtr& b) {
        for (const SortDescriptor& d : descriptors) {
            int order = compareValues(a->objectForKey(d.key), b->objectForKey(d.key));
            if (order != 0) return d.ascending ? order < 0 : order > 0;
        }
        return false;
    });
}

void HistoryDatabase::sortItems() {
    std::lock_guard lock(mutex_);
    // The date texts are computed once per item, not once per comparison.
    std::vector<std::pair<std::string, ItemPtr>> keyed;
    keyed.reserve(items_.size());
    for (ItemPtr& item : items_) keyed.emplace_back(item->date(), std::move(item));
    std::stable_sort(keyed.begin(), keyed.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (std::size_t i = 0; i < keyed.size(); ++i) items_[i] = std::move(keyed[i].second);
}

std::size_t HistoryDatabase::deleteObject() {
    std::lock_guard lock(mutex_);
    auto kept = std::stable_partition(items_.begin(), items_.end(),
                                      [](const ItemPtr& item) { return !item->shouldBeDeleted(); });
    std::size_t removed = static_cast<std::size_t>(items_.end() - kept);
    items_.erase(kept, items_.end());
    return removed;
}

DeleteAlert HistoryDatabase::deleteAlert(const std::string& dayTitle) {
    DeleteAlert alert;
    alert.title = localized("Delete", "Delete this item ?");
    alert.message = localized("DeleteLong", "Do you really want to delete this item and all it's content ?");
    alert.day = dayTitle;
    return alert;
}

bool HistoryDatabase::askDelete(const DeleteConfirmation& confirm) const {
    return confirm && confirm(deleteAlert(title()));
}

HistoryDatabase::ItemPtr HistoryDatabase::containsTrack(std::string_view trackName) const {
    for (const ItemPtr& item : logItems()) {
        auto name = item->completeTrackName();
        if (name && *name == trackName) return item;
    }
    return nullptr;
}

int HistoryDatabase::numberOfTracks() const {
    int n = 0;
    for (const ItemPtr& item : logItems()) {
        if (item->complete() && !item->skipped()) ++n;
    }
    return n;
}

std::string HistoryDatabase::title() const {
    return formatDate(date(), localized("dateFormat", "%A, %B %d %Y"));
}

std::optional<HistoryDatabase::Date> HistoryDatabase::calDate() const {
    Log::line("Warning : using calDate for an historyDB which return nil");
    return std::nullopt;
}

const DateFormats& HistoryDatabase::dateFormats() {
    static const DateFormats formats = [] {
        DateFormats f;
        for (const char* key : {"SUN", "MON", "TUE", "WED", "THU", "FRI", "SAT"}) {
            f.weekdays.push_back(localized(key, key));
        }
        for (const char* key :
             {"JAN", "FEB", "MAR", "APR", "MAY", "JUN", "JUL", "AOU", "SEP", "OCT", "NOV", "DEC"}) {
            f.months.push_back(localized(key, key));
        }
        return f;
    }();
    return formats;
}

std::string HistoryDatabase::formatDate(Date date, std::string_view format) {
    const DateFormats& names = dateFormats();
    std::tm parts = TimeUtil::localParts(date);
    auto shortName = [](const std::string& name) { return std::string(utf8Prefix(name, 3)); };
    std::string out;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%' || i + 1 == format.size()) {
            out += format[i];
            continue;
        }
        char spec = format[++i];
        switch (spec) {
            case 'A':
                out += names.weekdays[parts.tm_wday];
                break;
            case 'a':
                out += shortName(names.weekdays[parts.tm_wday]);
                break;
            case 'B':
                out += names.months[parts.tm_mon];
                break;
            case 'b':
                out += shortName(names.months[parts.tm_mon]);
                break;
            case 'd':
                out += lastTwoDigits(parts.tm_mday);
                break;
            case 'e':
                out += std::to_string(parts.tm_mday);
                break;
            case 'm':
                out += lastTwoDigits(parts.tm_mon + 1);
                break;
            case 'Y':
                out += std::to_string(parts.tm_year + 1900);
                break;
            case 'y':
                out += lastTwoDigits(parts.tm_year % 100);
                break;
            case 'H':
                out += lastTwoDigits(parts.tm_hour);
                break;
            case 'M':
                out += lastTwoDigits(parts.tm_min);
                break;
            case 'S':
                out += lastTwoDigits(parts.tm_sec);
                break;
            case '%':
                out += '%';
                break;
            default:
                out += '%';
                out += spec;
        }
    }
    return out;
}

}  // namespace quillon
