#include "cli/RecordCommand.h"

#include <cstdio>
#include <memory>
#include <vector>

#include <filesystem>

#include "app/LocationBookmark.h"
#include "cli/DaemonCalls.h"
#include "cli/RecordSession.h"
#include "engine/TitleEncoding.h"
#include "platform/TextUtil.h"
#include "store/Bookmark.h"

namespace quillon {

std::optional<double> parseDuration(std::string_view text) {
    if (text.empty()) return std::nullopt;
    double unit = 1;
    switch (text.back()) {
        case 's':
            unit = 1;
            break;
        case 'm':
            unit = 60;
            break;
        case 'h':
            unit = 3600;
            break;
        default:
            unit = 0;
    }
    std::string_view number = unit == 0 ? text : text.substr(0, text.size() - 1);
    if (unit == 0) unit = 1;
    if (number.empty() || number.find_first_not_of("0123456789.") != std::string_view::npos ||
        number.find('.') != number.rfind('.'))
        return std::nullopt;
    double value = doubleValue(number) * unit;
    if (value <= 0) return std::nullopt;
    return value;
}

int recordInForeground(const RecordArgs& args) {
    RecordOptions options;
    if (!args.duration.empty()) {
        options.seconds = parseDuration(args.duration);
        if (!options.seconds)
            throw UsageError("not a duration: " + args.duration + " (use e.g. 90s, 5m, 2h or seconds)");
    }
    options.relayOnly = args.relayOnly;
    options.listen = args.listen;
    options.folder = args.folder.empty() ? RecordSession::defaultFolder() : args.folder;
    options.statusLine = !args.quiet;
    std::optional<TitleEncoding::Charset> charset;
    if (!args.titleEncoding.empty()) {
        charset = TitleEncoding::fromName(args.titleEncoding);
        if (!charset)
            throw UsageError("--title-encoding takes " + TitleEncoding::choices() + ", not '" +
                             args.titleEncoding + "'");
    }
    std::vector<std::shared_ptr<Bookmark>> bookmarks;
    for (const auto& location : args.locations) {
        std::string failure;
        auto bookmark = bookmarkFromArgument(location, failure);
        if (!bookmark) {
            std::fprintf(stderr, "quillon: %s\n", failure.c_str());
            return 1;
        }
        // For this run only: a bookmark file is not changed by it.
        if (charset) bookmark->setTitleEncoding(std::string(TitleEncoding::name(*charset)));
        if (args.allowUntrusted) bookmark->setAllowUntrustedCertificate(true);
        bookmarks.push_back(std::move(bookmark));
    }
    bookmarks = RecordSession::namedApart(bookmarks);
    for (const auto& bookmark : bookmarks)
        std::fprintf(stderr, "Recording %s (%s:%s%s) into %s\n",
                     printable(bookmark->name().value_or("")).c_str(),
                     printable(bookmark->host().value_or("")).c_str(),
                     printable(bookmark->port().value_or("")).c_str(), printable(bookmark->path()).c_str(),
                     options.folder.c_str());
    RecordSession session(options);
    return session.run(bookmarks);
}

namespace {

// The start call for one argument: a URL as such, a file by its absolute path
// (the daemon runs in a folder of its own), anything else as a bookmark's name.
nlohmann::json startBody(const std::string& location, const RecordArgs& args) {
    nlohmann::json body = {{"relayOnly", args.relayOnly}, {"listen", args.listen}};
    if (!args.titleEncoding.empty()) body["titleEncoding"] = args.titleEncoding;
    if (args.allowUntrusted) body["allowUntrusted"] = true;
    std::error_code error;
    if (location.find("://") != std::string::npos)
        body["url"] = location;
    else if (std::filesystem::exists(location, error))
        body["bookmark"] = std::filesystem::absolute(location, error).lexically_normal().string();
    else
        body["bookmark"] = location;
    return body;
}

int recordOnDaemon(const DaemonClient& daemon, const RecordArgs& args) {
    for (const auto& location : args.locations) {
        DaemonClient::Reply reply = daemon.request("POST", "/api/activity", startBody(location, args));
        if (!reply.ok()) {
            std::fprintf(stderr, "quillon: %s: %s\n", printable(location).c_str(), reply.error.c_str());
            // Refused input reads as bad input, as in the foreground.
            return reply.status == 400 || reply.status == 404 ? 2 : 1;
        }
        std::printf("%s\n", rowSummary("Started", reply.body).c_str());
        std::fflush(stdout);
    }
    return 0;
}

int runRecord(const RecordArgs& args) {
    if (args.foreground) return recordInForeground(args);
    const bool foregroundOnly = !args.duration.empty() || !args.folder.empty() || args.quiet;
    DaemonLookup found = DaemonClient::find();
    if (!found.client && found.problem.empty()) return recordInForeground(args);
    if (foregroundOnly) {
        std::fprintf(stderr,
                     "quillon: --for, --to and -q belong to a recording in the foreground: recording here, "
                     "not in the running daemon\n");
        return recordInForeground(args);
    }
    if (!found.client) {
        std::fprintf(stderr, "quillon: %s\n", found.problem.c_str());
        return 1;
    }
    return recordOnDaemon(*found.client, args);
}

}  // namespace

void addRecordCommand(CLI::App& app, CommandRunner& runner) {
    auto args = std::make_shared<RecordArgs>();
    CLI::App* cmd = app.add_subcommand("record", "Record a stream in the foreground, one file per track");
    cmd->add_option("location", args->locations,
                    "One or more, recorded side by side: a bookmark's name or .qlnbk file, a stream URL, a "
                    "playlist URL or a playlist file")
        ->required();
    cmd->add_option("--for", args->duration, "Stop after this long: 90s, 5m, 2h or plain seconds");
    cmd->add_flag("--relay-only", args->relayOnly, "Relay the stream without writing files");
    cmd->add_flag(
        "--listen", args->listen,
        "Open the relay in the player (preference playerCommand, default xdg-open) once streaming starts");
    cmd->add_option("--to", args->folder,
                    "Recordings folder for this run (default: the configured one, else ~/Music)");
    cmd->add_flag("-q,--quiet", args->quiet, "No live status line");
    cmd->add_option("--title-encoding", args->titleEncoding,
                    "The encoding of the stream's titles for this run: " + TitleEncoding::choices() +
                        " (default: each bookmark's own, else auto: detected per title)");
    cmd->add_flag("--allow-untrusted-certificate", args->allowUntrusted,
                  "For this run, record an https stream whose certificate is not trusted (shown in the "
                  "state text and logged); a bookmark keeps its own setting");
    cmd->add_flag("--foreground", args->foreground,
                  "Record in this process even when quillon serve runs (implied by --for, --to and -q)");
    cmd->footer(
        "While quillon serve runs, the connections start in the daemon instead: one line per started\n"
        "connection, then exit 0 (see them with quillon status, stop them with quillon stop).\n"
        "In the foreground, shows one status line per connection and each connection's relay address. Stops "
        "on Ctrl-C,\n"
        "SIGTERM, after --for, or when every connection has stopped for good; everything received up\n"
        "to then is written to the files. Then says why each connection ended. Exits 0 when every\n"
        "connection ended by a stop, --for or the end of its stream; 1 when one could not be reached,\n"
        "was lost, or could not write its files (a disk error, a disk almost full); 2 with a one-line\n"
        "reason on bad input (an unknown bookmark, a malformed URL, a file that names no stream).");
    cmd->callback([args, &runner] { runner = [args] { return runRecord(*args); }; });
}

}  // namespace quillon
