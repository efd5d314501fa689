#pragma once
// `quillon open FILE.qlnbk`: opens a bookmark file as a double click would: a
// connection in the running daemon, or, without one, a recording in this
// process exactly as `quillon record FILE.qlnbk`. Runs on the process's main
// thread.
#include "cli/Command.h"

namespace quillon {

void addOpenCommand(CLI::App& app, CommandRunner& runner);

}  // namespace quillon
