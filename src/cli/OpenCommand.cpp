#include "cli/OpenCommand.h"

#include <cstdio>
#include <filesystem>
#include <memory>

#include "cli/DaemonCalls.h"
#include "cli/RecordCommand.h"
#include "platform/TextUtil.h"

namespace quillon {

namespace {

int runOpen(const std::string& file) {
    if (!endsWith(file, ".qlnbk")) throw UsageError("not a bookmark file (.qlnbk): " + printable(file));
    DaemonLookup found = DaemonClient::find();
    if (!found.client && found.problem.empty()) {
        RecordArgs args;
        args.locations = {file};
        return recordInForeground(args);
    }
    if (!found.client) {
        std::fprintf(stderr, "quillon: %s\n", found.problem.c_str());
        return 1;
    }
    std::error_code error;
    // The daemon runs in a folder of its own.
    std::string path = std::filesystem::absolute(file, error).lexically_normal().string();
    DaemonClient::Reply reply = found.client->request("POST", "/api/open", {{"path", path}});
    if (!reply.ok()) {
        std::fprintf(stderr, "quillon: %s\n", reply.error.c_str());
        return reply.status == 400 || reply.status == 404 ? 2 : 1;
    }
    std::printf("%s\n", rowSummary("Started", reply.body).c_str());
    return 0;
}

}  // namespace

void addOpenCommand(CLI::App& app, CommandRunner& runner) {
    auto file = std::make_shared<std::string>();
    CLI::App* cmd =
        app.add_subcommand("open", "Open a bookmark file: in the running daemon, else record it here");
    cmd->add_option("file", *file, "A .qlnbk bookmark file")->required();
    cmd->footer(
        "While quillon serve runs, the connection starts there: one line, then exit 0. Otherwise it\n"
        "records in the foreground exactly as quillon record FILE.qlnbk (see quillon record --help).");
    cmd->callback([file, &runner] { runner = [file] { return runOpen(*file); }; });
}

}  // namespace quillon
