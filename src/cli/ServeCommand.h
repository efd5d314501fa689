#pragma once
// `quillon serve`: runs the application as a daemon in the foreground (the
// activity list, schedules, history, relay ports, the web page and its API)
// until SIGINT or SIGTERM. Logs go to stderr and the system log.
#include "cli/Command.h"

namespace quillon {

void addServeCommand(CLI::App& app, CommandRunner& runner);

}  // namespace quillon
