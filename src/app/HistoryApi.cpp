#include "app/HistoryApi.h"

#include <filesystem>

#include "app/ApiServer.h"
#include "app/BadInput.h"
#include "app/EventHub.h"
#include "app/HistoryOperations.h"
#include "history/History.h"

namespace quillon {

namespace {

// A day key from the path, in its stored form; 400 when it is no day.
std::string dayParam(const ApiRequest& req) {
    try {
        return HistoryOperations::checkedDay(req.param(0));
    } catch (const BadInput& e) {
        throw ApiError(400, e.what());
    }
}

}  // namespace

void addHistoryRoutes(ApiServer& server, History& history, EventHub& events) {
    server.route("GET", "/api/history/days", [&history](const ApiRequest&) {
        return ApiReply{200, {{"days", HistoryOperations::days(history)}}};
    });
    server.route("GET", R"(/api/history/days/([0-9_]+))", [&history](const ApiRequest& req) {
        return replyFor(HistoryOperations::day(history, dayParam(req)));
    });
    server.route("GET", "/api/history/search", [&history](const ApiRequest& req) {
        std::string words = req.query("q").value_or("");
        if (words.empty()) throw ApiError(400, "give the words to search for: ?q=...");
        return ApiReply{200, {{"days", HistoryOperations::search(history, words)}}};
    });
    server.route("POST", "/api/history/delete", [&history, &events](const ApiRequest& req) {
        req.allowOnly({"targets", "confirm"});
        auto texts = req.optionalStrings("targets");
        if (!texts || texts->empty()) throw ApiError(400, "targets: give the days or DAY:N tracks to delete");
        std::vector<HistoryOperations::Target> targets;
        try {
            for (const std::string& text : *texts) targets.push_back(HistoryOperations::parseTarget(text));
        } catch (const BadInput& e) {
            throw ApiError(400, e.what());
        }
        // Deleting cannot be undone: the caller shows the question and says so.
        if (!req.optionalBool("confirm").value_or(false))
            throw ApiError(409, "deleting from the history needs \"confirm\": true");
        ApiReply reply = replyFor(HistoryOperations::remove(history, targets));
        events.publish({{"type", "history"}});
        return reply;
    });
    server.route("POST", "/api/history/files", [&history, &events](const ApiRequest& req) {
        req.allowOnly({"paths"});
        auto paths = req.optionalStrings("paths");
        if (!paths || paths->empty()) throw ApiError(400, "paths: give the recorded files or folders to add");
        for (const std::string& path : *paths) {
            if (!std::filesystem::path(path).is_absolute())
                throw ApiError(400, "not an absolute path: " + path);
        }
        ApiReply reply = replyFor(HistoryOperations::add(history, *paths), 201);
        reply.body = {{"tracks", reply.body}};
        events.publish({{"type", "history"}});
        return reply;
    });
}

}  // namespace quillon
