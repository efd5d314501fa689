#pragma once
// `quillon bookmark add|list|show|rm`: the bookmark files of the bookmarks
// folder. `add` makes a bookmark from a stream URL, a playlist URL or a local
// playlist file and saves it as NAME.qlnbk. Runs on the process's main thread
// (it runs the main loop while a location is fetched).
#include "cli/Command.h"

namespace quillon {

void addBookmarkCommand(CLI::App& app, CommandRunner& runner);

}  // namespace quillon
