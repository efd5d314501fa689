#pragma once
// The settings over the daemon's API: the preferences (read; changed as a
// whole set, checked by the preference rules, saved at once) and the version
// check (its outcome; a check on request).
//
// Thread contract: routes are added before the server starts; handlers run on
// the main loop.
#include <optional>

#include <nlohmann/json.hpp>

#include "store/PreferenceRules.h"

namespace quillon {

class ApiServer;
class Controller;
class EventHub;

void addSettingsRoutes(ApiServer& server, Controller& controller, EventHub& events);

// A JSON value as the preference rules take it (true/false as "YES"/"NO",
// numbers as text); nothing for what no setting holds.
std::optional<PlistValue> jsonToPlist(const nlohmann::json& value);

// Applies `changes` to the preferences as one set, saves them and publishes a
// "prefs" event; raises ApiError 400 when the rules refuse them, 500 when they
// cannot be saved.
void applyPreferenceChanges(const PreferenceChanges& changes, EventHub& events);

}  // namespace quillon
