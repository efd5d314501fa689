#pragma once
// What the commands that talk to `quillon serve` share: finding the daemon
// with one message when there is none, and one line per connection row of the
// activity list (a Row of docs/API.md).
//
// Thread contract: stateless functions; any thread, but requireDaemon prints
// to stderr and is meant for the command's own thread.
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "app/OperationResult.h"
#include "cli/DaemonClient.h"

namespace quillon {

inline constexpr const char* kNoDaemonMessage = "no daemon is running (start it with: quillon serve)";

// The running daemon's client; none after printing why to stderr (no daemon,
// or what stands in the way of reaching it).
std::optional<DaemonClient> requireDaemon();

// For commands that work on the files when no daemon runs: the daemon's
// client when one runs (it owns the files then); nothing when none runs. False,
// after printing why, when something is in the way of telling.
bool findDaemonForChanges(std::optional<DaemonClient>& daemon);

// A daemon call's reply as the operation's result: 400 is bad input, 404 not
// found, 409 a conflict, anything else that failed a failure.
OperationResult resultOf(const DaemonClient::Reply& reply);

// "ID  NAME  STATUS  RECEIVED  RELAY" for `status`, and the header above them.
std::string rowColumns(const nlohmann::json& row);
std::string rowColumnsHeader();

// "Started 3: Name" style line: a verb, the id and the connection's name.
std::string rowSummary(const char* verb, const nlohmann::json& row);

}  // namespace quillon
