#pragma once
// `quillon station`: serves the built-in ICY test stream on 127.0.0.1 until
// SIGINT or SIGTERM. Runs on the process's main thread.
#include "cli/Command.h"

namespace quillon {

void addStationCommand(CLI::App& app, CommandRunner& runner);

}  // namespace quillon
