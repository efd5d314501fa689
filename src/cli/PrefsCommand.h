#pragma once
// `quillon prefs list|get|set`: the settings of the preferences file. States
// are shown and set as YES or NO; `set` saves the file. Runs on the process's
// main thread.
#include "cli/Command.h"

namespace quillon {

void addPrefsCommand(CLI::App& app, CommandRunner& runner);

}  // namespace quillon
