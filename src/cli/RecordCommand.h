#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/Command.h"

namespace quillon {

// quillon record LOCATION|BOOKMARK... [--for DURATION] [--relay-only] [--listen] [--to FOLDER]
// [-q] [--foreground]: in the running daemon when there is one, else in this
// process until every connection ends. Runs on the process's main thread.
void addRecordCommand(CLI::App& app, CommandRunner& runner);

struct RecordArgs {
    std::vector<std::string> locations;
    std::string duration;
    std::string folder;
    bool relayOnly = false;
    bool listen = false;
    bool quiet = false;
    bool foreground = false;
    std::string titleEncoding;    // empty: each bookmark's own choice
    bool allowUntrusted = false;  // this run only
};

// Records in this process, whether or not a daemon runs, and returns the exit
// status of `quillon record`.
int recordInForeground(const RecordArgs& args);

// "90s", "5m", "2h" or plain seconds; nothing for anything else.
std::optional<double> parseDuration(std::string_view text);

}  // namespace quillon
