#include "app/MailApi.h"

#include <array>
#include <string_view>

#include "app/ApiServer.h"
#include "app/EventHub.h"
#include "app/SettingsApi.h"
#include "notify/MailSettings.h"
#include "store/PreferenceRules.h"
#include "store/Preferences.h"

namespace quillon {

namespace {

struct Field {
    std::string_view json;
    const char* key;
    bool state;
};

// The API's names for the mail settings.
constexpr std::array kFields = {
    Field{"server", MailSettings::kServerKey, false},
    Field{"from", MailSettings::kFromKey, false},
    Field{"to", MailSettings::kToKey, false},
    Field{"user", MailSettings::kUserKey, false},
    Field{"passwordFile", MailSettings::kPasswordFileKey, false},
    Field{"onScheduleEnd", MailSettings::kOnScheduleEndKey, true},
    Field{"onDiskFull", MailSettings::kOnDiskFullKey, true},
    Field{"onGiveUp", MailSettings::kOnGiveUpKey, true},
};

nlohmann::json mailJson() {
    auto prefs = Preferences::preferences();
    nlohmann::json out = nlohmann::json::object();
    for (const Field& f : kFields) {
        if (f.state)
            out[std::string(f.json)] = prefs->getState(f.key);
        else
            out[std::string(f.json)] = prefs->getParam(f.key);
    }
    // What keeps notices from going out, so that the page can say it.
    out["problem"] = MailSettings::fromPreferences(*prefs).problem();
    return out;
}

}  // namespace

MailApi::MailApi(ApiServer& server, EventHub& events) : events_(events) {
    server.route("GET", "/api/mail", [](const ApiRequest&) { return ApiReply{200, mailJson()}; });
    server.route("PUT", "/api/mail", [this](const ApiRequest& req) {
        if (!req.body().is_object()) throw ApiError(400, "the mail settings are a JSON object");
        PreferenceChanges changes;
        for (const auto& [name, value] : req.body().items()) {
            const Field* field = nullptr;
            for (const Field& f : kFields)
                if (f.json == name) field = &f;
            if (!field) throw ApiError(400, "unknown mail setting '" + name + "'");
            if (field->state ? !value.is_boolean() : !value.is_string())
                throw ApiError(400, name + (field->state ? " must be true or false" : " must be a text"));
            changes[field->key] = field->state ? PlistValue(std::string(value.get<bool>() ? "YES" : "NO"))
                                               : PlistValue(value.get<std::string>());
        }
        applyPreferenceChanges(changes, events_);
        return ApiReply{200, mailJson()};
    });
}

}  // namespace quillon
