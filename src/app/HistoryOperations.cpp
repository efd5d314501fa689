#include "app/HistoryOperations.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <set>

#include "app/BadInput.h"
#include "history/History.h"
#include "history/HistoryDatabase.h"
#include "history/HistoryItem.h"
#include "platform/TextUtil.h"

namespace quillon {

namespace {

using Status = OperationResult::Status;

// The number (from 1) of the item in its day as listed; 0 when not found.
std::size_t numberInDay(const History& history, const std::string& key, const HistoryItem* item) {
    auto day = history.databaseForKey(key);
    if (!day) return 0;
    auto items = day->logItems();
    auto found = std::find_if(items.begin(), items.end(), [&](const auto& i) { return i.get() == item; });
    return found == items.end() ? 0 : static_cast<std::size_t>(found - items.begin()) + 1;
}

std::string noDay(const std::string& key) { return "the history has no day " + key; }

}  // namespace

std::string HistoryOperations::checkedDay(const std::string& text) {
    auto date = HistoryDatabase::dateFromKey(text);
    // A day that the calendar would roll over (2020_13_45) is no day either:
    // its key, read back, names another day.
    auto numbers = [](const std::string& key) {
        std::vector<int> out;
        for (std::size_t at = 0; at <= key.size();) {
            std::size_t end = std::min(key.find('_', at), key.size());
            out.push_back(intValue(std::string_view(key).substr(at, end - at)));
            at = end + 1;
        }
        return out;
    };
    if (!date || numbers(HistoryDatabase::keyFromDate(*date)) != numbers(text))
        throw BadInput("not a day: '" + printable(text) + "' (expected YYYY_MM_DD)");
    return HistoryDatabase::keyFromDate(*date);
}

HistoryOperations::Target HistoryOperations::parseTarget(const std::string& text) {
    auto colon = text.find(':');
    Target t;
    t.key = checkedDay(text.substr(0, colon));
    if (colon == std::string::npos) return t;
    std::string number = text.substr(colon + 1);
    bool digits = !number.empty() && number.size() <= 9 &&
                  std::all_of(number.begin(), number.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (!digits || intValue(number) < 1)
        throw BadInput("not a track number: '" + printable(text) + "' (expected YYYY_MM_DD:N, N as listed)");
    t.number = static_cast<std::size_t>(intValue(number));
    return t;
}

nlohmann::json HistoryOperations::dayRecord(const std::string& key, const HistoryDatabase& day) {
    return {{"day", key}, {"title", day.title()}, {"items", day.count()}, {"complete", day.numberOfTracks()}};
}

nlohmann::json HistoryOperations::trackRecord(const HistoryItem& item, std::size_t number) {
    return {{"number", number},
            {"trackname", item.trackName()},
            {"radioname", item.radioName()},
            {"tracknum", item.tracknum()},
            {"date", item.date()},
            {"time", item.time()},
            {"complete", item.complete()},
            {"skipped", item.skipped()},
            {"path", item.path()}};
}

nlohmann::json HistoryOperations::days(const History& history) {
    nlohmann::json list = nlohmann::json::array();
    for (const std::string& key : history.dateKeys()) {
        if (auto day = history.databaseForKey(key)) list.push_back(dayRecord(key, *day));
    }
    return list;
}

OperationResult HistoryOperations::day(const History& history, const std::string& key) {
    auto day = history.databaseForKey(key);
    if (!day) return OperationResult::failure(Status::NotFound, noDay(key));
    nlohmann::json record = dayRecord(key, *day);
    record["tracks"] = nlohmann::json::array();
    auto items = day->logItems();
    for (std::size_t i = 0; i < items.size(); ++i) record["tracks"].push_back(trackRecord(*items[i], i + 1));
    return OperationResult::done(std::move(record));
}

nlohmann::json HistoryOperations::search(History& history, const std::string& words) {
    // Matching is against lower-case text, so the words are made lower case too.
    history.filter({{History::kFilterKeywords, PlistValue(lowerCaseText(words))}});
    nlohmann::json list = nlohmann::json::array();
    for (std::size_t i = 0; i < history.count(); ++i) {
        auto day = history.itemAtIndex(i);
        if (!day) continue;
        std::string key = HistoryDatabase::keyFromDate(day->date());
        nlohmann::json record = dayRecord(key, *day);
        record["tracks"] = nlohmann::json::array();
        for (const auto& item : day->logItems())
            record["tracks"].push_back(trackRecord(*item, numberInDay(history, key, item.get())));
        list.push_back(std::move(record));
    }
    // The lists of the daemon's other callers are never left filtered.
    history.filter({});
    return list;
}

OperationResult HistoryOperations::remove(History& history, const std::vector<Target>& targets) {
    std::set<std::string> days;
    std::map<std::string, std::set<std::size_t>> tracks;
    for (const Target& t : targets) {
        auto day = history.databaseForKey(t.key);
        if (!day) return OperationResult::failure(Status::NotFound, noDay(t.key));
        if (t.number == 0) {
            days.insert(t.key);
        } else if (t.number > day->count()) {
            return OperationResult::failure(Status::NotFound, "day " + t.key + " has no track " +
                                                                  std::to_string(t.number) + " (it has " +
                                                                  std::to_string(day->count()) + ")");
        } else {
            tracks[t.key].insert(t.number);
        }
    }
    for (const auto& [key, numbers] : tracks) {
        auto items = history.databaseForKey(key)->logItems();
        for (std::size_t n : numbers) items[n - 1]->markForDelete();
    }
    for (const std::string& key : days) history.databaseForKey(key)->markForDelete();
    // The caller asked already: the marked days are agreed to.
    history.setDeleteConfirmation([](const DeleteAlert&) { return true; });
    History::DeleteResult deleted = history.deleteItems();
    history.setDeleteConfirmation({});

    // Days that lost tracks are written now, or the tracks would come back.
    std::string failed;
    for (const auto& entry : tracks) {
        auto day = history.databaseForKey(entry.first);
        if (day && !day->saveAtPath(history.folder(), entry.first))
            failed = "cannot write " + history.databasePathForDate(day->date());
    }
    if (!history.flush() && failed.empty()) failed = "cannot delete a day file of " + history.folder();
    if (!failed.empty()) return OperationResult::failure(Status::Failed, failed);
    return OperationResult::done(
        {{"removedDays", deleted.removedDays}, {"removedItems", deleted.removedItems}});
}

OperationResult HistoryOperations::add(History& history, const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        std::error_code ec;
        if (!std::filesystem::exists(path, ec))
            return OperationResult::failure(Status::BadInput, "no such file or folder: " + printable(path));
    }
    auto added = history.addFiles(paths);
    if (added.empty()) return OperationResult::failure(Status::NotFound, "no MP3 files found");
    nlohmann::json list = nlohmann::json::array();
    for (const auto& item : added) {
        std::string key =
            HistoryDatabase::keyFromDate(item->calDate().value_or(std::chrono::system_clock::now()));
        nlohmann::json record = trackRecord(*item, numberInDay(history, key, item.get()));
        record["day"] = key;
        list.push_back(std::move(record));
    }
    return OperationResult::done(std::move(list));
}

}  // namespace quillon
