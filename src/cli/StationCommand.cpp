#include "cli/StationCommand.h"

#include <pthread.h>
#include <signal.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

#include "station/AssetTones.h"
#include "station/Station.h"
#include "station/StationDirectory.h"

namespace quillon {

namespace {

// The command line as typed; turned into StationOptions when the command runs.
struct StationArgs {
    std::uint16_t port = 0;
    std::uint32_t metaint = StationOptions{}.metaint;
    std::uint32_t bitrate = StationOptions{}.bitrate;
    bool bitrateGiven = false;
    std::string titles;
    std::uint64_t titleEvery = StationOptions{}.titleEvery;
    std::string rate = "realtime";
    std::string payload = "mp3";
    std::string status = "icy";
    std::optional<std::string> server;
    std::string name = StationOptions{}.name;
    std::string genre = StationOptions{}.genre;
    std::string url = StationOptions{}.url;
    bool repeatTitles = false;
    std::optional<std::uint64_t> closeAfter;
    std::optional<std::uint32_t> badMetaAt;
    std::optional<std::string> redirectTo;
    std::optional<int> refuse;
    bool silentAfterHeader = false;
    bool emptyTitles = false;
    bool blankTitles = false;
    bool chunked = false;
    std::optional<std::uint64_t> badChunkAt;
    std::string titleEncoding;
    std::vector<std::string> tls;  // certificate and key
    bool directory = false;
    StationDirectoryOptions directoryOptions;
};

StationOptions stationOptions(const StationArgs& a) {
    if (a.emptyTitles && a.blankTitles) throw UsageError("choose either --empty-titles or --blank-titles");
    StationOptions o;
    o.port = a.port;
    o.metaint = a.metaint;
    o.bitrate = a.bitrate;
    o.titles = parseTitleList(a.titles);
    if (!a.titles.empty() && o.titles.empty()) throw UsageError("--titles holds no title");
    o.titleEvery = a.titleEvery;
    o.repeatTitle = a.repeatTitles;
    o.rate = a.rate == "max" ? StationRate::max : StationRate::realtime;
    o.payload = a.payload == "counter" ? StationPayload::counter
                : a.payload == "aac"   ? StationPayload::aac
                : a.payload == "ogg"   ? StationPayload::ogg
                                       : StationPayload::mp3;
    // The encoded assets have a rate of their own, which the station
    // announces and paces at unless told otherwise.
    if (!a.bitrateGiven && o.payload == StationPayload::aac) o.bitrate = AssetTones::aacKbps;
    if (!a.bitrateGiven && o.payload == StationPayload::ogg) o.bitrate = AssetTones::oggKbps;
    o.status = a.status == "http" ? StationStatus::http : StationStatus::icy;
    o.server = a.server;
    o.name = a.name;
    o.genre = a.genre;
    o.url = a.url;
    o.closeAfter = a.closeAfter;
    o.badMetaAt = a.badMetaAt;
    o.redirectTo = a.redirectTo;
    o.refuse = a.refuse;
    o.silentAfterHeader = a.silentAfterHeader;
    o.titleEncoding = a.titleEncoding;
    o.chunked = a.chunked;
    o.badChunkAt = a.badChunkAt;
    if (a.tls.size() == 2) {
        o.tlsCertificate = a.tls[0];
        o.tlsKey = a.tls[1];
    }
    o.emptyTitles = a.emptyTitles   ? EmptyTitles::zeroLength
                    : a.blankTitles ? EmptyTitles::blank
                                    : EmptyTitles::none;
    try {
        validate(o);
    } catch (const std::invalid_argument& e) {
        throw UsageError(e.what());
    }
    return o;
}

// Serves until SIGINT or SIGTERM. The signals are blocked before the station's
// threads start, so they inherit the mask and the main thread alone takes them.
int runStation(const StationArgs& args) {
    const StationOptions options = stationOptions(args);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigset_t previous;
    pthread_sigmask(SIG_BLOCK, &signals, &previous);
    int status = 0;
    try {
        Station station(options);
        station.start();
        if (args.directory) station.serveFiles(StationDirectory::files(station.url(), args.directoryOptions));
        std::printf("Station listening on %s\n", station.url().c_str());
        if (args.directory) std::printf("Directory server %s\n", station.url().c_str());
        std::fflush(stdout);
        int received = 0;
        sigwait(&signals, &received);
        station.stop();
        std::printf("Station stopped after %zu client(s)\n", station.clients().size());
    } catch (const std::runtime_error& e) {
        std::fprintf(stderr, "quillon: %s\n", e.what());
        status = 1;
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    return status;
}

}  // namespace

void addStationCommand(CLI::App& app, CommandRunner& runner) {
    auto args = std::make_shared<StationArgs>();
    CLI::App* cmd = app.add_subcommand("station", "Serve a built-in ICY test stream on 127.0.0.1");
    cmd->add_option("--port", args->port, "Port to listen on (0: any free port)");
    cmd->add_option("--metaint", args->metaint, "Audio bytes between metadata blocks (0: no metadata)")
        ->capture_default_str();
    CLI::Option* bitrate =
        cmd->add_option("--bitrate", args->bitrate, "Bit rate in kbit/s (aac: 48, ogg: 32 unless given)")
            ->capture_default_str();
    cmd->add_option("--titles", args->titles, "Titles, comma-separated (default: Artist N - Title N)");
    cmd->add_option("--title-every", args->titleEvery, "Audio bytes between title changes (0: never)")
        ->capture_default_str();
    cmd->add_option("--rate", args->rate, "realtime (paced at the bit rate) or max")
        ->check(CLI::IsMember({"realtime", "max"}))
        ->capture_default_str();
    cmd->add_option("--payload", args->payload,
                    "mp3, aac (ADTS) or ogg (Vorbis) sine tones, or counter (audio byte n is n mod 251)")
        ->check(CLI::IsMember({"mp3", "aac", "ogg", "counter"}))
        ->capture_default_str();
    cmd->add_option("--status", args->status, "Status line: icy (ICY 200 OK) or http (HTTP/1.0 200 OK)")
        ->check(CLI::IsMember({"icy", "http"}))
        ->capture_default_str();
    cmd->add_option("--server", args->server, "Server: line (default: Icecast under --status http)");
    cmd->add_option("--name", args->name, "Station name")->capture_default_str();
    cmd->add_option("--genre", args->genre, "Station genre")->capture_default_str();
    cmd->add_option("--url", args->url, "Station URL")->capture_default_str();
    cmd->add_option("--title-encoding", args->titleEncoding,
                    "Send the titles in this encoding (cp1251, latin1, cp1252, ...; default: UTF-8)");
    cmd->add_flag("--repeat-titles", args->repeatTitles, "Repeat the current title in every metadata block");
    cmd->add_option("--close-after", args->closeAfter, "Hang up after this many audio bytes");
    cmd->add_option("--bad-meta-at", args->badMetaAt,
                    "Send a metadata length byte of 128 or more when title N (from 0) is due");
    cmd->add_option("--redirect-to", args->redirectTo, "Answer every request with a 302 to this URL");
    cmd->add_option("--refuse", args->refuse, "Answer every request with this error status (e.g. 401, 404)");
    cmd->add_flag("--silent-after-header", args->silentAfterHeader, "Send the header, then nothing");
    cmd->add_flag("--empty-titles", args->emptyTitles, "Send only zero-length metadata blocks");
    cmd->add_flag("--blank-titles", args->blankTitles, "Send StreamTitle='' in every metadata block");
    cmd->add_flag("--chunked", args->chunked,
                  "Answer HTTP/1.1 with the stream in chunks of varying sizes (needs --status http)");
    cmd->add_option("--bad-chunk-at", args->badChunkAt,
                    "With --chunked: send a malformed chunk size line after this many audio bytes");
    cmd->add_option("--tls", args->tls, "Serve over TLS with this certificate chain and key (PEM files)")
        ->expected(2)
        ->type_name("CERT KEY");
    cmd->add_flag("--directory", args->directory,
                  "Also serve a station directory (quillon directory --server URL) whose streams are this "
                  "station");
    cmd->add_option("--directory-version", args->directoryOptions.version, "The directory's version number")
        ->capture_default_str();
    cmd->add_option("--directory-fail-after", args->directoryOptions.failAfter,
                    "Hang up on every genre file after the first N (an update failing half-way)");
    cmd->callback([args, bitrate, &runner] {
        args->bitrateGiven = bitrate->count() > 0;
        runner = [args] { return runStation(*args); };
    });
}

}  // namespace quillon
