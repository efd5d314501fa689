#pragma once
#include <optional>
#include <string_view>

#include "cli/Command.h"

namespace quillon {

// quillon record LOCATION|BOOKMARK... [--for DURATION] [--relay-only] [--listen] [--to FOLDER]
void addRecordCommand(CLI::App& app, CommandRunner& runner);

// "90s", "5m", "2h" or plain seconds; nothing for anything else.
std::optional<double> parseDuration(std::string_view text);

}  // namespace quillon
