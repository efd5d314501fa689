#include "app/BookmarkApi.h"

#include <filesystem>

#include "app/ApiServer.h"
#include "app/BadInput.h"
#include "app/BookmarkChanges.h"
#include "app/BookmarkOperations.h"
#include "app/EventHub.h"
#include "app/LocationBookmark.h"
#include "app/LocationProbe.h"
#include "store/Bookmark.h"

namespace quillon {

namespace {

BookmarkChanges changesFrom(const ApiRequest& req, std::initializer_list<const char*> also) {
    try {
        return BookmarkChanges::fromJson(req.body(), also);
    } catch (const BadInput& e) {
        throw ApiError(400, e.what());
    }
}

}  // namespace

BookmarkApi::BookmarkApi(ApiServer& server, EventHub& events) : events_(events) {
    server.route("GET", "/api/bookmarks", [](const ApiRequest&) {
        ApiReply reply = replyFor(BookmarkOperations::list());
        reply.body = {{"bookmarks", reply.body}};
        return reply;
    });
    server.route("GET", "/api/bookmarks/(.+)",
                 [](const ApiRequest& req) { return replyFor(BookmarkOperations::show(req.param(0))); });
    server.routeDeferred("POST", "/api/bookmarks", [this](const ApiRequest& req, ApiServer::Respond respond) {
        BookmarkChanges changes = changesFrom(req, {"location", "playlist", "force"});
        bool replace = req.optionalBool("force").value_or(false);
        auto location = req.optionalString("location");
        auto playlist = req.optionalString("playlist");
        if (location.has_value() == playlist.has_value())
            throw ApiError(400, "give either a location (URL or playlist file) or playlist text");
        if (location && !isRemoteLocation(*location) && !std::filesystem::path(*location).is_absolute())
            throw ApiError(400, "not a URL or an absolute path: " + *location);

        std::uint64_t id = nextProbe_++;
        auto done = [this, id, respond, changes, replace](LocationProbe::Outcome outcome) {
            ApiReply reply{502, errorBody(outcome.failure)};  // the location gave no stream
            if (outcome.bookmark) {
                try {
                    reply = replyFor(BookmarkOperations::add(*outcome.bookmark, changes, replace), 201);
                    events_.publish({{"type", "bookmarks"}});
                } catch (const ApiError& e) {
                    reply = {e.status(), errorBody(e.what())};
                }
            }
            respond(std::move(reply));
            probes_.erase(id);
        };
        std::string name = changes.name.value_or("");
        try {
            probes_[id] = location ? std::make_unique<LocationProbe>(*location, name, done)
                                   : std::make_unique<LocationProbe>(LocationProbe::PlaylistText{*playlist},
                                                                     name, done);
        } catch (const BadInput& e) {
            throw ApiError(400, e.what());
        }
    });
    server.route("PUT", "/api/bookmarks/(.+)", [this](const ApiRequest& req) {
        BookmarkChanges changes = changesFrom(req, {"force"});
        ApiReply reply = replyFor(
            BookmarkOperations::edit(req.param(0), changes, req.optionalBool("force").value_or(false)));
        if (reply.body.value("changed", false)) events_.publish({{"type", "bookmarks"}});
        return reply;
    });
    server.route("DELETE", "/api/bookmarks/(.+)", [this](const ApiRequest& req) {
        ApiReply reply = replyFor(BookmarkOperations::remove(req.param(0)));
        events_.publish({{"type", "bookmarks"}});
        return reply;
    });
}

BookmarkApi::~BookmarkApi() = default;

}  // namespace quillon
