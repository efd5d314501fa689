#include "app/SettingsApi.h"

#include "app/ApiServer.h"
#include "app/Controller.h"
#include "app/EventHub.h"
#include "store/PreferenceRules.h"
#include "store/Preferences.h"

namespace quillon {

namespace {

nlohmann::json plistToJson(const PlistValue& value) {
    if (auto s = value.asString()) return *s;
    if (auto list = value.asArray()) {
        nlohmann::json out = nlohmann::json::array();
        for (const auto& item : *list) out.push_back(plistToJson(item));
        return out;
    }
    if (auto n = value.asInteger()) return *n;
    if (auto b = value.asBoolean()) return *b;
    return nullptr;
}

nlohmann::json prefsJson() {
    auto settings = Preferences::preferences()->container();
    nlohmann::json out = nlohmann::json::object();
    for (const auto& [key, value] : settings) out[key] = plistToJson(value);
    nlohmann::json enabled = nlohmann::json::object();
    for (const auto& [key, on] : PreferenceRules::enabledKeys(settings)) enabled[key] = on;
    out["_enabled"] = enabled;
    return out;
}

const char* outcomeName(VersionCheck::Outcome o) {
    switch (o) {
        case VersionCheck::Outcome::none:
            return "none";
        case VersionCheck::Outcome::running:
            return "running";
        case VersionCheck::Outcome::upToDate:
            return "upToDate";
        case VersionCheck::Outcome::newVersion:
            return "newVersion";
        case VersionCheck::Outcome::failed:
            return "failed";
    }
    return "none";
}

nlohmann::json versionJson(const VersionCheck::State& s) {
    nlohmann::json j = {{"state", outcomeName(s.outcome)}, {"latest", nullptr}};
    if (s.outcome == VersionCheck::Outcome::newVersion) j["latest"] = s.newVersion;
    return j;
}

}  // namespace

std::optional<PlistValue> jsonToPlist(const nlohmann::json& value) {
    if (value.is_string()) return PlistValue(value.get<std::string>());
    if (value.is_boolean()) return PlistValue(std::string(value.get<bool>() ? "YES" : "NO"));
    if (value.is_number_integer()) return PlistValue(std::to_string(value.get<std::int64_t>()));
    if (value.is_array()) {
        PlistValue::Array items;
        for (const auto& item : value) {
            if (!item.is_string()) return std::nullopt;
            items.emplace_back(item.get<std::string>());
        }
        return PlistValue(std::move(items));
    }
    return std::nullopt;
}

void applyPreferenceChanges(const PreferenceChanges& changes, EventHub& events) {
    auto prefs = Preferences::preferences();
    auto applied = PreferenceRules::apply(*prefs, changes, PreferenceRules::UnknownKeys::refuse);
    if (!applied.ok()) throw ApiError(400, applied.reason);
    if (!prefs->saveToFile()) throw ApiError(500, "cannot write the preferences file " + prefs->filePath());
    events.publish({{"type", "prefs"}});
}

void addSettingsRoutes(ApiServer& server, Controller& c, EventHub& events) {
    server.route("GET", "/api/prefs", [](const ApiRequest&) { return ApiReply{200, prefsJson()}; });
    server.route("PUT", "/api/prefs", [&events](const ApiRequest& req) {
        PreferenceChanges changes;
        for (const auto& [key, value] : req.body().items()) {
            auto converted = jsonToPlist(value);
            if (!converted) throw ApiError(400, key + ": not a value any setting takes");
            changes[key] = *converted;
        }
        applyPreferenceChanges(changes, events);
        return ApiReply{200, prefsJson()};
    });
    c.versionCheck().setChangeCallback([&events](const VersionCheck::State& s) {
        nlohmann::json event = versionJson(s);
        event["type"] = "version";
        events.publish(event);
    });
    server.route("GET", "/api/version", [&c](const ApiRequest&) {
        return ApiReply{200, versionJson(c.versionCheck().state())};
    });
    server.route("POST", "/api/version/check", [&c](const ApiRequest&) {
        if (c.versionCheck().running()) throw ApiError(409, "a version check is running");
        if (Preferences::preferences()->getParam("versionHost").empty())
            throw ApiError(409, "no version host is set (preference versionHost)");
        c.versionCheck().checkNewVersion(true);
        return ApiReply{200, versionJson(c.versionCheck().state())};
    });
}

}  // namespace quillon
