#pragma once
// The application as a whole, without windows: it creates the modules in their
// order (activity list, bookmarks, station directory, schedules, history),
// writes the start-up settings, checks the storage folders three seconds after
// start (asking, through the question board, for the folders the user may
// choose), watches the free space of the recordings volume every minute, opens
// bookmark files handed to it, and at quit stores the window state of the web
// page ("MainWinPos") and saves the preferences.
//
// Thread contract: main thread only, construction and destruction included.
// One instance per process; controller() returns it while it lives.
#include <memory>
#include <optional>
#include <string>

#include "app/ActivityController.h"
#include "app/QuestionBoard.h"
#include "app/StorageFolder.h"
#include "app/VersionCheck.h"
#include "notify/MailNotifier.h"
#include "platform/MainLoop.h"
#include "schedule/Schedules.h"

namespace quillon {

class UserInterface;

class Controller {
public:
    struct Options {
        ConnectionServices services;
        FreeSpace::Query freeSpaceQuery;  // empty: the real volume
        Schedules::Clock clock;           // empty: the system clock
        std::string schedulesPath;        // empty: the preference "schedulesPath"
    };

    static constexpr double kSetupDelay = 3;

    Controller(UserInterface& ui, QuestionBoard& questions, Options options = {});
    ~Controller();
    Controller(const Controller&) = delete;
    Controller& operator=(const Controller&) = delete;

    // The running application, if any.
    static Controller* controller();

    // Start-up: settings and start-up keys, the window state, then the storage
    // folders and the free-space watch three seconds later.
    void start();
    // The folders and the free-space watch (what start() schedules).
    void setupControllers();
    // Verifies one module's folder; with `ask`, an unusable folder that the
    // user may replace becomes a question.
    bool verifyStorageFolder(StorageFolder::Module module, bool ask);

    // A bookmark file handed to the application: recorded when it loads, a
    // beep otherwise. Always true, as the file was taken.
    bool openFile(const std::string& path);
    // The connection openFile started, if any.
    Ripper* openFileConnection(const std::string& path);

    // Stores the window state and saves the preferences.
    void quit();

    // The web page's window state, "{{x, y}, {w, h}}".
    const std::string& mainWindowFrame() const { return mainWindowFrame_; }
    void setMainWindowFrame(std::string frame) { mainWindowFrame_ = std::move(frame); }

    ActivityController& activity() { return *activity_; }
    Schedules& schedules() { return *schedules_; }
    VersionCheck& versionCheck() { return *versionCheck_; }
    MailNotifier& mailNotifier() { return *mail_; }
    UserInterface& userInterface() { return ui_; }
    QuestionBoard& questions() { return questions_; }

private:
    UserInterface& ui_;
    QuestionBoard& questions_;
    // Before the list that tells it of connections' ends, so that it outlives it.
    std::unique_ptr<MailNotifier> mail_;
    std::unique_ptr<ActivityController> activity_;
    std::unique_ptr<Schedules> schedules_;
    std::unique_ptr<VersionCheck> versionCheck_;
    std::string mainWindowFrame_;
    std::optional<MainLoop::TimerId> setupTimer_;
};

}  // namespace quillon
