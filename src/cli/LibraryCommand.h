#pragma once
// `quillon library test [FILE]`: hands a file (FILE, or a short generated MP3
// in the recordings folder) to the music library the preferences choose, the
// same way a finished track goes there, and says whether it arrived (exit 1
// when not). Runs on the process's main thread; the hand-off blocks it.
#include "cli/Command.h"

namespace quillon {

void addLibraryCommand(CLI::App& app, CommandRunner& runner);

}  // namespace quillon
