#pragma once
// What the application shell asks of whatever shows it to the user (the web UI,
// the command line, a test): error sheets, beeps, the confirmation before a
// removal, the folder chooser, and the hand-off of files to desktop programs.
// The shell never draws; it states what to show and renders nothing itself.
//
// Thread contract: every member is called on the main thread. A renderer must
// not destroy the caller from inside a call (the activity list is not changed
// from within activityChanged).
#include <optional>
#include <string>

namespace quillon {

class Ripper;

class UserInterface {
public:
    virtual ~UserInterface() = default;

    // An error sheet: the localisation key and its text.
    virtual void alert(const std::string& key, const std::string& text) = 0;
    // The system beep: an action that changed nothing.
    virtual void beep() = 0;
    // A warning with a default and an alternate button; true for the default.
    virtual bool confirm(const std::string& title, const std::string& message,
                         const std::string& defaultButton, const std::string& alternateButton) = 0;
    // Shows the message (its key and text), then lets the user pick a folder;
    // nothing when the user cancels.
    virtual std::optional<std::string> chooseFolder(const std::string& key, const std::string& message) = 0;
    // Shows a file selected in its folder, or a folder; false when refused.
    virtual bool reveal(const std::string& path) = 0;
    // Opens a file with the player; false when the player refused.
    virtual bool openWithPlayer(const std::string& path) = 0;

    // Whether a window exists that can show sheets and choosers; checks that
    // may ask the user only do so when it does.
    virtual bool interactive() const { return false; }
    // The activity list, a connection's state or the selection changed: time
    // to render the activity view again. Calls are batched by the caller.
    virtual void activityChanged() {}
    // A connection's state changed, told at once (unbatched) on the main
    // thread, possibly while the connection is being made: read it, change
    // nothing.
    virtual void connectionChanged(const Ripper& /*connection*/) {}
};

}  // namespace quillon
