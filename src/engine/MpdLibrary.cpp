#include "engine/MpdLibrary.h"

#include <mpd/client.h>

#include <chrono>
#include <filesystem>
#include <memory>

#include <fmt/format.h>

#include "platform/Home.h"

namespace quillon {

namespace fs = std::filesystem;

namespace {

struct ConnectionFree {
    void operator()(mpd_connection* c) const { mpd_connection_free(c); }
};
using Connection = std::unique_ptr<mpd_connection, ConnectionFree>;

std::string errorOf(mpd_connection* c) {
    const char* text = mpd_connection_get_error_message(c);
    return text ? text : "unknown error";
}

std::optional<std::string> relativeInside(fs::path file, fs::path folder) {
    file = file.lexically_normal();
    folder = folder.lexically_normal();
    if (!folder.has_filename()) folder = folder.parent_path();  // a trailing "/"
    if (!file.is_absolute() || !folder.is_absolute()) return std::nullopt;
    fs::path relative = file.lexically_relative(folder);
    if (relative.empty() || relative == "." || *relative.begin() == "..") return std::nullopt;
    return relative.generic_string();
}

std::string expandHome(const std::string& path) {
    if (path == "~") return homeFolder();
    if (path.starts_with("~/")) return joinPath(homeFolder(), path.substr(2));
    return path;
}

// MPD's music folder from its "config" command (local connections only).
std::optional<std::string> askMusicFolder(mpd_connection* c) {
    if (!mpd_send_command(c, "config", nullptr)) return std::nullopt;
    std::optional<std::string> folder;
    while (mpd_pair* pair = mpd_recv_pair(c)) {
        if (std::string_view(pair->name) == "music_directory") folder = pair->value;
        mpd_return_pair(c, pair);
    }
    if (!mpd_response_finish(c)) return std::nullopt;
    return folder;
}

}  // namespace

MpdLibrary::MpdLibrary(Settings settings) : settings_(std::move(settings)) {}

std::string MpdLibrary::description() const {
    std::string host = settings_.host.empty() ? "localhost" : settings_.host;
    if (host.starts_with('/') || host.starts_with('@')) return "MPD at " + host;
    return fmt::format("MPD at {}:{}", host, settings_.port == 0 ? 6600 : settings_.port);
}

std::optional<std::string> MpdLibrary::pathInMusicFolder(const std::string& file,
                                                         const std::string& musicFolder) {
    if (auto relative = relativeInside(file, musicFolder)) return relative;
    std::error_code ec1, ec2;
    fs::path realFile = fs::weakly_canonical(file, ec1);
    fs::path realFolder = fs::weakly_canonical(musicFolder, ec2);
    if (ec1 || ec2) return std::nullopt;
    return relativeInside(realFile, realFolder);
}

MusicLibrary::Result MpdLibrary::addTrack(const std::string& path, const std::string& playlist) {
    const auto timeout = std::chrono::duration<double>(settings_.timeoutSeconds);
    const unsigned timeoutMs = static_cast<unsigned>(settings_.timeoutSeconds * 1000);
    const std::string where = description();
    Connection c(mpd_connection_new(settings_.host.empty() ? nullptr : settings_.host.c_str(), settings_.port,
                                    timeoutMs));
    if (!c) return Result::failed("out of memory for a connection to " + where);
    if (mpd_connection_get_error(c.get()) != MPD_ERROR_SUCCESS)
        return Result::failed("cannot reach " + where + ": " + errorOf(c.get()));
    if (!settings_.password.empty() && !mpd_run_password(c.get(), settings_.password.c_str()))
        return Result::failed(where + " refused the password: " + errorOf(c.get()));

    std::string musicFolder = expandHome(settings_.musicFolder);
    if (musicFolder.empty()) {
        auto asked = askMusicFolder(c.get());
        if (!asked) {
            return Result::failed(where +
                                  " does not tell its music folder (it does only over its local socket: " +
                                  errorOf(c.get()) + "); set the preference mpdMusicFolder");
        }
        musicFolder = *asked;
    }
    auto relative = pathInMusicFolder(path, musicFolder);
    if (!relative) return Result::failed(path + " is not inside MPD's music folder " + musicFolder);

    const unsigned job = mpd_run_update(c.get(), relative->c_str());
    if (job == 0) return Result::failed(where + " cannot update " + *relative + ": " + errorOf(c.get()));
    // MPD keeps the events since a client's last idle, so an update that ends
    // between the status and the idle still wakes the idle.
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        mpd_status* status = mpd_run_status(c.get());
        if (!status) return Result::failed(where + " gives no status: " + errorOf(c.get()));
        const unsigned running = mpd_status_get_update_id(status);
        mpd_status_free(status);
        // Jobs are numbered in order: ours is done when none or a later one runs.
        if (running == 0 || running > job) break;
        const bool late = std::chrono::steady_clock::now() >= deadline;
        if (late || !mpd_send_idle_mask(c.get(), MPD_IDLE_UPDATE) ||
            (mpd_recv_idle(c.get(), false) == 0 && mpd_connection_get_error(c.get()) != MPD_ERROR_SUCCESS)) {
            return Result::failed(fmt::format("{}: the database update of {} did not finish within {} s ({})",
                                              where, *relative, settings_.timeoutSeconds,
                                              late ? "timed out" : errorOf(c.get())));
        }
    }

    const std::string name = safePlaylistName(playlist);
    if (!mpd_run_playlist_add(c.get(), name.c_str(), relative->c_str()))
        return Result::failed(where + " cannot add " + *relative + " to the playlist " + name + ": " +
                              errorOf(c.get()));
    return Result::done();
}

}  // namespace quillon
