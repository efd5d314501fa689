#pragma once
// The daemon's user interface: it draws nothing and asks nothing itself. What a
// window would show becomes an event on the change feed (the activity list,
// one connection, alerts, beeps), every alert is also logged, and the desktop
// hand-offs run the configured programs. It never answers a confirmation with
// yes: a removal through the API says so in its own call.
//
// Thread contract: main thread only, as every UserInterface.
#include <functional>

#include "app/UserInterface.h"

namespace quillon {

class ActivityController;
class EventHub;

class DaemonUserInterface : public UserInterface {
public:
    explicit DaemonUserInterface(EventHub& events) : events_(events) {}

    // The list whose changes are published; set once it exists.
    void setActivity(const ActivityController* activity) { activity_ = activity; }

    void alert(const std::string& key, const std::string& text) override;
    void beep() override;
    bool confirm(const std::string& title, const std::string& message, const std::string& defaultButton,
                 const std::string& alternateButton) override;
    std::optional<std::string> chooseFolder(const std::string& key, const std::string& message) override;
    bool reveal(const std::string& path) override;
    bool openWithPlayer(const std::string& path) override;
    void activityChanged() override;
    void connectionChanged(const Ripper& connection) override;

private:
    EventHub& events_;
    const ActivityController* activity_ = nullptr;
};

}  // namespace quillon
