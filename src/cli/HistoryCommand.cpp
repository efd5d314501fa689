#include "cli/HistoryCommand.h"

#include "engine/AudioFormat.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "app/HistoryOperations.h"
#include "cli/DaemonCalls.h"
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

std::string statusText(const nlohmann::json& track) {
    if (track.value("skipped", false)) return "skipped";
    return track.value("complete", false) ? "complete" : "incomplete";
}

// Titles and station names come from the stream as they were sent: printed,
// their control characters are shown as U+FFFD (the stored text stays as is).
void printTrack(const nlohmann::json& t) {
    std::printf("%zu\t%s\t%s\t%s\t%s\t%s\n", t.value("number", std::size_t{0}),
                t.value("time", std::string()).c_str(), statusText(t).c_str(),
                printable(t.value("trackname", std::string())).c_str(),
                printable(t.value("radioname", std::string())).c_str(),
                printable(t.value("path", std::string())).c_str());
}

// An operation's failure as the command's: bad input exits 2, a missing
// day or track and a failed write 1, after saying why.
int failed(const OperationResult& result) {
    if (result.status == OperationResult::Status::BadInput) throw UsageError(result.error);
    std::fprintf(stderr, "quillon: %s\n", result.error.c_str());
    return 1;
}

int runList(const HistoryArgs& args) {
    auto history = History::history();
    if (!args.day.empty()) {
        auto result = HistoryOperations::day(*history, HistoryOperations::checkedDay(args.day));
        if (!result.ok()) return failed(result);
        if (args.json) {
            std::printf("%s\n", result.value.dump(2).c_str());
            return 0;
        }
        std::printf("%s\n", result.value["title"].get<std::string>().c_str());
        for (const auto& track : result.value["tracks"]) printTrack(track);
        return 0;
    }
    nlohmann::json days = HistoryOperations::days(*history);
    if (args.json) {
        std::printf("%s\n", days.dump(2).c_str());
        return 0;
    }
    for (const auto& day : days) {
        std::printf("%s\t%s\t%zu items, %d complete\n", day["day"].get<std::string>().c_str(),
                    day["title"].get<std::string>().c_str(), day["items"].get<std::size_t>(),
                    day["complete"].get<int>());
    }
    return 0;
}

int runSearch(const HistoryArgs& args) {
    std::string words;
    for (const std::string& word : args.words) words += (words.empty() ? "" : " ") + word;
    if (words.empty()) throw UsageError("give the words to search for");
    nlohmann::json days = HistoryOperations::search(*History::history(), words);
    if (args.json) {
        std::printf("%s\n", days.dump(2).c_str());
        return 0;
    }
    for (const auto& day : days) {
        std::printf("%s\t%s\n", day["day"].get<std::string>().c_str(),
                    day["title"].get<std::string>().c_str());
        for (const auto& track : day["tracks"]) printTrack(track);
    }
    return 0;
}

