#pragma once
// `quillon status [--json] [--watch]`: the running daemon's activity list, one
// line per connection, or the API's JSON; --watch redraws it at each event of
// the daemon and at least once a second until Ctrl-C. Runs on the process's
// main thread.
#include "cli/Command.h"

namespace quillon {

void addStatusCommand(CLI::App& app, CommandRunner& runner);

}  // namespace quillon
