#pragma once
// The application's check for a newer version: downloads "/qlnv.txt" from the
// maker's web server (the preference "versionHost"; empty: no check) and
// compares its leading number with this build's, 172 for "1.7.2". A newer
// number offers the maker's web site; the up-to-date and failure outcomes are
// shown only when the user asked for the check. The outcome is also kept as a
// plain value, with a callback on every change, for the daemon's API.
//
// Thread contract: main thread only. The download runs on its loader's thread
// and completes on the main thread; destroying the check cancels it, and no
// callback runs afterwards. At most one check runs at a time.
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "app/UserInterface.h"
#include "net/URLDataLoader.h"

namespace quillon {

class VersionCheck {
public:
    static constexpr int kThisVersion = 172;
    static constexpr const char* kVersionFile = "/qlnv.txt";

    enum class Outcome { none, running, upToDate, newVersion, failed };
    struct State {
        Outcome outcome = Outcome::none;
        int newVersion = 0;  // the number offered, with Outcome::newVersion
        bool operator==(const State&) const = default;
    };
    // Opens a web page in the user's browser; false when it cannot.
    using WebPageOpener = std::function<bool(const std::string& url)>;

    // An empty opener means the desktop's (xdg-open).
    explicit VersionCheck(UserInterface& ui, WebPageOpener openWebPage = {});
    VersionCheck(const VersionCheck&) = delete;
    VersionCheck& operator=(const VersionCheck&) = delete;

    // Starts a check unless one runs (then it only beeps). `report`: show the
    // up-to-date and failure outcomes too (the user asked).
    void checkNewVersion(bool report);
    // The download's completion: the outcome, its alert, and the loader released.
    void isNewVersionAvailable(URLDataLoader& loader);
    // Offers the new version; the default button opens the web site.
    void displayNewVersion();
    // Opens the maker's web site ("http://" + versionHost + "/").
    void loadWebSite();

    bool running() const { return versionLoader_ != nullptr; }
    const State& state() const { return state_; }
    void setChangeCallback(std::function<void(const State&)> changed) { changed_ = std::move(changed); }

    // The text's leading decimal integer (blanks and a sign allowed before it,
    // clamped to int); 0 when it has none.
    static int leadingInteger(std::string_view text);

private:
    void setState(State state);
    void showAlert(const char* titleKey, const char* title, const char* messageKey, const char* message);

    UserInterface& ui_;
    WebPageOpener openWebPage_;
    std::unique_ptr<URLDataLoader> versionLoader_;
    bool message_ = false;  // whether the running check reports every outcome
    State state_;
    std::function<void(const State&)> changed_;
};

}  // namespace quillon
