#include "cli/PrefsCommand.h"

#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "cli/DaemonCalls.h"
#include "cli/DaemonClient.h"
#include "platform/TextUtil.h"
#include "store/PreferenceRules.h"
#include "store/Preferences.h"

namespace quillon {

namespace {

struct PrefsArgs {
    std::string key;
    std::string value;
    bool json = false;
};

nlohmann::json toJson(const PlistValue& value) {
    switch (value.kind()) {
        case PlistValue::Kind::String:
            return *value.asString();
        case PlistValue::Kind::Integer:
            return *value.asInteger();
        case PlistValue::Kind::Real:
            return *value.asReal();
        case PlistValue::Kind::Boolean:
            return *value.asBoolean();
        case PlistValue::Kind::Date:
            return value.asDate()->unixTime();
        case PlistValue::Kind::Data: {
            const auto& bytes = *value.asData();
            return base64Encode(std::string(bytes.begin(), bytes.end()));
        }
        case PlistValue::Kind::Array: {
            nlohmann::json out = nlohmann::json::array();
            for (const PlistValue& item : *value.asArray()) out.push_back(toJson(item));
            return out;
        }
        case PlistValue::Kind::Dictionary: {
            nlohmann::json out = nlohmann::json::object();
            for (const auto& [k, item] : *value.asDictionary()) out[k] = toJson(item);
            return out;
        }
    }
    return nullptr;
}

std::string toText(const PlistValue& value) {
    if (const PlistValue::Array* items = value.asArray()) {
        std::string out;
        for (const PlistValue& item : *items) {
            if (!out.empty()) out += ", ";
            out += item.text();
        }
        return out;
    }
    return value.text();
}

int runList(const PrefsArgs& args) {
    auto prefs = Preferences::preferences();
    auto all = prefs->container();
    if (args.json) {
        std::printf("%s\n", toJson(PlistValue(all)).dump(2).c_str());
        return 0;
    }
    for (const auto& [key, value] : all)
        std::printf("%s = %s\n", printable(key).c_str(), printable(toText(value)).c_str());
    return 0;
}

int runGet(const PrefsArgs& args) {
    if (args.key.empty()) throw UsageError("the key is empty");
    auto prefs = Preferences::preferences();
    auto value = prefs->objectForKey(args.key);
    if (args.json) {
        nlohmann::json j;
        j["key"] = args.key;
        j["value"] = value ? toJson(*value) : nlohmann::json(prefs->getParam(args.key));
        std::printf("%s\n", j.dump(2).c_str());
        return 0;
    }
    if (value && value->isArray()) {
        for (const PlistValue& item : *value->asArray()) std::printf("%s\n", printable(item.text()).c_str());
        return 0;
    }
    std::printf("%s\n", printable(prefs->getParam(args.key)).c_str());
    return 0;
}

// "Jazz, Blues ,Rock": the genres between the commas, trimmed, empty ones left out.
PlistValue genreList(const std::string& text) {
    PlistValue::Array genres;
    std::size_t start = 0;
    while (start <= text.size() && !text.empty()) {
        std::size_t comma = text.find(',', start);
        std::string item = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        item.erase(0, item.find_first_not_of(' '));
        item.erase(item.find_last_not_of(' ') + 1);
        if (!item.empty()) genres.emplace_back(item);
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    return PlistValue(std::move(genres));
}

int runSet(const PrefsArgs& args) {
    if (args.key.empty()) throw UsageError("the key is empty");
    PlistValue value = args.key == Preferences::kGenresKey ? genreList(args.value) : PlistValue(args.value);
    std::optional<DaemonClient> daemon;
    if (!findDaemonForChanges(daemon)) return 1;
    if (daemon) {
        // The daemon holds the settings and saves them: the change goes there.
        nlohmann::json given = args.value;
        if (const auto* genres = value.asArray()) {
            given = nlohmann::json::array();
            for (const auto& g : *genres) given.push_back(*g.asString());
        }
        auto reply = daemon->request("PUT", "/api/prefs", {{args.key, given}});
        if (reply.status == 400) throw UsageError(reply.error);
        if (!reply.ok()) {
            std::fprintf(stderr, "quillon: %s\n", reply.error.c_str());
            return 1;
        }
        const nlohmann::json& now = reply.body[args.key];
        std::printf("%s = %s\n", printable(args.key).c_str(),
                    printable(now.is_string() ? now.get<std::string>() : now.dump()).c_str());
        return 0;
    }
    auto prefs = Preferences::preferences();
    auto applied =
        PreferenceRules::apply(*prefs, {{args.key, std::move(value)}}, PreferenceRules::UnknownKeys::store);
    if (!applied.ok()) throw UsageError(applied.reason);
    if (!prefs->saveToFile()) {
        std::fprintf(stderr, "quillon: cannot write %s\n", prefs->filePath().c_str());
        return 1;
    }
    std::printf("%s = %s\n", printable(args.key).c_str(),
                printable(toText(applied.written.at(args.key))).c_str());
    return 0;
}

}  // namespace

void addPrefsCommand(CLI::App& app, CommandRunner& runner) {
    auto args = std::make_shared<PrefsArgs>();
    CLI::App* cmd = app.add_subcommand("prefs", "Show or change the settings of the preferences file");
    cmd->require_subcommand(1);

    CLI::App* list = cmd->add_subcommand("list", "List every setting (states as YES or NO)");
    list->add_flag("--json", args->json, "Print the settings as JSON");
    list->callback([args, &runner] { runner = [args] { return runList(*args); }; });

    CLI::App* get = cmd->add_subcommand("get", "Print one setting (empty when unset)");
    get->add_option("key", args->key, "Setting key, e.g. relayPort")->required();
    get->add_flag("--json", args->json, "Print the setting as JSON");
    get->callback([args, &runner] { runner = [args] { return runGet(*args); }; });

    CLI::App* set = cmd->add_subcommand("set", "Change one setting and save the preferences file");
    set->add_option("key", args->key, "Setting key, e.g. reconnect")->required();
    set->add_option("value", args->value,
                    "New value (YES/NO for on/off settings; comma-separated for _genres)")
        ->required();
    set->callback([args, &runner] { runner = [args] { return runSet(*args); }; });
}

}  // namespace quillon
