#include "app/ScheduleApi.h"

#include "app/ApiServer.h"
#include "app/BadInput.h"
#include "app/Controller.h"
#include "app/EventHub.h"
#include "app/ScheduleOperations.h"

namespace quillon {

namespace {

ApiReply answer(const ScheduleOperations::Result& r, EventHub& events, int done = 200) {
    ApiReply reply = replyFor(r, done);
    events.publish({{"type", "schedules"}});
    return reply;
}

}  // namespace

void addScheduleRoutes(ApiServer& server, Controller& c, EventHub& events) {
    server.route("GET", "/api/schedules", [&c](const ApiRequest&) {
        return ApiReply{200, {{"rules", ScheduleOperations::list(c.schedules())}}};
    });
    server.route("GET", "/api/schedules/upcoming", [&c](const ApiRequest&) {
        return ApiReply{200, {{"actions", ScheduleOperations::upcoming(c.schedules())}}};
    });
    server.route("POST", "/api/schedules", [&c, &events](const ApiRequest& req) {
        ScheduleRuleForm form;
        try {
            form = ScheduleOperations::formFromJson(req.body());
        } catch (const BadInput& e) {
            throw ApiError(400, e.what());
        }
        return answer(ScheduleOperations::add(c.schedules(), form, c.schedules().now()), events, 201);
    });
    server.route("PUT", R"(/api/schedules/(\d+))", [&c, &events](const ApiRequest& req) {
        return answer(
            ScheduleOperations::update(c.schedules(), req.param(0), req.body(), c.schedules().now()), events);
    });
    server.route("POST", R"(/api/schedules/(\d+)/(enable|disable))", [&c, &events](const ApiRequest& req) {
        return answer(ScheduleOperations::setActive(c.schedules(), req.param(0), req.param(1) == "enable"),
                      events);
    });
    server.route("DELETE", R"(/api/schedules/(\d+))", [&c, &events](const ApiRequest& req) {
        return answer(ScheduleOperations::remove(c.schedules(), req.param(0)), events);
    });
}

}  // namespace quillon
