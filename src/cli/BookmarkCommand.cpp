#include "cli/BookmarkCommand.h"

#include "app/LocationBookmark.h"
#include "cli/BookmarkOptions.h"

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
#include "store/Bookmark.h"
#include "store/BookmarkFolder.h"

namespace quillon {

namespace {

struct BookmarkArgs {
    std::string location;
    std::string name;
    BookmarkOptions options;
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

// The file of the saved bookmark `name` (as checkedName gives it).
std::string existingBookmarkFile(const std::string& folder, const std::string& name) {
    auto file = BookmarkFolder::fileForName(folder, name);
    if (!file) throw UsageError("no bookmark named \"" + name + "\" in " + folder);
    return *file;
}

std::shared_ptr<Bookmark> loadedBookmark(const std::string& file) {
    auto b = Bookmark::bookmark();
    if (!b->loadFromFile(file)) throw UsageError("not a bookmark file: " + file);
    return b;
}

// Writes the bookmark as `file`. A file already there is replaced only when
// `replace` is set: another bookmark is never lost to a name that happens to
// be taken.
bool saveBookmark(Bookmark& b, const std::string& file, bool replace) {
    WriteResult result = WriteResult::Written;
    if (replace) {
        b.setFilePath(file);
        if (!b.saveToFile()) result = WriteResult::Failed;
    } else {
        result = b.saveToNewFile(file);
    }
    if (result == WriteResult::Exists) {
        throw UsageError("a bookmark named \"" + b.name().value_or("") +
                         "\" exists already (use --force to replace it)");
    }
    if (result == WriteResult::Failed) {
        std::fprintf(stderr, "quillon: cannot write %s\n", file.c_str());
        return false;
    }
    return true;
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
    j["titleEncoding"] = b.titleEncoding();
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

void printBookmark(const Bookmark& b, const std::string& file, bool json) {
    nlohmann::json j = record(b, file);
    if (json) {
        std::printf("%s\n", j.dump(2).c_str());
    } else {
        printRecord(j);
    }
}

int runAdd(const BookmarkArgs& args) {
    args.options.check();
    auto folder = bookmarksFolderOrComplain();
    if (!folder) return 1;
    std::string failure;
    auto bookmark = bookmarkFromLocation(args.location, args.options.name().value_or(""), failure);
    if (!bookmark) {
        std::fprintf(stderr, "quillon: %s\n", failure.c_str());
        return 1;
    }
    args.options.applyTo(*bookmark);

    std::string file = bookmark->pathInFolder(*folder);
    if (!saveBookmark(*bookmark, file, args.force)) return 1;
    if (args.json) {
        std::printf("%s\n", record(*bookmark, file).dump(2).c_str());
    } else {
        std::printf("%s\n", file.c_str());
    }
    return 0;
}

int runEdit(const BookmarkArgs& args) {
    args.options.check();
    std::string name = checkedName(args.name);
    auto folder = bookmarksFolderOrComplain();
    if (!folder) return 1;
    std::string file = existingBookmarkFile(*folder, name);
    auto loaded = loadedBookmark(file);
    Bookmark& b = *loaded;
    const auto before = b.container();
    args.options.applyTo(b);
    // A new name moves the file within its group.
    std::string target =
        args.options.name() ? b.pathInFolder(std::filesystem::path(file).parent_path().string()) : file;
    if (target == file && b.container() == before) {
        std::fprintf(stderr, "Nothing changed in %s\n", file.c_str());
        printBookmark(b, file, args.json);
        return 0;
    }
    if (!saveBookmark(b, target, target == file || args.force)) return 1;
    if (target != file) {
        std::error_code ec;
        if (!std::filesystem::remove(file, ec) || ec) {
            std::fprintf(stderr, "quillon: saved as %s, but cannot remove %s: %s\n", target.c_str(),
                         file.c_str(), ec.message().c_str());
            return 1;
        }
    }
    printBookmark(b, target, args.json);
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
    std::string file = existingBookmarkFile(*folder, name);
    printBookmark(*loadedBookmark(file), file, args.json);
    return 0;
}

int runRemove(const BookmarkArgs& args) {
    std::string name = checkedName(args.name);
    auto folder = bookmarksFolderOrComplain();
    if (!folder) return 1;
    std::string file = existingBookmarkFile(*folder, name);
    std::error_code ec;
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
