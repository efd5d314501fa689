#pragma once
// `quillon playlist-fetch FILE.m3u`: downloads the MP3 files an M3U playlist
// lists into the home folder, one after another, with a progress line. Stops
// at the first failure, naming the entry and the command that resumes there
// (--from). Runs on the process's main thread.
#include "cli/Command.h"

namespace quillon {

void addPlaylistFetchCommand(CLI::App& app, CommandRunner& runner);

}  // namespace quillon
