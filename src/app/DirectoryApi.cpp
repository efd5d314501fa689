#include "app/DirectoryApi.h"

#include "app/ApiServer.h"
#include "app/BadInput.h"
#include "app/DirectoryOperations.h"
#include "app/EventHub.h"
#include "platform/MainLoop.h"
#include "store/Bookmark.h"
#include "tuner/RadioBrowserClicks.h"
#include "tuner/Tuner.h"
#include "tuner/TunerFilter.h"

namespace quillon {

namespace {

const char* outcomeName(Tuner::Outcome outcome) {
    switch (outcome) {
        case Tuner::Outcome::upToDate:
            return "upToDate";
        case Tuner::Outcome::updated:
            return "updated";
        case Tuner::Outcome::checkFailed:
            return "checkFailed";
        case Tuner::Outcome::updateFailed:
            return "updateFailed";
    }
    return "";
}

}  // namespace

DirectoryApi::DirectoryApi(ApiServer& server, EventHub& events) : events_(events), tuner_(Tuner::tuner()) {
    tuner_->loadTunerData();
    Tuner::Events e;
    e.progress = [this](const std::string& text, int percent) {
        events_.publish({{"type", "directoryProgress"}, {"text", text}, {"percent", percent}});
    };
    e.refresh = [this] { events_.publish({{"type", "directory"}}); };
    e.finished = [this](Tuner::Outcome outcome, const std::string& message) {
        events_.publish(
            {{"type", "directoryUpdate"}, {"outcome", outcomeName(outcome)}, {"message", message}});
    };
    e.beep = [this] { events_.publish({{"type", "beep"}}); };
    tuner_->setEvents(std::move(e));
    filter_ = std::make_unique<TunerFilter>(*tuner_, [this](int) {
        events_.publish({{"type", "directory"}});
    });

    server.route("GET", "/api/directory", [this](const ApiRequest&) {
        std::lock_guard lock(tuner_->tunerLock());
        nlohmann::json tree = DirectoryOperations::tree(*tuner_);
        tree["updating"] = tuner_->updating() || tuner_->checking();
        return ApiReply{200, tree};
    });
    server.route("POST", "/api/directory/filter", [this](const ApiRequest& req) {
        std::vector<std::string> words;
        if (auto keywords = req.optionalString("keywords")) words.push_back(*keywords);
        int min = static_cast<int>(req.optionalInt("minKbps", 0, 65535).value_or(0));
        int max = static_cast<int>(req.optionalInt("maxKbps", 0, 65535).value_or(Tuner::kNeutralMax));
        try {
            filter_->post(DirectoryOperations::filterFor(words, min, max));
        } catch (const BadInput& e) {
            throw ApiError(400, e.what());
        }
        return ApiReply{202, {{"accepted", true}}};
    });
    server.route("POST", "/api/directory/update", [this](const ApiRequest& req) {
        if (tuner_->updating() || tuner_->checking()) throw ApiError(409, "a directory update is running");
        std::optional<Tuner::Source> source;
        if (auto name = req.optionalString("source")) {
            source = Tuner::sourceNamed(*name);
            if (!source) throw ApiError(400, "source is \"server\" or \"radio-browser\"");
        }
        tuner_->setSource(source);  // none: the last update's
        tuner_->setAllCodecs(req.optionalBool("allCodecs").value_or(false));
        tuner_->beginUpdate(true);
        return ApiReply{202, {{"accepted", true}}};
    });
    server.routeDeferred(
        "POST", "/api/directory/bookmark", [this](const ApiRequest& req, ApiServer::Respond respond) {
            auto what = req.optionalString("entry");
            if (!what) throw ApiError(400, "give the entry: its id, Genre/Name or name");
            std::string name = req.optionalString("name").value_or("");
            bool replace = req.optionalBool("force").value_or(false);
            std::shared_ptr<TunerItem> item;
            std::string failure;
            {
                std::lock_guard lock(tuner_->tunerLock());
                item = DirectoryOperations::find(*tuner_, *what, failure);
            }
            if (!item) throw ApiError(404, failure);
            const std::string server = tuner_->server();
            if (server.empty() && !item->hasDirectStream())
                throw ApiError(409, "no directory server is set (the preference tunerServer)");
            // The playlist is fetched off the main loop; the bookmark is saved on it.
            const std::uint64_t id = nextFetch_++;
            fetches_[id] = std::jthread([this, id, item, server, name, replace, respond, alive = alive_] {
                std::string why;
                std::shared_ptr<Bookmark> bookmark = item->bookmark(server, why);
                MainLoop::main().post([this, id, item, bookmark, why, name, replace, respond, alive] {
                    if (!*alive) return;
                    ApiReply reply{502, errorBody(why)};
                    if (bookmark) {
                        // Outside a handler: a refusal is answered here, never thrown onto the main loop.
                        try {
                            reply =
                                replyFor(DirectoryOperations::saveBookmark(*bookmark, name, replace), 201);
                            if (reply.status == 201) {
                                events_.publish({{"type", "bookmarks"}});
                                countClick(*item);
                            }
                        } catch (const ApiError& e) {
                            reply = {e.status(), errorBody(e.what())};
                        } catch (const BadInput& e) {
                            reply = {400, errorBody(e.what())};
                        }
                    }
                    respond(std::move(reply));
                    // The thread has posted its last work and is only returning: joined at once.
                    fetches_.erase(id);
                });
            });
        });
}

void DirectoryApi::countClick(const TunerItem& item) {
    if (!item.hasDirectStream() || !item.resourceNum()) return;
    if (!clicks_) clicks_ = std::make_unique<RadioBrowserClicks>(tuner_->radioBrowserServer());
    clicks_->count(*item.resourceNum());
}

DirectoryApi::~DirectoryApi() {
    *alive_ = false;
    clicks_.reset();  // drops clicks not yet sent
    filter_.reset();
    fetches_.clear();  // joins the playlist fetches (bounded by their time-out)
    tuner_->setEvents({});
    Tuner::resetShared();
}

}  // namespace quillon
