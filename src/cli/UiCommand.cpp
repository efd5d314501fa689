#include "cli/UiCommand.h"

#include <cstdio>
#include <memory>

#include "cli/DaemonCalls.h"
#include "platform/Desktop.h"
#include "platform/TextUtil.h"

namespace quillon {

namespace {

int runUi(bool printOnly) {
    auto daemon = requireDaemon();
    if (!daemon) return 1;
    DaemonClient::Reply reply = daemon->request("POST", "/api/login-links", nlohmann::json::object());
    const auto* url = reply.ok() && reply.body.is_object() && reply.body.contains("url")
                          ? reply.body["url"].get_ptr<const std::string*>()
                          : nullptr;
    if (!url) {
        std::fprintf(stderr, "quillon: %s\n",
                     reply.ok() ? "quillon serve gave no login address" : reply.error.c_str());
        return 1;
    }
    // The address is handed to a shell command line below: only the daemon's own origin.
    if (!startsWith(*url, daemon->origin() + "/")) {
        std::fprintf(stderr, "quillon: quillon serve gave an unexpected login address: %s\n",
                     printable(*url).c_str());
        return 1;
    }
    std::printf("%s\n", url->c_str());
    std::fflush(stdout);
    if (printOnly) return 0;
    if (!Desktop::openWith("", *url)) {
        std::fprintf(stderr,
                     "quillon: could not start %s; open the address above in a browser (valid once, "
                     "for 60 seconds)\n",
                     Desktop::kOpenCommand);
        return 1;
    }
    return 0;
}

}  // namespace

void addUiCommand(CLI::App& app, CommandRunner& runner) {
    auto printOnly = std::make_shared<bool>(false);
    CLI::App* cmd = app.add_subcommand("ui", "Open the running daemon's web page in the browser");
    cmd->add_flag("--print,--print-only", *printOnly, "Print the login address without opening it");
    cmd->footer(
        "Prints a one-time login address (valid once, for 60 seconds) and opens it with xdg-open.\n"
        "Exits 1 when no daemon runs (start it with: quillon serve).");
    cmd->callback([printOnly, &runner] { runner = [printOnly] { return runUi(*printOnly); }; });
}

}  // namespace quillon
