#include "cli/StatusCommand.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>

#include "cli/DaemonCalls.h"
#include "platform/InterruptWatcher.h"

namespace quillon {

namespace {

struct StatusArgs {
    bool json = false;
    bool watch = false;
};

// The list as printed; empty on failure, after saying why.
std::optional<std::string> activityText(const DaemonClient& daemon, bool json) {
    DaemonClient::Reply reply = daemon.request("GET", "/api/activity");
    if (!reply.ok()) {
        std::fprintf(stderr, "quillon: %s\n", reply.error.c_str());
        return std::nullopt;
    }
    if (json) return reply.body.dump(2) + "\n";
    const auto rows =
        reply.body.is_object() ? reply.body.value("rows", nlohmann::json::array()) : nlohmann::json::array();
    if (!rows.is_array() || rows.empty()) return std::string("No connections.\n");
    std::string out = rowColumnsHeader() + "\n";
    for (const auto& row : rows) out += rowColumns(row) + "\n";
    return out;
}

int watch(const DaemonClient& daemon, bool json) {
    const bool terminal = ::isatty(STDOUT_FILENO) == 1;
    // Ctrl-C only sets the flag; the event reader looks at it at each event and
    // at least once a second, so the command ends within a second.
    InterruptWatcher interrupts([] {});
    std::string shown;
    auto draw = [&] {
        auto text = activityText(daemon, json);
        if (!text) return false;
        // On a terminal the list replaces the one before; elsewhere each
        // changed one follows, so a log of it holds changes only.
        if (!terminal && *text == shown) return true;
        shown = *text;
        std::fputs(terminal ? "\x1b[H\x1b[2J" : "\n", stdout);
        std::fputs(text->c_str(), stdout);
        std::fflush(stdout);
        return true;
    };
    if (!draw()) return 1;
    auto drawn = std::chrono::steady_clock::now();
    while (!interrupts.interrupted()) {
        bool failed = false;
        DaemonClient::Reply reply = daemon.stream(
            "/api/events",
            [&](const std::string&) {
                if (interrupts.interrupted()) return false;
                failed = !draw();
                drawn = std::chrono::steady_clock::now();
                return !failed;
            },
            1);
        if (failed) return 1;
        if (interrupts.interrupted()) break;
        // A quiet second ends the read (a time-out, not a failure): draw, read on.
        // A daemon that went away is a failure, which the next draw reports.
        if (std::chrono::steady_clock::now() - drawn >= std::chrono::seconds(1)) {
            if (!draw()) return 1;
            drawn = std::chrono::steady_clock::now();
        } else if (!reply.ok() && !DaemonClient::find().client) {
            std::fprintf(stderr, "quillon: %s\n", reply.error.c_str());
            return 1;
        }
    }
    return 0;
}

int runStatus(const StatusArgs& args) {
    auto daemon = requireDaemon();
    if (!daemon) return 1;
    if (args.watch) return watch(*daemon, args.json);
    auto text = activityText(*daemon, args.json);
    if (!text) return 1;
    std::fputs(text->c_str(), stdout);
    return 0;
}

}  // namespace

void addStatusCommand(CLI::App& app, CommandRunner& runner) {
    auto args = std::make_shared<StatusArgs>();
    CLI::App* cmd = app.add_subcommand("status", "Show the connections of the running daemon");
    cmd->add_flag("--json", args->json, "Print the activity list as the API gives it (GET /api/activity)");
    cmd->add_flag("--watch", args->watch,
                  "Redraw the list at each change, at least once a second, until Ctrl-C");
    cmd->footer(
        "One line per connection: its id (for quillon stop), name, status, the data received so far and\n"
        "its relay port. Exits 1 when no daemon runs (start it with: quillon serve).");
    cmd->callback([args, &runner] { runner = [args] { return runStatus(*args); }; });
}

}  // namespace quillon
