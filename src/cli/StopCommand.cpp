#include "cli/StopCommand.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "cli/DaemonCalls.h"
#include "platform/TextUtil.h"

namespace quillon {

namespace {

struct StopArgs {
    std::string which;
    bool all = false;
};

bool isId(const std::string& text) {
    return !text.empty() && text.size() <= 19 && text.find_first_not_of("0123456789") == std::string::npos;
}

// The ids of the rows named `name`; empty after saying why.
std::vector<std::string> idsNamed(const DaemonClient& daemon, const std::string& name) {
    DaemonClient::Reply reply = daemon.request("GET", "/api/activity");
    if (!reply.ok()) {
        std::fprintf(stderr, "quillon: %s\n", reply.error.c_str());
        return {};
    }
    std::vector<std::string> ids;
    const auto rows =
        reply.body.is_object() ? reply.body.value("rows", nlohmann::json::array()) : nlohmann::json::array();
    for (const auto& row : rows) {
        if (!row.is_object() || row.value("connName", std::string()) != name) continue;
        if (auto id = row.find("id"); id != row.end() && id->is_number_unsigned())
            ids.push_back(std::to_string(id->get<std::uint64_t>()));
    }
    if (ids.empty())
        std::fprintf(stderr, "quillon: no connection is named %s (see: quillon status)\n",
                     printable(name).c_str());
    return ids;
}

int runStop(const StopArgs& args) {
    if (args.all == !args.which.empty()) throw UsageError("name one connection (ID or NAME) or give --all");
    auto daemon = requireDaemon();
    if (!daemon) return 1;
    if (args.all) {
        DaemonClient::Reply reply =
            daemon->request("POST", "/api/activity/stop-all", nlohmann::json::object());
        if (!reply.ok()) {
            std::fprintf(stderr, "quillon: %s\n", reply.error.c_str());
            return 1;
        }
        std::printf("Stopped every connection.\n");
        return 0;
    }
    // An id first: names are chosen by the user and may be digits too, but
    // status shows every id.
    std::vector<std::string> ids = isId(args.which) ? std::vector{args.which} : idsNamed(*daemon, args.which);
    if (ids.empty()) return 1;
    int status = 0;
    for (const auto& id : ids) {
        DaemonClient::Reply reply =
            daemon->request("POST", "/api/activity/" + id + "/stop", nlohmann::json::object());
        if (!reply.ok()) {
            std::fprintf(stderr, "quillon: %s\n", reply.error.c_str());
            status = 1;
            continue;
        }
        std::printf("%s\n", rowSummary("Stopped", reply.body).c_str());
    }
    return status;
}

}  // namespace

void addStopCommand(CLI::App& app, CommandRunner& runner) {
    auto args = std::make_shared<StopArgs>();
    CLI::App* cmd = app.add_subcommand("stop", "Stop connections of the running daemon");
    cmd->add_option("connection", args->which, "The connection's id or name, as quillon status lists it");
    cmd->add_flag("--all", args->all, "Stop every connection");
    cmd->footer(
        "A name stops every connection of that name. What was received up to then is in the files.\n"
        "Exits 1 when no daemon runs (start it with: quillon serve) or no connection matches.");
    cmd->callback([args, &runner] { runner = [args] { return runStop(*args); }; });
}

}  // namespace quillon
