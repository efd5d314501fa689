#pragma once
// `quillon directory update|list|search|record|save`: the station directory
// from the command line, in this process. Runs on the process's main thread.
#include "cli/Command.h"

namespace quillon {

void addDirectoryCommand(CLI::App& app, CommandRunner& runner);

}  // namespace quillon
