#include "app/BookmarkOperations.h"

#include <filesystem>
#include <memory>
#include <optional>

#include "app/BadInput.h"
#include "platform/Localization.h"
#include "platform/Log.h"
#include "platform/TextUtil.h"
#include "store/Bookmark.h"
#include "store/BookmarkFolder.h"

namespace quillon {

namespace {

using Status = OperationResult::Status;

// The bookmarks folder, or the failure that says it cannot be found.
std::optional<std::string> bookmarksFolder(OperationResult& failure) {
    if (auto folder = BookmarkFolder::folder()) return folder;
    std::string text = localized(BookmarkFolder::kInvalidFolderMessage,
                                 "The bookmarks folder cannot be found. Please choose another one.");
    failure = OperationResult::failure(
        Status::Failed,
        text + " (" + BookmarkFolder::storedFolder().value_or(BookmarkFolder::defaultFolder()) + ")");
    return std::nullopt;
}

// The saved bookmark `name` and its file, or the failure.
struct Found {
    std::shared_ptr<Bookmark> bookmark;
    std::string file;
};
std::optional<Found> find(const std::string& given, OperationResult& failure) {
    std::string name;
    try {
        name = BookmarkOperations::checkedName(given);
    } catch (const BadInput& e) {
        failure = OperationResult::failure(Status::BadInput, e.what());
        return std::nullopt;
    }
    auto folder = bookmarksFolder(failure);
    if (!folder) return std::nullopt;
    auto file = BookmarkFolder::fileForName(*folder, name);
    if (!file) {
        failure =
            OperationResult::failure(Status::NotFound, "no bookmark named \"" + name + "\" in " + *folder);
        return std::nullopt;
    }
    auto b = Bookmark::bookmark();
    if (!b->loadFromFile(*file)) {
        failure = OperationResult::failure(Status::BadInput, "not a bookmark file: " + *file);
        return std::nullopt;
    }
    return Found{b, *file};
}

// Writes the bookmark as `file`. A file already there is replaced only when
// `replace` is set: another bookmark is never lost to a name that happens to
// be taken.
std::optional<OperationResult> save(Bookmark& b, const std::string& file, bool replace) {
    WriteResult result = WriteResult::Written;
    if (replace) {
        b.setFilePath(file);
        if (!b.saveToFile()) result = WriteResult::Failed;
    } else {
        result = b.saveToNewFile(file);
    }
    if (result == WriteResult::Exists) {
        return OperationResult::failure(
            Status::Conflict,
            "a bookmark named \"" + b.name().value_or("") + "\" exists already (use --force to replace it)");
    }
    if (result == WriteResult::Failed)
        return OperationResult::failure(Status::Failed, "cannot write " + file);
    return std::nullopt;
}

}  // namespace

std::string BookmarkOperations::checkedName(std::string name) {
    if (endsWith(name, std::string(".") + Bookmark::kFileExtension)) {
        name.resize(name.size() - std::string_view(Bookmark::kFileExtension).size() - 1);
    }
    if (name.empty()) throw BadInput("the bookmark name is empty");
    std::filesystem::path p(name);
    if (p.is_absolute()) throw BadInput("give the bookmark's name, not a path: " + name);
    for (const auto& part : p) {
        if (part == "..") throw BadInput("the bookmark name must not contain '..': " + name);
    }
    return name;
}

nlohmann::json BookmarkOperations::record(const Bookmark& b, const std::string& file) {
    return {{"name", b.name().value_or("")},
            {"host", b.host().value_or("")},
            {"port", b.port().value_or("")},
            {"path", b.path()},
            {"user", b.user().value_or("")},
            {"hasPassword", !b.pass().value_or("").empty()},
            {"genre", b.genre()},
            {"separator", b.separator().value_or("")},
            {"clean", b.clean()},
            {"noSplit", b.noSplit()},
            {"sortArtists", b.sortArtists()},
            {"trackNum", b.trackNum()},
            {"recOffset", b.recOffset()},
            {"titleEncoding", b.titleEncoding()},
            {"scheme", b.scheme()},
            {"allowUntrusted", b.allowUntrustedCertificate()},
            {"file", file}};
}

OperationResult BookmarkOperations::list() {
    OperationResult failure;
    auto folder = bookmarksFolder(failure);
    if (!folder) return failure;
    nlohmann::json list = nlohmann::json::array();
    for (const std::string& name : BookmarkFolder::bookmarkNames(*folder)) {
        std::string file = BookmarkFolder::pathForName(*folder, name);
        Bookmark b;
        if (!b.loadFromFile(file)) {
            Log::warn("cannot read the bookmark {}", file);
            continue;
        }
        nlohmann::json j = record(b, file);
        j["entry"] = name;
        j["group"] = std::filesystem::path(name).parent_path().string();
        list.push_back(std::move(j));
    }
    return OperationResult::done(std::move(list));
}

OperationResult BookmarkOperations::show(const std::string& name) {
    OperationResult failure;
    auto found = find(name, failure);
    if (!found) return failure;
    return OperationResult::done(record(*found->bookmark, found->file));
}

OperationResult BookmarkOperations::add(Bookmark& bookmark, const BookmarkChanges& changes, bool replace) {
    OperationResult failure;
    auto folder = bookmarksFolder(failure);
    if (!folder) return failure;
    changes.applyTo(bookmark);
    std::string file = bookmark.pathInFolder(*folder);
    if (auto failed = save(bookmark, file, replace)) return *failed;
    return OperationResult::done(record(bookmark, file));
}

OperationResult BookmarkOperations::edit(const std::string& name, const BookmarkChanges& changes,
                                         bool replace) {
    OperationResult failure;
    auto found = find(name, failure);
    if (!found) return failure;
    Bookmark& b = *found->bookmark;
    const std::string& file = found->file;
    const auto before = b.container();
    changes.applyTo(b);
    // A new name moves the file within its group.
    std::string target =
        changes.name ? b.pathInFolder(std::filesystem::path(file).parent_path().string()) : file;
    if (target == file && b.container() == before) {
        nlohmann::json j = record(b, file);
        j["changed"] = false;
        return OperationResult::done(std::move(j));
    }
    if (auto failed = save(b, target, target == file || replace)) return *failed;
    if (target != file) {
        std::error_code ec;
        if (!std::filesystem::remove(file, ec) || ec) {
            return OperationResult::failure(
                Status::Failed, "saved as " + target + ", but cannot remove " + file + ": " + ec.message());
        }
    }
    nlohmann::json j = record(b, target);
    j["changed"] = true;
    return OperationResult::done(std::move(j));
}

OperationResult BookmarkOperations::remove(const std::string& name) {
    OperationResult failure;
    auto found = find(name, failure);
    if (!found) return failure;
    std::error_code ec;
    if (!std::filesystem::remove(found->file, ec) || ec)
        return OperationResult::failure(Status::Failed, "cannot remove " + found->file + ": " + ec.message());
    return OperationResult::done({{"file", found->file}});
}

}  // namespace quillon
