#pragma once
// `quillon mail test [--server HOST:PORT --from ADDRESS --to ADDRESS
// --user U --password-file F]`: sends one test notice and says whether the
// server took it. Options given replace the mail settings of the
// preferences, which supply the rest. Runs on the process's main thread and
// blocks it for the dialogue; no daemon is involved.
#include "cli/Command.h"

namespace quillon {

void addMailCommand(CLI::App& app, CommandRunner& runner);

}  // namespace quillon
