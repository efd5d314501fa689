#include "cli/DaemonCalls.h"

#include <cstdio>

#include "platform/TextUtil.h"

namespace quillon {

namespace {

// The daemon's answer is trusted for its shape only as far as checked here:
// a missing or mistyped field prints as empty rather than throwing.
std::string text(const nlohmann::json& row, const char* key) {
    auto it = row.find(key);
    return it != row.end() && it->is_string() ? printable(it->get<std::string>()) : std::string();
}

std::uint64_t number(const nlohmann::json& row, const char* key) {
    auto it = row.find(key);
    return it != row.end() && it->is_number_unsigned() ? it->get<std::uint64_t>() : 0;
}

std::string columns(const std::string& id, const std::string& name, const std::string& status,
                    const std::string& received, const std::string& relay) {
    char line[1024];
    std::snprintf(line, sizeof line, "%-5s %-24s %-40s %10s  %s", id.c_str(), name.c_str(), status.c_str(),
                  received.c_str(), relay.c_str());
    std::string out(line);
    while (!out.empty() && out.back() == ' ') out.pop_back();
    return out;
}

}  // namespace

std::optional<DaemonClient> requireDaemon() {
    DaemonLookup found = DaemonClient::find();
    if (found.client) return std::move(found.client);
    std::fprintf(stderr, "quillon: %s\n", found.problem.empty() ? kNoDaemonMessage : found.problem.c_str());
    return std::nullopt;
}

std::string rowColumnsHeader() { return columns("ID", "NAME", "STATUS", "RECEIVED", "RELAY"); }

std::string rowColumns(const nlohmann::json& row) {
    char mib[32];
    std::snprintf(mib, sizeof mib, "%.1f MiB", static_cast<double>(number(row, "bytes")) / (1024.0 * 1024.0));
    std::uint64_t port = number(row, "relayPort");
    return columns(std::to_string(number(row, "id")), text(row, "connName"), text(row, "status"), mib,
                   port ? std::to_string(port) : "-");
}

std::string rowSummary(const char* verb, const nlohmann::json& row) {
    return std::string(verb) + " " + std::to_string(number(row, "id")) + ": " + text(row, "connName");
}

OperationResult resultOf(const DaemonClient::Reply& reply) {
    if (reply.ok()) return OperationResult::done(reply.body);
    using Status = OperationResult::Status;
    return OperationResult::failure(reply.status == 400   ? Status::BadInput
                                    : reply.status == 404 ? Status::NotFound
                                    : reply.status == 409 ? Status::Conflict
                                                          : Status::Failed,
                                    reply.error);
}

bool findDaemonForChanges(std::optional<DaemonClient>& daemon) {
    DaemonLookup found = DaemonClient::find();
    if (!found.problem.empty()) {
        // Writing the files behind a daemon's back would lose the change at its
        // next save: say so instead.
        std::fprintf(stderr, "quillon: %s\n", found.problem.c_str());
        return false;
    }
    daemon = std::move(found.client);
    return true;
}

}  // namespace quillon
