#include "cli/ServeCommand.h"

#include <cstdio>
#include <optional>

#include "app/ApiToken.h"
#include "app/Daemon.h"
#include "platform/InterruptWatcher.h"
#include "platform/Log.h"
#include "platform/MainLoop.h"

namespace quillon {

namespace {

int runServe(std::optional<int> port) {
    // A daemon's log is its only voice: stderr (the journal under systemd)
    // as well as the system log.
    Log::setVerbose(true);
    Log::setSyslog(true);
    MainLoop& loop = MainLoop::main();
    Daemon::Options options;
    if (port) options.port = static_cast<std::uint16_t>(*port);
    Daemon daemon(std::move(options));
    std::string failure;
    if (!daemon.start(failure)) {
        std::fprintf(stderr, "quillon: %s\n", failure.c_str());
        return 1;
    }
    std::printf("Quillon is running.\n");
    std::printf("  Web page: %s  (open it with: quillon ui)\n", daemon.pageUrl().c_str());
    std::printf("  API:      %sapi/  (token in %s)\n", daemon.pageUrl().c_str(), ApiToken::path().c_str());
    std::printf("Stop it with Ctrl-C.\n");
    // Whoever started the daemon learns from these lines that it answers; a
    // pipe would otherwise hold them until the daemon ends.
    std::fflush(stdout);
    InterruptWatcher interrupts([&loop] { loop.stop(); });
    loop.run();
    Log::info("Quillon stops");
    daemon.stop();
    return 0;
}

}  // namespace

void addServeCommand(CLI::App& app, CommandRunner& runner) {
    auto* cmd = app.add_subcommand(
        "serve", "Run Quillon as a daemon: recordings, schedules, history, web page and API");
    auto port = std::make_shared<std::optional<int>>();
    cmd->add_option("--port", *port, "The API's port on 127.0.0.1 (default: the preference webPort, 8642)")
        ->check(CLI::Range(1, 65535));
    cmd->footer(
        "The daemon owns the activity list, the schedules and the history; the other commands talk to it\n"
        "while it runs. It answers on 127.0.0.1 only (preference webAllInterfaces for every interface);\n"
        "every call needs the token of ~/Library/Preferences/quillon.token. See docs/API.md.");
    cmd->callback([&runner, port] { runner = [port] { return runServe(*port); }; });
}

}  // namespace quillon
