#include "cli/CommandLine.h"

#include <CLI/CLI.hpp>

#include <cstdio>

#include "cli/BookmarkCommand.h"
#include "cli/Command.h"
#include "cli/DemoCommand.h"
#include "cli/DirectoryCommand.h"
#include "cli/HistoryCommand.h"
#include "cli/LibraryCommand.h"
#include "cli/MailCommand.h"
#include "cli/OpenCommand.h"
#include "cli/PlaylistFetchCommand.h"
#include "cli/PrefsCommand.h"
#include "cli/RecordCommand.h"
#include "cli/ScheduleCommand.h"
#include "cli/ServeCommand.h"
#include "cli/StationCommand.h"
#include "cli/StatusCommand.h"
#include "cli/StopCommand.h"
#include "cli/UiCommand.h"
#include "platform/Log.h"

namespace quillon {

int runCommandLine(int argc, char** argv) {
    CLI::App app{"Quillon records internet radio: one tagged MP3 file per track."};
    app.require_subcommand(0, 1);
    app.fallthrough();  // --verbose also after the command
    bool verbose = false;
    app.add_flag("-v,--verbose", verbose, "Show the system log on stderr");
    app.footer("Run 'quillon COMMAND --help' for the options of a command.");
    CommandRunner runner;
    addRecordCommand(app, runner);
    addDemoCommand(app, runner);
    addStationCommand(app, runner);
    addPlaylistFetchCommand(app, runner);
    addDirectoryCommand(app, runner);
    addBookmarkCommand(app, runner);
    addPrefsCommand(app, runner);
    addHistoryCommand(app, runner);
    addScheduleCommand(app, runner);
    addMailCommand(app, runner);
    addServeCommand(app, runner);
    addStatusCommand(app, runner);
    addStopCommand(app, runner);
    addOpenCommand(app, runner);
    addUiCommand(app, runner);
    addLibraryCommand(app, runner);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return app.exit(e);
        std::fprintf(stderr, "quillon: %s\n", e.what());
        return 2;
    }
    Log::setVerbose(verbose);
    if (runner) {
        try {
            return runner();
        } catch (const UsageError& e) {
            std::fprintf(stderr, "quillon: %s\n", e.what());
            return 2;
        }
    }
    if (app.get_subcommands().empty()) {
        std::fputs(app.help().c_str(), stdout);
    }
    return 0;
}

}  // namespace quillon
