#pragma once
// `quillon ui [--print-only]`: asks the running daemon for a one-time login
// address of its web page, prints it and opens it in the browser. Runs on the
// process's main thread.
#include "cli/Command.h"

namespace quillon {

void addUiCommand(CLI::App& app, CommandRunner& runner);

}  // namespace quillon
