#pragma once
// `quillon history list|search|add|rm`: the recording history of the home
// folder, one file per day. `list` shows the days or one day's tracks, `search`
// the tracks whose name or station contains the words, `add` enters MP3 files by
// hand, `rm` deletes tracks ("DAY:N", N as listed) or whole days ("DAY") after
// asking on the terminal (or at once with --yes). Runs on the process's main
// thread.
#include "cli/Command.h"

namespace quillon {

void addHistoryCommand(CLI::App& app, CommandRunner& runner);

}  // namespace quillon