int runAdd(const HistoryArgs& args) {
    if (args.words.empty()) throw UsageError("give the recorded files or folders to add");
    std::vector<std::string> paths;
    for (const std::string& path : args.words) {
        std::error_code ec;
        if (!std::filesystem::exists(path, ec)) throw UsageError("no such file or folder: " + path);
        if (!std::filesystem::is_directory(path, ec) &&
            !isRecordingExtension(std::filesystem::path(path).extension().string())) {
            std::fprintf(stderr, "quillon: %s is not a recording (.mp3, .aac, .ogg, .opus); left out\n",
                         path.c_str());
        }
        // The daemon works in a folder of its own.
        paths.push_back(std::filesystem::absolute(path).lexically_normal().string());
    }
    std::optional<DaemonClient> daemon;
    if (!findDaemonForChanges(daemon)) return 1;
    OperationResult result = daemon
                                 ? resultOf(daemon->request("POST", "/api/history/files", {{"paths", paths}}))
                                 : HistoryOperations::add(*History::history(), paths);
    if (!result.ok()) return failed(result);
    const nlohmann::json& tracks = daemon ? result.value["tracks"] : result.value;
    if (args.json) {
        std::printf("%s\n", tracks.dump(2).c_str());
        return 0;
    }
    for (const auto& t : tracks) {
        std::printf("%s\t%s\t%s\n", t.value("day", std::string()).c_str(),
                    printable(t.value("trackname", std::string())).c_str(),
                    printable(t.value("path", std::string())).c_str());
    }
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

// The day as the daemon or the day file lists it (its title and number of
// items); a message on stderr and nothing when the history has no such day.
std::optional<nlohmann::json> listedDay(const std::optional<DaemonClient>& daemon, const std::string& key) {
    OperationResult result = daemon ? resultOf(daemon->request("GET", "/api/history/days/" + key))
                                    : HistoryOperations::day(*History::history(), key);
    if (!result.ok()) {
        std::fprintf(stderr, "quillon: %s\n", result.error.c_str());
        return std::nullopt;
    }
    return result.value;
}

int runRemove(const HistoryArgs& args) {
    if (args.words.empty()) throw UsageError("give the days (YYYY_MM_DD) or tracks (YYYY_MM_DD:N) to delete");
    std::vector<HistoryOperations::Target> targets;
    for (const std::string& word : args.words) targets.push_back(HistoryOperations::parseTarget(word));
    if (!args.yes && !::isatty(STDIN_FILENO)) {
        throw UsageError("deleting needs a confirmation, and the input is no terminal: add --yes");
    }
    std::optional<DaemonClient> daemon;
    if (!findDaemonForChanges(daemon)) return 1;

    // Every target is checked and asked about before anything goes; what the
    // user declines is left out.
    std::map<std::string, nlohmann::json> days;
    for (const auto& t : targets) {
        if (!days.count(t.key)) {
            auto day = listedDay(daemon, t.key);
            if (!day) return 1;
            days[t.key] = *day;
        }
        std::size_t count = days[t.key]["items"].get<std::size_t>();
        if (t.number > count) {
            std::fprintf(stderr, "quillon: day %s has no track %zu (it has %zu)\n", t.key.c_str(), t.number,
                         count);
            return 1;
        }
    }
    std::vector<HistoryOperations::Target> agreed;
    std::vector<std::string> keptDays;
    auto trackCount =
        std::count_if(targets.begin(), targets.end(), [](const auto& t) { return t.number > 0; });
    bool tracksAgreed = args.yes || trackCount == 0 ||
                        askYes("Delete " + std::to_string(trackCount) + " track(s) from the history?");
    for (const auto& t : targets) {
        if (t.number > 0 && tracksAgreed) agreed.push_back(t);
    }
    for (const auto& t : targets) {
        if (t.number > 0) continue;
        DeleteAlert alert = HistoryDatabase::deleteAlert(days[t.key]["title"].get<std::string>());
        if (args.yes || askYes(alert.title + " " + alert.day + ": " + alert.message)) {
            agreed.push_back(t);
        } else {
            keptDays.push_back(t.key);
        }
    }
    nlohmann::json removed = {{"removedDays", nlohmann::json::array()}, {"removedItems", 0}};
    if (!agreed.empty()) {
        nlohmann::json list = nlohmann::json::array();
        for (const auto& t : agreed) list.push_back(t.key + (t.number ? ":" + std::to_string(t.number) : ""));
        OperationResult result = daemon ? resultOf(daemon->request("POST", "/api/history/delete",
                                                                   {{"targets", list}, {"confirm", true}}))
                                        : HistoryOperations::remove(*History::history(), agreed);
        if (!result.ok()) return failed(result);
        removed = result.value;
    }
    for (const auto& key : removed["removedDays"])
        std::printf("Removed day %s\n", key.get<std::string>().c_str());
    for (const std::string& key : keptDays) std::printf("Kept day %s\n", key.c_str());
    std::size_t items = removed["removedItems"].get<std::size_t>();
    if (items > 0) std::printf("Removed %zu track(s)\n", items);
    if (removed["removedDays"].empty() && items == 0) std::printf("Nothing deleted\n");
    return 0;
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
    add->add_option("paths", args->words, "Recorded files (.mp3, .aac, .ogg, .opus) or folders")->required();
    add->add_flag("--json", args->json, "Print the added tracks as JSON");
    add->callback([args, &runner] { runner = [args] { return runAdd(*args); }; });

    CLI::App* rm =
        cmd->add_subcommand("rm", "Delete tracks (YYYY_MM_DD:N, N as listed) or whole days (YYYY_MM_DD)");
    rm->add_option("targets", args->words, "Days or tracks to delete")->required();
    rm->add_flag("-y,--yes", args->yes, "Delete without asking");
    rm->callback([args, &runner] { runner = [args] { return runRemove(*args); }; });
}

}  // namespace quillon
