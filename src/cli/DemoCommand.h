#pragma once
#include "cli/Command.h"

namespace quillon {

// quillon demo: records the built-in station until three tracks are finished and
// shows the files with their tags. Needs no network beyond loopback.
void addDemoCommand(CLI::App& app, CommandRunner& runner);

}  // namespace quillon
