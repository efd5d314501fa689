#include "cli/BookmarkCommand.h"

#include "cli/LocationBookmark.h"

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>

#include "platform/Home.h"
#include "platform/Localization.h"
#include "platform/TextUtil.h"
#include "platform/Timing.h"
#include "store/Bookmark.h"
#include "store/BookmarkFolder.h"
#include "store/BookmarkLocator.h"
#include "store/Url.h"

namespace quillon {

namespace {

struct BookmarkArgs {
    std::string location;
    std::string name;
    bool force = false;
    bool json = false;
};

// The bookmarks folder, or a message on stderr and nothing.
std::optional<std::string> bookmarksFolderOrComplain() {
    auto folder = BookmarkFolder::folder();
    if (folder) return folder;
    auto stored = BookmarkFolder::storedFolder();
    std::string text = localized(BookmarkFolder::kInvalidFolderMessage,
                                 "The bookmarks folder cannot be found. Please choose another one.");
    std::fprintf(stderr, "quillon: %s (%s)\n", text.c_str(),
                 stored.value_or(BookmarkFolder::defaultFolder()).c_str());
    return std::nullopt;
}

// A bookmark name as given on the command line, relative to the folder; groups
// are sub-folders ("Talk/News"). Never leaves the folder.
std::string checkedName(std::string name) {
    if (endsWith(name, std::string(".") + Bookmark::kFileExtension)) {
        name.resize(name.size() - std::string_view(Bookmark::kFileExtension).size() - 1);
    }
    if (name.empty()) throw UsageError("the bookmark name is empty");
    std::filesystem::path p(name);
    if (p.is_absolute()) throw UsageError("give the bookmark's name, not a path: " + name);
    for (const auto& part : p) {
        if (part == "..") throw UsageError("the bookmark name must not contain '..': " + name);
    }
    return name;
}

nlohmann::json record(const Bookmark& b, const std::string& file) {
    nlohmann::json j;
    j["name"] = b.name().value_or("");
    j["host"] = b.host().value_or("");
    j["port"] = b.port().value_or("");
    j["path"] = b.path();
    j["user"] = b.user().value_or("");
    j["hasPassword"] = !b.pass().value_or("").empty();
    j["genre"] = b.genre();
    j["separator"] = b.separator().value_or("");
    j["clean"] = b.clean();
    j["noSplit"] = b.noSplit();
    j["sortArtists"] = b.sortArtists();
    j["trackNum"] = b.trackNum();
    j["recOffset"] = b.recOffset();
    j["file"] = file;
    return j;
}

void printRecord(const nlohmann::json& j) {
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
    auto folder = bookmarksFolderOrComplain();
    if (!folder) return 1;
    std::string failure;
    auto bookmark = bookmarkFromLocation(args.location, args.name, failure);
    if (!bookmark) {
        std::fprintf(stderr, "quillon: %s\n", failure.c_str());
        return 1;
    }

    std::string file = bookmark->pathInFolder(*folder);
    if (fileExists(file) && !args.force) {
        std::fprintf(stderr, "quillon: a bookmark named \"%s\" exists already (use --force to replace it)\n",
                     bookmark->name().value_or("").c_str());
        return 1;
    }
    if (!bookmark->saveToFile(*folder)) {
        std::fprintf(stderr, "quillon: cannot write %s\n", file.c_str());
        return 1;
    }
    if (args.json) {
        std::printf("%s\n", record(*bookmark, file).dump(2).c_str());
    } else {
        std::printf("%s\n", file.c_str());
    }
    return 0;
}

int runList(const BookmarkArgs& args) {
    auto folder = bookmarksFolderOrComplain();
    if (!folder) return 1;
    nlohmann::json list = nlohmann::json::array();
    for (const std::string& name : BookmarkFolder::bookmarkNames(*folder)) {
        std::string file = BookmarkFolder::pathForName(*folder, name);
        Bookmark b;
        if (!b.loadFromFile(file)) {
            std::fprintf(stderr, "quillon: cannot read %s\n", file.c_str());
            continue;
        }
        if (args.json) {
            nlohmann::json j = record(b, file);
            j["entry"] = name;
            list.push_back(j);
        } else {
            std::printf("%s\t%s:%s%s\n", printable(name).c_str(), printable(b.host().value_or("")).c_str(),
                        printable(b.port().value_or("")).c_str(), printable(b.path()).c_str());
        }
    }
    if (args.json) std::printf("%s\n", list.dump(2).c_str());
    return 0;
}

int runShow(const BookmarkArgs& args) {
    std::string name = checkedName(args.name);
    auto folder = bookmarksFolderOrComplain();
    if (!folder) return 1;
    std::string file = BookmarkFolder::pathForName(*folder, name);
    Bookmark b;
    if (!b.loadFromFile(file)) {
        std::fprintf(stderr, "quillon: no bookmark named \"%s\" in %s\n", name.c_str(), folder->c_str());
        return 1;
    }
    nlohmann::json j = record(b, file);
    if (args.json) {
        std::printf("%s\n", j.dump(2).c_str());
    } else {
        printRecord(j);
    }
    return 0;
}

int runRemove(const BookmarkArgs& args) {
    std::string name = checkedName(args.name);
    auto folder = bookmarksFolderOrComplain();
    if (!folder) return 1;
    std::string file = BookmarkFolder::pathForName(*folder, name);
    std::error_code ec;
    if (!std::filesystem::is_regular_file(file, ec)) {
        std::fprintf(stderr, "quillon: no bookmark named \"%s\" in %s\n", name.c_str(), folder->c_str());
        return 1;
    }
    if (!std::filesystem::remove(file, ec) || ec) {
        std::fprintf(stderr, "quillon: cannot remove %s: %s\n", file.c_str(), ec.message().c_str());
        return 1;
    }
    std::printf("Removed %s\n", file.c_str());
    return 0;
}

}  // namespace

void addBookmarkCommand(CLI::App& app, CommandRunner& runner) {
    auto args = std::make_shared<BookmarkArgs>();
    CLI::App* cmd = app.add_subcommand("bookmark", "Add, list, show or remove saved streams (bookmarks)");
    cmd->require_subcommand(1);

    CLI::App* add =
        cmd->add_subcommand("add", "Make a bookmark from a stream URL, a playlist URL or a playlist file");
    add->add_option("location", args->location, "Stream URL, playlist URL, or local .pls/.m3u file")
        ->required();
    add->add_option("--name", args->name, "Name of the bookmark (default: the name the location gives)");
    add->add_flag("--force", args->force, "Replace a bookmark of the same name");
    add->add_flag("--json", args->json, "Print the saved bookmark as JSON");
    add->callback([args, &runner] { runner = [args] { return runAdd(*args); }; });

    CLI::App* list = cmd->add_subcommand("list", "List the bookmarks of the bookmarks folder");
    list->add_flag("--json", args->json, "Print the list as JSON");
    list->callback([args, &runner] { runner = [args] { return runList(*args); }; });

    CLI::App* show = cmd->add_subcommand("show", "Show one bookmark");
    show->add_option("name", args->name, "Bookmark name (as listed)")->required();
    show->add_flag("--json", args->json, "Print the bookmark as JSON");
    show->callback([args, &runner] { runner = [args] { return runShow(*args); }; });

    CLI::App* rm = cmd->add_subcommand("rm", "Remove one bookmark file");
    rm->add_option("name", args->name, "Bookmark name (as listed)")->required();
    rm->callback([args, &runner] { runner = [args] { return runRemove(*args); }; });
}

}  // namespace quillon
