#include "cli/HistoryCommand.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "history/History.h"
#include "history/HistoryDatabase.h"
#include "history/HistoryItem.h"
#include "platform/TextUtil.h"

namespace quillon {

namespace {

struct HistoryArgs {
    std::string day;
    std::vector<std::string> words;
    bool json = false;
    bool yes = false;
};

// A day key as typed ("2008_07_05", also "2008_7_5"), in its stored form.
std::string checkedDay(const std::string& text) {
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
        throw UsageError("not a day: '" + printable(text) + "' (expected YYYY_MM_DD)");
    return HistoryDatabase::keyFromDate(*date);
}

std::string statusText(const HistoryItem& item) {
    if (item.skipped()) return "skipped";
    return item.complete() ? "complete" : "incomplete";
}

nlohmann::json itemRecord(const HistoryItem& item, std::size_t number) {
    nlohmann::json j;
    j["number"] = number;
    j["trackname"] = item.trackName();
    j["radioname"] = item.radioName();
    j["tracknum"] = item.tracknum();
    j["date"] = item.date();
    j["time"] = item.time();
    j["complete"] = item.complete();
    j["skipped"] = item.skipped();
    j["path"] = item.path();
    return j;
}

// Titles and station names come from the stream as they were sent: printed,
// their control characters are shown as U+FFFD (the stored text stays as is).
void printItem(const HistoryItem& item, std::size_t number) {
    std::printf("%zu\t%s\t%s\t%s\t%s\t%s\n", number, item.time().c_str(), statusText(item).c_str(),
                printable(item.trackName()).c_str(), printable(item.radioName()).c_str(),
                printable(item.path()).c_str());
}

nlohmann::json dayRecord(const std::string& key, const HistoryDatabase& day) {
    nlohmann::json j;
    j["day"] = key;
    j["title"] = day.title();
    j["items"] = day.count();
    j["complete"] = day.numberOfTracks();  // complete and not skipped
    return j;
}

// The number (from 1) of the item in its day as listed; 0 when not found.
std::size_t numberInDay(const History& history, const std::string& key, const HistoryItem* item) {
    auto day = history.databaseForKey(key);
    if (!day) return 0;
    auto items = day->logItems();
    auto found = std::find_if(items.begin(), items.end(), [&](const auto& i) { return i.get() == item; });
    return found == items.end() ? 0 : static_cast<std::size_t>(found - items.begin()) + 1;
}

int runList(const HistoryArgs& args) {
    auto history = History::history();
    if (!args.day.empty()) {
        std::string key = checkedDay(args.day);
        auto day = history->databaseForKey(key);
        if (!day) {
            std::fprintf(stderr, "quillon: the history has no day %s\n", key.c_str());
            return 1;
        }
        auto items = day->logItems();
        if (args.json) {
            nlohmann::json j = dayRecord(key, *day);
            j["tracks"] = nlohmann::json::array();
            for (std::size_t i = 0; i < items.size(); ++i)
                j["tracks"].push_back(itemRecord(*items[i], i + 1));
            std::printf("%s\n", j.dump(2).c_str());
            return 0;
        }
        std::printf("%s\n", day->title().c_str());
        for (std::size_t i = 0; i < items.size(); ++i) printItem(*items[i], i + 1);
        return 0;
    }
    nlohmann::json list = nlohmann::json::array();
    for (const std::string& key : history->dateKeys()) {
        auto day = history->databaseForKey(key);
        if (!day) continue;
        if (args.json) {
            list.push_back(dayRecord(key, *day));
        } else {
            std::printf("%s\t%s\t%zu items, %d complete\n", key.c_str(), day->title().c_str(), day->count(),
                        day->numberOfTracks());
        }
    }
    if (args.json) std::printf("%s\n", list.dump(2).c_str());
    return 0;
}

int runSearch(const HistoryArgs& args) {
    std::string keyword;
    for (const std::string& word : args.words) {
        if (!keyword.empty()) keyword += ' ';
        keyword += word;
    }
    if (keyword.empty()) throw UsageError("give the words to search for");
    // Matching is against lower-case text, so the words are made lower case too.
    keyword = lowerCaseText(keyword);
    auto history = History::history();
    history->filter({{History::kFilterKeywords, PlistValue(keyword)}});
    nlohmann::json list = nlohmann::json::array();
    for (std::size_t i = 0; i < history->count(); ++i) {
        auto day = history->itemAtIndex(i);
        if (!day) continue;
        std::string key = HistoryDatabase::keyFromDate(day->date());
        nlohmann::json record = dayRecord(key, *day);
        record["tracks"] = nlohmann::json::array();
        if (!args.json) std::printf("%s\t%s\n", key.c_str(), day->title().c_str());
        for (const auto& item : day->logItems()) {
            std::size_t number = numberInDay(*history, key, item.get());
            if (args.json) {
                record["tracks"].push_back(itemRecord(*item, number));
            } else {
                printItem(*item, number);
            }
        }
        list.push_back(record);
    }
    if (args.json) std::printf("%s\n", list.dump(2).c_str());
    return 0;
}

int runAdd(const HistoryArgs& args) {
    if (args.words.empty()) throw UsageError("give the MP3 files or folders to add");
    for (const std::string& path : args.words) {
        std::error_code ec;
        if (!std::filesystem::exists(path, ec)) throw UsageError("no such file or folder: " + path);
        if (!std::filesystem::is_directory(path, ec) && std::filesystem::path(path).extension() != ".mp3") {
            std::fprintf(stderr, "quillon: %s is not an .mp3 file; left out\n", path.c_str());
        }
    }
    auto history = History::history();
    auto added = history->addFiles(args.words);
    if (added.empty()) {
        std::fprintf(stderr, "quillon: no MP3 files found\n");
        return 1;
    }
    nlohmann::json list = nlohmann::json::array();
    for (const auto& item : added) {
        std::string key =
            HistoryDatabase::keyFromDate(item->calDate().value_or(std::chrono::system_clock::now()));
        if (args.json) {
            nlohmann::json j = itemRecord(*item, numberInDay(*history, key, item.get()));
            j["day"] = key;
            list.push_back(j);
        } else {
            std::printf("%s\t%s\t%s\n", key.c_str(), printable(item->trackName()).c_str(),
                        printable(item->path()).c_str());
        }
    }
    if (args.json) std::printf("%s\n", list.dump(2).c_str());
    return 0;
}

// Asks on the terminal; only "y", "yes" or "ok" agree.
bool askYes(const std::string& question) {
    std::fprintf(stderr, "%s [y/N] ", question.c_str());
    std::fflush(stderr);
    std::string answer;
    if (!std::getline(std::cin, answer)) return false;
    answer = toLowerAscii(answer);
    answer.erase(0, answer.find_first_not_of(" \t"));
    answer.erase(answer.find_last_not_of(" \t\r") + 1);
    return answer == "y" || answer == "yes" || answer == "ok";
}

struct Target {
    std::string key;
    std::size_t number = 0;  // 0: the whole day
};

Target parseTarget(const std::string& text) {
    auto colon = text.find(':');
    Target t;
    t.key = checkedDay(text.substr(0, colon));
    if (colon == std::string::npos) return t;
    std::string number = text.substr(colon + 1);
    bool digits = !number.empty() && number.size() <= 9 &&
                  std::all_of(number.begin(), number.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (!digits || intValue(number) < 1) {
        throw UsageError("not a track number: '" + text + "' (expected YYYY_MM_DD:N, N as listed)");
    }
    t.number = static_cast<std::size_t>(intValue(number));
    return t;
}

int runRemove(const HistoryArgs& args) {
    if (args.words.empty()) throw UsageError("give the days (YYYY_MM_DD) or tracks (YYYY_MM_DD:N) to delete");
    std::vector<Target> targets;
    for (const std::string& word : args.words) targets.push_back(parseTarget(word));
    if (!args.yes && !::isatty(STDIN_FILENO)) {
        throw UsageError("deleting needs a confirmation, and the input is no terminal: add --yes");
    }

    auto history = History::history();
    std::set<std::string> days;
    std::map<std::string, std::set<std::size_t>> tracks;
    for (const Target& t : targets) {
        auto day = history->databaseForKey(t.key);
        if (!day) {
            std::fprintf(stderr, "quillon: the history has no day %s\n", t.key.c_str());
            return 1;
        }
        if (t.number == 0) {
            days.insert(t.key);
        } else if (t.number > day->count()) {
            std::fprintf(stderr, "quillon: day %s has no track %zu (it has %zu)\n", t.key.c_str(), t.number,
                         day->count());
            return 1;
        } else {
            tracks[t.key].insert(t.number);
        }
    }

    std::size_t trackCount = 0;
    for (const auto& entry : tracks) trackCount += entry.second.size();
    bool tracksAgreed = args.yes || trackCount == 0 ||
                        askYes("Delete " + std::to_string(trackCount) + " track(s) from the history?");
    if (tracksAgreed) {
        for (const auto& [key, numbers] : tracks) {
            auto items = history->databaseForKey(key)->logItems();
            for (std::size_t n : numbers) items[n - 1]->markForDelete();
        }
    }
    for (const std::string& key : days) history->databaseForKey(key)->markForDelete();
    history->setDeleteConfirmation([yes = args.yes](const DeleteAlert& alert) {
        return yes || askYes(alert.title + " " + alert.day + ": " + alert.message);
    });

    History::DeleteResult result = history->deleteItems();
    // Days that lost tracks are written now, or the tracks would come back.
    int status = 0;
    for (const auto& entry : tracks) {
        auto day = history->databaseForKey(entry.first);
        if (day && tracksAgreed && !day->shouldBeDeleted() &&
            !day->saveAtPath(history->folder(), entry.first)) {
            std::fprintf(stderr, "quillon: cannot write %s\n",
                         history->databasePathForDate(day->date()).c_str());
            status = 1;
        }
    }
    if (!history->flush()) status = 1;  // a day file that could not be deleted (logged)
    for (const std::string& key : result.removedDays) std::printf("Removed day %s\n", key.c_str());
    for (const std::string& key : result.keptDays) std::printf("Kept day %s\n", key.c_str());
    if (result.removedItems > 0) std::printf("Removed %zu track(s)\n", result.removedItems);
    if (result.removedDays.empty() && result.removedItems == 0) std::printf("Nothing deleted\n");
    return status;
}

}  // namespace

void addHistoryCommand(CLI::App& app, CommandRunner& runner) {
    auto args = std::make_shared<HistoryArgs>();
    CLI::App* cmd =
        app.add_subcommand("history", "List, search, add to or delete from the recording history");
    cmd->require_subcommand(1);

    CLI::App* list = cmd->add_subcommand("list", "List the days of the history, or the tracks of one day");
    list->add_option("--day", args->day, "Day to show, as YYYY_MM_DD");
    list->add_flag("--json", args->json, "Print the list as JSON");
    list->callback([args, &runner] { runner = [args] { return runList(*args); }; });

    CLI::App* search =
        cmd->add_subcommand("search", "Show the tracks whose name or station contains the words (any case)");
    search->add_option("words", args->words, "Words to look for, as one text")->required();
    search->add_flag("--json", args->json, "Print the result as JSON");
    search->callback([args, &runner] { runner = [args] { return runSearch(*args); }; });

    CLI::App* add =
        cmd->add_subcommand("add", "Enter MP3 files in the history; folders are searched through");
    add->add_option("paths", args->words, "MP3 files or folders")->required();
    add->add_flag("--json", args->json, "Print the added tracks as JSON");
    add->callback([args, &runner] { runner = [args] { return runAdd(*args); }; });

    CLI::App* rm =
        cmd->add_subcommand("rm", "Delete tracks (YYYY_MM_DD:N, N as listed) or whole days (YYYY_MM_DD)");
    rm->add_option("targets", args->words, "Days or tracks to delete")->required();
    rm->add_flag("-y,--yes", args->yes, "Delete without asking");
    rm->callback([args, &runner] { runner = [args] { return runRemove(*args); }; });
}

}  // namespace quillon
