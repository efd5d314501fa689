#pragma once
// `quillon stop ID|NAME|--all`: stops connections of the running daemon, one by
// its id or name as `quillon status` lists them, or all of them. Runs on the
// process's main thread.
#include "cli/Command.h"

namespace quillon {

void addStopCommand(CLI::App& app, CommandRunner& runner);

}  // namespace quillon
