#include "cli/BookmarkOptions.h"

#include <fmt/format.h>

#include "engine/TitleEncoding.h"
#include "platform/TextUtil.h"
#include "store/Bookmark.h"

namespace quillon {

namespace {

// --on and --off for one setting. Giving both is refused (by check()).
void addSwitch(CLI::App& command, const std::string& on, const std::string& off, std::optional<bool>& result,
               std::string& conflict, const std::string& onHelp, const std::string& offHelp) {
    auto set = [&result, &conflict, on, off](bool value) {
        if (result && *result != value) conflict = on + " and " + off + " contradict each other";
        result = value;
    };
    command.add_flag_callback(
        on, [set] { set(true); }, onHelp);
    command.add_flag_callback(
        off, [set] { set(false); }, offHelp);
}

void addText(CLI::App& command, const std::string& flag, const std::string& typeName,
             std::optional<std::string>& result, const std::string& help) {
    command
        .add_option_function<std::string>(
            flag, [&result](const std::string& value) { result = value; }, help)
        ->type_name(typeName);
}

}  // namespace

void BookmarkOptions::addTo(CLI::App& command, const std::string& nameHelp) {
    addText(command, "--name", "TEXT", name_,
            nameHelp +
                ". Latin-1 only (Café is fine, Cyrillic or emoji are refused); characters other "
                "than letters and digits become spaces");
    addSwitch(command, "--track-numbers", "--no-track-numbers", trackNum_, conflict_,
              "Begin each recorded file name with a running track number",
              "Recorded file names without a track number (default)");
    addSwitch(command, "--artist-folders", "--no-artist-folders", sortArtists_, conflict_,
              "File each track into a folder named after its artist (the title's text before the separator)",
              "Keep the tracks out of artist folders (default)");
    addSwitch(command, "--clean", "--no-clean", clean_, conflict_,
              "Reduce recorded file names to plain letters",
              "Keep recorded file names as the titles give them (default)");
    addSwitch(command, "--no-split", "--split", noSplit_, conflict_,
              "Record into one file instead of cutting a new file at each title change",
              "Cut a new file at each title change (default)");
    addSwitch(command, "--allow-untrusted-certificate", "--require-trusted-certificate", allowUntrusted_,
              conflict_,
              "Record this https stream even when its server's certificate cannot be verified (the "
              "status then says so)",
              "Record this https stream only from a server whose certificate verifies (default)");
    addText(command, "--separator", "TEXT", separator_,
            "The text between artist and title in the stream's titles (default \" - \")");
    addText(command, "--genre", "TEXT", genre_,
            "Genre written into the tags and the history (default \"-\")");
    addText(command, "--offset", "SECONDS", offset_,
            fmt::format("Move each cut this many whole seconds later (negative: earlier), from {} to {} "
                        "(default 0)",
                        Bookmark::kMinRecOffset, Bookmark::kMaxRecOffset));
    addText(command, "--title-encoding", "ENCODING", titleEncoding_,
            "The encoding of the stream's titles: " + TitleEncoding::choices() +
                " (default auto: UTF-8 when valid, else Latin-1, CP1251 or CP1252 as the title looks)");
}

BookmarkChanges BookmarkOptions::changes() const {
    if (!conflict_.empty()) throw UsageError(conflict_);
    BookmarkChanges c;
    c.name = name_;
    c.separator = separator_;
    c.genre = genre_;
    c.trackNum = trackNum_;
    c.sortArtists = sortArtists_;
    c.clean = clean_;
    c.noSplit = noSplit_;
    c.allowUntrusted = allowUntrusted_;
    if (titleEncoding_ && !TitleEncoding::fromName(*titleEncoding_)) {
        throw UsageError("--title-encoding takes " + TitleEncoding::choices() + ", not '" + *titleEncoding_ +
                         "'");
    }
    c.titleEncoding = titleEncoding_;
    if (offset_) {
        const std::string& text = *offset_;
        std::string_view digits = text;
        if (!digits.empty() && (digits[0] == '-' || digits[0] == '+')) digits.remove_prefix(1);
        bool whole = !digits.empty() && digits.size() <= 9 &&
                     digits.find_first_not_of("0123456789") == std::string::npos;
        int value = whole ? intValue(text) : 0;
        if (!whole || value < Bookmark::kMinRecOffset || value > Bookmark::kMaxRecOffset) {
            throw UsageError(fmt::format("--offset takes whole seconds from {} to {}, not '{}'",
                                         Bookmark::kMinRecOffset, Bookmark::kMaxRecOffset, text));
        }
        c.recOffset = value;
    }
    c.check();
    return c;
}

}  // namespace quillon
