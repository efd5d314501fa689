#include "cli/BookmarkCommand.h"

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "app/BookmarkOperations.h"
#include "app/LocationBookmark.h"
#include "cli/BookmarkOptions.h"
#include "cli/DaemonCalls.h"
#include "platform/TextUtil.h"
#include "store/Bookmark.h"

namespace quillon {

namespace {

struct BookmarkArgs {
    std::string location;
    std::string name;
    BookmarkOptions options;
    bool force = false;
    bool json = false;
};

// An operation's outcome on the terminal: bad input, an unknown bookmark and
// a name that is taken exit 2, a failure 1, after saying why.
bool failed(const OperationResult& result) {
    using Status = OperationResult::Status;
    if (result.status == Status::BadInput || result.status == Status::NotFound ||
        result.status == Status::Conflict)
        throw UsageError(result.error);
    if (result.status == Status::Failed) std::fprintf(stderr, "quillon: %s\n", result.error.c_str());
    return !result.ok();
}

void printRecord(const nlohmann::json& j, bool json) {
    if (json) {
        std::printf("%s\n", j.dump(2).c_str());
        return;
    }
    for (const auto& [key, value] : j.items()) {
        std::string text;
        if (value.is_string()) {
            text = value.get<std::string>();
        } else if (value.is_boolean()) {
            text = value.get<bool>() ? "YES" : "NO";
        } else {
            text = value.dump();
        }
        std::printf("%s: %s\n", key.c_str(), printable(text).c_str());
    }
}

int runAdd(const BookmarkArgs& args) {
    BookmarkChanges changes = args.options.changes();
    std::optional<DaemonClient> daemon;
    if (!findDaemonForChanges(daemon)) return 1;
    OperationResult result;
    if (daemon) {
        nlohmann::json body = changes.toJson();
        // The daemon works in a folder of its own: a local playlist goes by its full path.
        body["location"] = isRemoteLocation(args.location) || args.location.empty()
                               ? args.location
                               : std::filesystem::absolute(args.location).lexically_normal().string();
        body["force"] = args.force;
        result = resultOf(daemon->request("POST", "/api/bookmarks", body));
    } else {
        std::string failure;
        auto bookmark = bookmarkFromLocation(args.location, changes.name.value_or(""), failure);
        result = bookmark ? BookmarkOperations::add(*bookmark, changes, args.force)
                          : OperationResult::failure(OperationResult::Status::Failed, failure);
    }
    if (failed(result)) return 1;
    if (args.json) {
        printRecord(result.value, true);
    } else {
        std::printf("%s\n", result.value["file"].get<std::string>().c_str());
    }
    return 0;
}

int runEdit(const BookmarkArgs& args) {
    BookmarkChanges changes = args.options.changes();
    std::string name = BookmarkOperations::checkedName(args.name);
    std::optional<DaemonClient> daemon;
    if (!findDaemonForChanges(daemon)) return 1;
    OperationResult result;
    if (daemon) {
        nlohmann::json body = changes.toJson();
        body["force"] = args.force;
        result = resultOf(daemon->request("PUT", "/api/bookmarks/" + name, body));
    } else {
        result = BookmarkOperations::edit(name, changes, args.force);
    }
    if (failed(result)) return 1;
    if (!result.value.value("changed", true))
        std::fprintf(stderr, "Nothing changed in %s\n", result.value["file"].get<std::string>().c_str());
    result.value.erase("changed");
    printRecord(result.value, args.json);
    return 0;
}

int runList(const BookmarkArgs& args) {
    OperationResult result = BookmarkOperations::list();
    if (failed(result)) return 1;
    if (args.json) {
        std::printf("%s\n", result.value.dump(2).c_str());
        return 0;
    }
    for (const auto& b : result.value) {
        std::printf("%s\t%s:%s%s\n", printable(b["entry"].get<std::string>()).c_str(),
                    printable(b["host"].get<std::string>()).c_str(),
                    printable(b["port"].get<std::string>()).c_str(),
                    printable(b["path"].get<std::string>()).c_str());
    }
    return 0;
}

int runShow(const BookmarkArgs& args) {
    OperationResult result = BookmarkOperations::show(args.name);
    if (failed(result)) return 1;
    printRecord(result.value, args.json);
    return 0;
}

int runRemove(const BookmarkArgs& args) {
    std::string name = BookmarkOperations::checkedName(args.name);
    std::optional<DaemonClient> daemon;
    if (!findDaemonForChanges(daemon)) return 1;
    OperationResult result = daemon ? resultOf(daemon->request("DELETE", "/api/bookmarks/" + name))
                                    : BookmarkOperations::remove(name);
    if (failed(result)) return 1;
    std::printf("Removed %s\n", result.value["file"].get<std::string>().c_str());
    return 0;
}

}  // namespace

void addBookmarkCommand(CLI::App& app, CommandRunner& runner) {
    auto args = std::make_shared<BookmarkArgs>();
    CLI::App* cmd =
        app.add_subcommand("bookmark", "Add, edit, list, show or remove saved streams (bookmarks)");
    cmd->require_subcommand(1);
    const char* badInput = "Exits 2 with a one-line reason on bad input.";

    CLI::App* add =
        cmd->add_subcommand("add", "Make a bookmark from a stream URL, a playlist URL or a playlist file");
    add->add_option("location", args->location, "Stream URL, playlist URL, or local .pls/.m3u file")
        ->required();
    args->options.addTo(*add, "Name of the bookmark and its file (default: the name the location gives)");
    add->add_flag("--force", args->force, "Replace a bookmark of the same name");
    add->add_flag("--json", args->json, "Print the saved bookmark as JSON");
    add->footer(std::string("Prints the saved file. ") + badInput);
    add->callback([args, &runner] { runner = [args] { return runAdd(*args); }; });

    CLI::App* edit = cmd->add_subcommand("edit", "Change the recording options or the name of a bookmark");
    edit->add_option("name", args->name, "Bookmark name (as listed, or as given to --name)")->required();
    args->options.addTo(*edit, "Rename the bookmark and its file (in the same group)");
    edit->add_flag("--force", args->force, "Let --name replace another bookmark of that name");
    edit->add_flag("--json", args->json, "Print the bookmark as JSON");
    edit->footer(
        std::string("Options not given stay as they are; without any, the bookmark is shown as it is.\n") +
        badInput);
    edit->callback([args, &runner] { runner = [args] { return runEdit(*args); }; });

    CLI::App* list = cmd->add_subcommand("list", "List the bookmarks of the bookmarks folder");
    list->add_flag("--json", args->json, "Print the list as JSON");
    list->callback([args, &runner] { runner = [args] { return runList(*args); }; });

    CLI::App* show = cmd->add_subcommand("show", "Show one bookmark");
    show->add_option("name", args->name, "Bookmark name (as listed, or as given to --name)")->required();
    show->add_flag("--json", args->json, "Print the bookmark as JSON");
    show->callback([args, &runner] { runner = [args] { return runShow(*args); }; });

    CLI::App* rm = cmd->add_subcommand("rm", "Remove one bookmark file");
    rm->add_option("name", args->name, "Bookmark name (as listed, or as given to --name)")->required();
    rm->callback([args, &runner] { runner = [args] { return runRemove(*args); }; });
}

}  // namespace quillon
