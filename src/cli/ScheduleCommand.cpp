#include "cli/ScheduleCommand.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "app/ScheduleOperations.h"
#include "cli/DaemonCalls.h"
#include "cli/DaemonClient.h"
#include "platform/Home.h"
#include "platform/TextUtil.h"
#include "schedule/ScheduleRuleForm.h"
#include "schedule/Schedules.h"
#include "store/Bookmark.h"
#include "store/BookmarkFolder.h"

namespace quillon {

namespace {

struct ScheduleArgs {
    std::string bookmark;
    std::string name;
    std::string days;
    std::string at;
    std::string runFor;
    std::string from;
    std::string to;
    bool relayOnly = false;
    bool listen = false;
    std::string id;
    bool json = false;
};

std::unique_ptr<Schedules> openSchedules() {
    // The command line opens no connections and runs no tick.
    return std::make_unique<Schedules>(std::string(), AbstractRule::Starter(), Schedules::Clock(),
                                       Schedules::Ticking::Off);
}

std::string ruleLine(const nlohmann::json& j) {
    std::string when;
    if (j["type"] == "weekly") {
        std::string days;
        for (const auto& d : j["days"]) days += (days.empty() ? "" : ",") + d.get<std::string>();
        when =
            "weekly " + days + " at " + j["at"].get<std::string>() + " for " + j["runFor"].get<std::string>();
    } else {
        when = "once " + j["from"].get<std::string>() + " to " + j["to"].get<std::string>();
    }
    if (j["relayOnly"].get<bool>()) when += ", relay only";
    if (j["listen"].get<bool>()) when += ", listen";
    return std::to_string(j["id"].get<std::uint32_t>()) + "\t" + (j["active"].get<bool>() ? "on" : "off") +
           "\t" + printable(j["name"].get<std::string>()) + "\t" + when + "\t" +
           printable(j["bookmark"].get<std::string>());
}

int report(const ScheduleOperations::Result& result, bool json, const char* verb) {
    using Status = ScheduleOperations::Result::Status;
    if (result.status == Status::BadInput || result.status == Status::NotFound)
        throw UsageError(result.error);
    if (result.status == Status::Failed) {
        std::fprintf(stderr, "quillon: %s\n", result.error.c_str());
        return 1;
    }
    if (json)
        std::printf("%s\n", result.value.dump(2).c_str());
    else
        std::printf("%s %s\n", verb, ruleLine(result.value).c_str());
    return 0;
}

// A call to the running daemon, as the operation's result.
ScheduleOperations::Result viaDaemon(const DaemonClient& daemon, std::string_view method,
                                     const std::string& path, const nlohmann::json& body = nullptr) {
    return resultOf(daemon.request(method, path, body));
}

nlohmann::json formJson(const ScheduleRuleForm& form) {
    nlohmann::json j = {{"bookmark", form.bookmark}, {"relayOnly", form.relayOnly}, {"listen", form.listen}};
    if (!form.name.empty()) j["name"] = form.name;
    if (form.kind == ScheduleRuleForm::Kind::Weekly) {
        j["days"] = nlohmann::json::array();
        for (int day : form.days) j["days"].push_back(ScheduleRuleForm::weekdayName(day));
        j["at"] = form.at;
        j["runFor"] = form.runFor;
    } else {
        j["from"] = form.from;
        j["to"] = form.to;
    }
    return j;
}

// The rules or upcoming starts: from the daemon when it runs.
std::optional<nlohmann::json> listed(const char* path, const char* field, bool upcoming) {
    std::optional<DaemonClient> daemon;
    if (!findDaemonForChanges(daemon)) return std::nullopt;
    if (!daemon)
        return upcoming ? ScheduleOperations::upcoming(*openSchedules())
                        : ScheduleOperations::list(*openSchedules());
    auto reply = daemon->request("GET", path);
    if (!reply.ok()) {
        std::fprintf(stderr, "quillon: %s\n", reply.error.c_str());
        return std::nullopt;
    }
    return reply.body[field];
}

int runAdd(const ScheduleArgs& args) {
    ScheduleRuleForm form;
    form.bookmark = ScheduleOperations::bookmarkFile(args.bookmark);
    form.name = args.name;
    form.kind = args.from.empty() && args.to.empty() ? ScheduleRuleForm::Kind::Weekly
                                                     : ScheduleRuleForm::Kind::OneOff;
    form.days = ScheduleOperations::parseDays(args.days);
    form.at = args.at;
    form.runFor = args.runFor;
    form.from = args.from;
    form.to = args.to;
    form.relayOnly = args.relayOnly;
    form.listen = args.listen;
    // Checked before the file is read, so that bad input leaves it alone.
    if (auto fault = form.validate()) throw UsageError(*fault);
    std::optional<DaemonClient> daemon;
    if (!findDaemonForChanges(daemon)) return 1;
    if (daemon)
        return report(viaDaemon(*daemon, "POST", "/api/schedules", formJson(form)), args.json, "Added");
    auto schedules = openSchedules();
    return report(ScheduleOperations::add(*schedules, form, std::chrono::system_clock::now()), args.json,
                  "Added");
}

int runList(const ScheduleArgs& args) {
    auto found = listed("/api/schedules", "rules", false);
    if (!found) return 1;
    const nlohmann::json& list = *found;
    if (args.json) {
        std::printf("%s\n", list.dump(2).c_str());
        return 0;
    }
    for (const auto& j : list) std::printf("%s\n", ruleLine(j).c_str());
    return 0;
}

int runUpcoming(const ScheduleArgs& args) {
    auto found = listed("/api/schedules/upcoming", "actions", true);
    if (!found) return 1;
    const nlohmann::json& list = *found;
    if (args.json) {
        std::printf("%s\n", list.dump(2).c_str());
        return 0;
    }
    for (const auto& j : list) {
        std::string stop = j["stop"].is_null() ? std::string("-") : j["stop"].get<std::string>();
        std::printf("%s\t%s\t%s\t%u\n", j["start"].get<std::string>().c_str(), stop.c_str(),
                    printable(j["name"].get<std::string>()).c_str(), j["id"].get<std::uint32_t>());
    }
    return 0;
}

int runChange(const ScheduleArgs& args, const char* what) {
    if (!ScheduleOperations::parseId(args.id))
        throw UsageError("not a rule id: '" + printable(args.id) + "'");
    const std::string verb = what;
    std::optional<DaemonClient> daemon;
    if (!findDaemonForChanges(daemon)) return 1;
    if (daemon) {
        const std::string path = "/api/schedules/" + args.id;
        if (verb == "rm") return report(viaDaemon(*daemon, "DELETE", path), args.json, "Removed");
        bool on = verb == "enable";
        return report(
            viaDaemon(*daemon, "POST", path + (on ? "/enable" : "/disable"), nlohmann::json::object()),
            args.json, on ? "Enabled" : "Disabled");
    }
    auto schedules = openSchedules();
    if (verb == "rm") return report(ScheduleOperations::remove(*schedules, args.id), args.json, "Removed");
    bool on = verb == "enable";
    return report(ScheduleOperations::setActive(*schedules, args.id, on), args.json,
                  on ? "Enabled" : "Disabled");
}

}  // namespace

void addScheduleCommand(CLI::App& app, CommandRunner& runner) {
    auto args = std::make_shared<ScheduleArgs>();
    CLI::App* cmd = app.add_subcommand("schedule", "Add, list, remove, enable or disable schedule rules");
    cmd->require_subcommand(1);
    const char* badInput = "Exits 2 with a one-line reason on bad input.";

    CLI::App* add = cmd->add_subcommand("add", "Record (or relay) a bookmark weekly or once, at set times");
    add->add_option("bookmark", args->bookmark, "Bookmark name (as listed) or .qlnbk file")->required();
    add->add_option("--name", args->name, "Name of the rule and its connection (default: the bookmark's)");
    add->add_option("--days", args->days, "Weekly: the days, e.g. mon,wed (sun ... sat)");
    add->add_option("--at", args->at, "Weekly: the start, local time HH:MM");
    add->add_option("--for", args->runFor, "Weekly: how long, H:MM");
    add->add_option("--from", args->from, "Once: the start, local \"YYYY-MM-DD HH:MM[:SS]\"");
    add->add_option("--to", args->to, "Once: the stop, local \"YYYY-MM-DD HH:MM[:SS]\"");
    add->add_flag("--relay-only", args->relayOnly, "Relay to local players without recording");
    add->add_flag("--listen", args->listen, "Open the relay in the player when the connection starts");
    add->add_flag("--json", args->json, "Print the new rule as JSON");
    add->footer(std::string("Give either --days, --at and --for, or --from and --to. ") + badInput);
    add->callback([args, &runner] { runner = [args] { return runAdd(*args); }; });

    CLI::App* list = cmd->add_subcommand("list", "List the rules with their ids");
    list->add_flag("--json", args->json, "Print the list as JSON");
    list->callback([args, &runner] { runner = [args] { return runList(*args); }; });

    CLI::App* upcoming =
        cmd->add_subcommand("upcoming", "List the starts of the next four weeks, earliest first");
    upcoming->add_flag("--json", args->json, "Print the list as JSON");
    upcoming->callback([args, &runner] { runner = [args] { return runUpcoming(*args); }; });

    for (const auto& [verb, help] :
         {std::pair{"rm", "Remove a rule"}, std::pair{"enable", "Switch a rule on"},
          std::pair{"disable", "Switch a rule off (a running connection goes on)"}}) {
        CLI::App* sub = cmd->add_subcommand(verb, help);
        sub->add_option("id", args->id, "The rule's id, as `quillon schedule list` shows it")->required();
        sub->add_flag("--json", args->json, "Print the rule as JSON");
        sub->footer(badInput);
        sub->callback(
            [args, &runner, what = verb] { runner = [args, what] { return runChange(*args, what); }; });
    }
}

}  // namespace quillon
