#pragma once
// `quillon schedule add|list|rm|enable|disable|upcoming`: the schedule rules of
// the home folder's schedules file. `add` makes a weekly rule (--days, --at,
// --for) or a one-off rule (--from, --to, local time) for a saved bookmark
// (its name in the bookmarks folder or a .qlnbk file); rules are named by
// their id as `list` shows it. Every subcommand takes --json (field names in
// ScheduleOperations.h). Works on the file directly, through
// ScheduleOperations; runs on the process's main thread.
#include "cli/Command.h"

namespace quillon {

void addScheduleCommand(CLI::App& app, CommandRunner& runner);

}  // namespace quillon
