#include "app/ActivityApi.h"

#include "app/ActivityJson.h"
#include "app/ActivityViewModel.h"
#include "app/ApiServer.h"
#include "app/BadInput.h"
#include "app/Controller.h"
#include "app/LocationBookmark.h"
#include "engine/Ripper.h"
#include "engine/TitleEncoding.h"
#include "platform/Home.h"
#include "store/Bookmark.h"
#include "store/Preferences.h"
#include "store/Url.h"

namespace quillon {

namespace {

nlohmann::json rowOf(Controller& c, const Ripper& connection) {
    auto view = ActivityViewModel::make(c.activity());
    for (const auto& row : view.rows)
        if (row.id == connection.id()) return activityRowJson(row);
    return nlohmann::json::object();
}

Ripper& connectionFor(Controller& c, const ApiRequest& req) {
    std::uint64_t id = req.idParam(0);
    ActivityController& list = c.activity();
    for (std::size_t row = 0; row < list.numberOfRows(); ++row)
        if (list.connectionAt(row).id() == id) return list.connectionAt(row);
    throw ApiError(404, "no connection " + std::to_string(id));
}

// The saved bookmark or stream URL of a start call. A playlist would need a
// download first, which a call on the main loop must not wait for.
std::shared_ptr<Bookmark> bookmarkToStart(const ApiRequest& req) {
    auto saved = req.optionalString("bookmark");
    auto url = req.optionalString("url");
    if (saved.has_value() == url.has_value()) throw ApiError(400, "give either bookmark or url");
    if (saved && saved->rfind("http", 0) == 0)
        throw ApiError(400, "bookmark names a saved bookmark; use url for " + *saved);
    if (url) {
        auto parsed = Url::parse(*url);
        if (url->rfind("http", 0) != 0 || !parsed) throw ApiError(400, "not a stream URL: " + *url);
        if (looksLikePlaylist(parsed->path))
            throw ApiError(400, "a playlist: save it as a bookmark first (quillon bookmark add)");
    }
    std::string failure;
    try {
        auto b = bookmarkFromArgument(saved ? *saved : *url, failure);
        if (!b) throw ApiError(400, failure);
        return b;
    } catch (const BadInput& e) {
        throw ApiError(saved ? 404 : 400, e.what());
    }
}

}  // namespace

void addActivityRoutes(ApiServer& server, Controller& c) {
    server.route("GET", "/api/activity", [&c](const ApiRequest&) {
        return ApiReply{200, activityJson(ActivityViewModel::make(c.activity()))};
    });
    server.route("POST", "/api/activity", [&c](const ApiRequest& req) {
        req.allowOnly({"bookmark", "url", "relayOnly", "listen", "titleEncoding", "allowUntrusted"});
        bool relayOnly = req.optionalBool("relayOnly").value_or(false);
        bool listen = req.optionalBool("listen").value_or(false);
        std::optional<TitleEncoding::Charset> charset;
        if (auto name = req.optionalString("titleEncoding")) {
            charset = TitleEncoding::fromName(*name);
            if (!charset)
                throw ApiError(400,
                               "titleEncoding takes " + TitleEncoding::choices() + ", not '" + *name + "'");
        }
        auto bookmark = bookmarkToStart(req);
        // For this connection only: a saved bookmark's file is not changed.
        if (charset) bookmark->setTitleEncoding(std::string(TitleEncoding::name(*charset)));
        if (req.optionalBool("allowUntrusted").value_or(false)) bookmark->setAllowUntrustedCertificate(true);
        // A connection needs a bookmark file: a URL gets the copy that the
        // recent list keeps of it.
        if (bookmark->filePath().empty())
            bookmark->setFilePath(
                bookmark->pathInFolder(Preferences::recentFolderPath().value_or(homeFolder())));
        Ripper* started = c.activity().addRecord(*bookmark, nullptr, relayOnly, listen);
        if (!started) throw ApiError(409, "refused: see the alert (recordings folder or free space)");
        return ApiReply{201, rowOf(c, *started)};
    });
    server.route("POST", "/api/open", [&c](const ApiRequest& req) {
        req.allowOnly({"path"});
        std::string path = req.requiredString("path");
        if (!Bookmark::resourceFromPath<Bookmark>(path)) throw ApiError(404, "not a bookmark file: " + path);
        Ripper* started = c.openFileConnection(path);
        if (!started) throw ApiError(409, "refused: see the alert (recordings folder or free space)");
        return ApiReply{201, rowOf(c, *started)};
    });
    server.route("POST", R"(/api/activity/(\d+)/stop)", [&c](const ApiRequest& req) {
        Ripper& r = connectionFor(c, req);
        if (!r.stoppedForGood()) r.userClose();
        return ApiReply{200, rowOf(c, r)};
    });
    server.route("POST", R"(/api/activity/(\d+)/start)", [&c](const ApiRequest& req) {
        Ripper& r = connectionFor(c, req);
        if (!r.stoppedForGood()) throw ApiError(409, "the connection is running");
        c.activity().selectConnection(&r);
        c.activity().stopButton();
        return ApiReply{200, rowOf(c, r)};
    });
    server.route("POST", R"(/api/activity/(\d+)/stop-after-track)", [&c](const ApiRequest& req) {
        req.allowOnly({"on"});
        bool on = req.optionalBool("on").value_or(true);
        Ripper& r = connectionFor(c, req);
        if (on != r.closeAfterThisTrack() && !r.toggleCloseAfterThisTrack())
            throw ApiError(409, "this stream has no track titles");
        return ApiReply{200, rowOf(c, r)};
    });
    server.route("POST", R"(/api/activity/(\d+)/listen)", [&c](const ApiRequest& req) {
        Ripper& r = connectionFor(c, req);
        if (!r.isStreaming()) throw ApiError(409, "the connection is not streaming");
        c.activity().selectConnection(&r);
        c.activity().listen();
        return ApiReply{200, rowOf(c, r)};
    });
    // The page shows the path; the daemon's desktop opens it where it can.
    server.route("POST", R"(/api/activity/(\d+)/reveal)", [&c](const ApiRequest& req) {
        Ripper& r = connectionFor(c, req);
        c.activity().selectConnection(&r);
        return ApiReply{200, {{"path", c.activity().revealInFinder()}}};
    });
    server.route("DELETE", R"(/api/activity/(\d+))", [&c](const ApiRequest& req) {
        Ripper& r = connectionFor(c, req);
        c.activity().removeRecord(r);
        return ApiReply{};
    });
    server.route("POST", "/api/activity/clear", [&c](const ApiRequest&) {
        ActivityController& list = c.activity();
        std::vector<Ripper*> stopped;
        for (std::size_t row = 0; row < list.numberOfRows(); ++row)
            if (list.connectionAt(row).stoppedForGood()) stopped.push_back(&list.connectionAt(row));
        for (Ripper* r : stopped) list.removeRecord(*r);
        return ApiReply{200, {{"removed", stopped.size()}}};
    });
    server.route("POST", "/api/activity/stop-all", [&c](const ApiRequest&) {
        c.activity().stopAllConnections();
        return ApiReply{};
    });
}

}  // namespace quillon
