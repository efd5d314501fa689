#include "app/DaemonUserInterface.h"

#include "app/ActivityController.h"
#include "app/ActivityJson.h"
#include "app/ActivityViewModel.h"
#include "app/EventHub.h"
#include "engine/Ripper.h"
#include "platform/Desktop.h"
#include "platform/Log.h"
#include "store/Preferences.h"

namespace quillon {

void DaemonUserInterface::alert(const std::string& key, const std::string& text) {
    Log::warning(text);
    events_.publish({{"type", "alert"}, {"key", key}, {"text", text}});
}

void DaemonUserInterface::beep() { events_.publish({{"type", "beep"}}); }

bool DaemonUserInterface::confirm(const std::string& title, const std::string& message, const std::string&,
                                  const std::string&) {
    events_.publish({{"type", "alert"}, {"key", title}, {"text", message}});
    return false;
}

std::optional<std::string> DaemonUserInterface::chooseFolder(const std::string& key,
                                                             const std::string& message) {
    alert(key, message);
    return std::nullopt;
}

bool DaemonUserInterface::reveal(const std::string& path) { return Desktop::reveal(path); }

bool DaemonUserInterface::openWithPlayer(const std::string& path) {
    return Desktop::openWith(Preferences::preferences()->getParam("playerCommand"), path);
}

void DaemonUserInterface::activityChanged() {
    if (!activity_) return;
    nlohmann::json event = activityJson(ActivityViewModel::make(*activity_));
    event["type"] = "activity";
    events_.publish(event);
}

void DaemonUserInterface::connectionChanged(const Ripper& c) {
    events_.publish({{"type", "connection"},
                     {"id", c.id()},
                     {"state", static_cast<int>(c.ripperState())},
                     {"status", c.status()},
                     {"title", c.title()},
                     {"track", c.currentTrack()},
                     {"bytes", c.bytesRead()}});
}

}  // namespace quillon
