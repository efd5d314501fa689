#include "cli/DirectoryCommand.h"

#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "app/DirectoryOperations.h"
#include "cli/RecordCommand.h"
#include "cli/RecordSession.h"
#include "platform/Localization.h"
#include "platform/MainLoop.h"
#include "platform/TextUtil.h"
#include "store/Bookmark.h"
#include "tuner/RadioBrowserClicks.h"
#include "tuner/Tuner.h"

namespace quillon {

namespace {

struct DirectoryArgs {
    std::string server;
    std::string source;      // update: "server" or "radio-browser"
    bool allCodecs = false;  // update from Radio Browser: every codec
    int minKbps = 0;
    int maxKbps = Tuner::kNeutralMax;
    bool json = false;
    std::vector<std::string> words;  // search words, or the entry
    std::string name;                // save: the bookmark's name
    bool force = false;
    std::string duration, folder;  // record
    bool quiet = false;
};

std::unique_ptr<Tuner> openDirectory(const DirectoryArgs& args) {
    auto tuner = std::make_unique<Tuner>();
    tuner->setServer(args.server);
    if (!args.source.empty()) tuner->setSource(*Tuner::sourceNamed(args.source));
    tuner->setAllCodecs(args.allCodecs);
    return tuner;
}

// The local directory, loaded; prints why not when it is empty.
bool loaded(Tuner& tuner) {
    if (tuner.loadTunerData()) return true;
    std::fprintf(stderr, "quillon: %s: %s (run quillon directory update)\n",
                 localized("MSG_TUNER_EMPTY", "Tuner is empty").c_str(), tuner.tunerPath().c_str());
    return false;
}

void drawProgress(const std::string& text, int percent, bool tty) {
    constexpr int kWidth = 30;
    const int filled = percent * kWidth / 100;
    std::string bar = "[" + std::string(filled, '#') + std::string(kWidth - filled, ' ') + "]";
    if (tty)
        std::fprintf(stderr, "\r\033[K%s %3d%% %s", bar.c_str(), percent, printable(text).c_str());
    else
        std::fprintf(stderr, "%s %3d%% %s\n", bar.c_str(), percent, printable(text).c_str());
    std::fflush(stderr);
}

int runUpdate(const DirectoryArgs& args) {
    auto tuner = openDirectory(args);
    const bool tty = ::isatty(STDERR_FILENO) == 1;
    bool drawn = false;
    std::optional<Tuner::Outcome> outcome;
    std::string message;
    Tuner::Events events;
    events.progress = [&](const std::string& text, int percent) {
        drawProgress(text, percent, tty);
        drawn = true;
    };
    events.finished = [&](Tuner::Outcome o, const std::string& text) {
        outcome = o;
        message = text;
        MainLoop::main().stop();
    };
    events.beep = [] { std::fprintf(stderr, "\a"); };
    tuner->setEvents(std::move(events));
    tuner->beginUpdate(true);
    if (!outcome) MainLoop::main().run();
    if (drawn && tty) std::fprintf(stderr, "\n");
    switch (*outcome) {
        case Tuner::Outcome::updated:
            std::printf("Directory updated: %s\n", message.c_str());
            return 0;
        case Tuner::Outcome::upToDate:
            std::printf("%s\n", message.c_str());
            return 0;
        case Tuner::Outcome::checkFailed:
            std::fprintf(stderr, "quillon: %s\n", message.c_str());
            return 1;
        case Tuner::Outcome::updateFailed:
            std::fprintf(stderr,
                         "quillon: Cannot update the directory: %s (the local directory is unchanged)\n",
                         message.c_str());
            return 1;
    }
    return 1;
}

int showTree(const DirectoryArgs& args, const std::vector<std::string>& words) {
    auto tuner = openDirectory(args);
    if (!loaded(*tuner)) return 1;
    tuner->filter(DirectoryOperations::filterFor(words, args.minKbps, args.maxKbps));
    nlohmann::json tree = DirectoryOperations::tree(*tuner);
    if (args.json) {
        std::printf("%s\n", tree.dump(2).c_str());
        return 0;
    }
    for (const auto& genre : tree["genres"]) {
        std::printf("%s (%zu)\n", printable(genre["name"].get<std::string>()).c_str(),
                    genre["streams"].size());
        for (const auto& s : genre["streams"]) {
            std::printf("  %s\t%d kbps %s\t%s\t%s\n", printable(s["name"].get<std::string>()).c_str(),
                        s["bitrate"].get<int>(), s["class"].get<std::string>().c_str(),
                        printable(s["id"].get<std::string>()).c_str(),
                        printable(s["description"].get<std::string>()).c_str());
        }
    }
    if (tree["genres"].empty()) std::printf("No entry matches.\n");
    return 0;
}

// The entry's bookmark, through its playlist (or its own address); prints why
// not. For an entry of Radio Browser's, `clicks` is made ready to count its
// click, which the caller does once the entry is taken.
struct Click {
    std::unique_ptr<RadioBrowserClicks> clicks;
    std::string station;
    void count() {
        if (clicks) clicks->count(station);
    }
    // Before the command exits: the click is sent (bounded by its time-out).
    void finish() {
        if (clicks) clicks->finish();
    }
};

std::shared_ptr<Bookmark> entryBookmark(const DirectoryArgs& args, Click& click) {
    auto tuner = openDirectory(args);
    if (!loaded(*tuner)) return nullptr;
    std::string what;
    for (const auto& w : args.words) what += (what.empty() ? "" : " ") + w;
    std::string failure;
    auto item = DirectoryOperations::find(*tuner, what, failure);
    if (!item) throw UsageError(failure);
    const std::string server = tuner->server();
    if (server.empty() && !item->hasDirectStream())
        throw UsageError("no directory server is set (the preference tunerServer, or --server URL)");
    auto bookmark = item->bookmark(server, failure);
    if (!bookmark) {
        std::fprintf(stderr, "quillon: %s\n", failure.c_str());
        return nullptr;
    }
    if (item->hasDirectStream() && item->resourceNum()) {
        click.clicks = std::make_unique<RadioBrowserClicks>(tuner->radioBrowserServer());
        click.station = *item->resourceNum();
    }
    return bookmark;
}

int runSave(const DirectoryArgs& args) {
    Click click;
    auto bookmark = entryBookmark(args, click);
    if (!bookmark) return 1;
    OperationResult result = DirectoryOperations::saveBookmark(*bookmark, args.name, args.force);
    if (result.ok()) {
        click.count();
        click.finish();
    }
    if (!result.ok()) {
        std::fprintf(stderr, "quillon: %s\n", result.error.c_str());
        return result.status == OperationResult::Status::BadInput ? 2 : 1;
    }
    if (args.json)
        std::printf("%s\n", result.value.dump(2).c_str());
    else
        std::printf("Saved bookmark %s\n", printable(result.value.value("file", std::string())).c_str());
    return 0;
}

int runRecordEntry(const DirectoryArgs& args) {
    Click click;  // sent while recording, finished at the end
    auto bookmark = entryBookmark(args, click);
    if (!bookmark) return 1;
    RecordOptions options;
    if (!args.duration.empty()) {
        options.seconds = parseDuration(args.duration);
        if (!options.seconds) throw UsageError("not a duration: " + args.duration);
    }
    options.folder = args.folder.empty() ? RecordSession::defaultFolder() : args.folder;
    options.statusLine = !args.quiet;
    std::fprintf(stderr, "Recording %s (%s:%s%s) into %s\n", printable(bookmark->name().value_or("")).c_str(),
                 printable(bookmark->host().value_or("")).c_str(),
                 printable(bookmark->port().value_or("")).c_str(), printable(bookmark->path()).c_str(),
                 options.folder.c_str());
    RecordSession session(options);
    click.count();
    const int status = session.run(*bookmark);
    click.finish();
    return status;
}

void addCommon(CLI::App* cmd, const std::shared_ptr<DirectoryArgs>& args) {
    cmd->add_option(
        "--server", args->server,
        "The directory server's base address, e.g. http://127.0.0.1:8000 (default: the preference "
        "tunerServer, which a successful update from a directory server sets; for Radio Browser "
        "radioBrowserServer, else a mirror chosen at random)");
}

void addFilters(CLI::App* cmd, const std::shared_ptr<DirectoryArgs>& args) {
    cmd->add_option("--min-kbps", args->minKbps, "Only streams of at least this bit rate")
        ->capture_default_str();
    cmd->add_option("--max-kbps", args->maxKbps, "Only streams of at most this bit rate")
        ->capture_default_str();
    cmd->add_flag("--json", args->json, "Print JSON");
}

}  // namespace

void addDirectoryCommand(CLI::App& app, CommandRunner& runner) {
    auto args = std::make_shared<DirectoryArgs>();
    CLI::App* cmd = app.add_subcommand("directory", "Browse, update and record the station directory");
    cmd->require_subcommand(1);

    CLI::App* update = cmd->add_subcommand(
        "update", "Download the directory when the server has a newer one, or from Radio Browser");
    addCommon(update, args);
    update
        ->add_option("--source", args->source,
                     "server (the directory server) or radio-browser (default: the last update's source, "
                     "the preference tunerSource)")
        ->check(CLI::IsMember({"server", "radio-browser"}));
    update->add_flag("--all-codecs", args->allCodecs,
                     "Radio Browser: keep streams of every codec, each noting its codec (default: MP3 only)");
    update->callback([args, &runner] { runner = [args] { return runUpdate(*args); }; });

    CLI::App* list = cmd->add_subcommand("list", "Show the genres and their streams");
    addCommon(list, args);
    addFilters(list, args);
    list->callback([args, &runner] { runner = [args] { return showTree(*args, {}); }; });

    CLI::App* search =
        cmd->add_subcommand("search", "Show the streams whose name and description hold the words");
    search->add_option("words", args->words, "The words, searched as one text")->required();
    addCommon(search, args);
    addFilters(search, args);
    search->callback([args, &runner] { runner = [args] { return showTree(*args, args->words); }; });

    CLI::App* record = cmd->add_subcommand("record", "Record a directory entry in the foreground");
    record->add_option("entry", args->words, "The entry: its id, Genre/Name or name")->required();
    addCommon(record, args);
    record->add_option("--for", args->duration, "Stop after this long: 90s, 5m, 2h or plain seconds");
    record->add_option("--to", args->folder, "Recordings folder for this run");
    record->add_flag("-q,--quiet", args->quiet, "No live status line");
    record->callback([args, &runner] { runner = [args] { return runRecordEntry(*args); }; });

    CLI::App* save = cmd->add_subcommand("save", "Save a directory entry as a bookmark");
    save->add_option("entry", args->words, "The entry: its id, Genre/Name or name")->required();
    addCommon(save, args);
    save->add_option("--name", args->name, "The bookmark's name (default: the entry's)");
    save->add_flag("--force", args->force, "Replace a bookmark of that name");
    save->add_flag("--json", args->json, "Print the bookmark as JSON");
    save->callback([args, &runner] { runner = [args] { return runSave(*args); }; });
}

}  // namespace quillon
