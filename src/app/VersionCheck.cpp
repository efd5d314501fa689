#include "app/VersionCheck.h"

#include <cctype>
#include <climits>

#include "platform/Desktop.h"
#include "platform/Localization.h"
#include "platform/Log.h"
#include "platform/Timing.h"
#include "store/Preferences.h"

namespace quillon {

namespace {

constexpr const char* kCompletionMethod = "isNewVersionAvailable";

std::string versionHost() { return Preferences::preferences()->getParam(Preferences::kVersionHostKey); }

}  // namespace

VersionCheck::VersionCheck(UserInterface& ui, WebPageOpener openWebPage)
    : ui_(ui), openWebPage_(std::move(openWebPage)) {
    if (!openWebPage_) openWebPage_ = [](const std::string& url) { return Desktop::openWith("", url); };
}

void VersionCheck::checkNewVersion(bool report) {
    if (versionLoader_) {
        ui_.beep();
        return;
    }
    const std::string host = versionHost();
    if (host.empty()) {
        // No maker's server is set: nothing to ask. A check the user asked
        // for still answers, with a beep.
        if (report) ui_.beep();
        return;
    }
    message_ = report;
    versionLoader_ = URLDataLoader::dataLoaderWithURL(
        "http://" + host + kVersionFile, timing().versionCheckTimeout, kCompletionMethod,
        [this](const std::string& method, URLDataLoader& loader) {
            if (method == kCompletionMethod) isNewVersionAvailable(loader);
        });
    setState({Outcome::running});
}

void VersionCheck::isNewVersionAvailable(URLDataLoader& loader) {
    if (&loader != versionLoader_.get()) return;
    std::optional<Bytes> data;
    if (loader.status() == URLDataLoader::Status::finished) data = loader.data();
    // Released first, so that a check can start again from the alerts below;
    // `loader` is gone from here on.
    versionLoader_.reset();

    // A finished download whose file has gone from /tmp meanwhile counts as failed.
    if (!data) {
        Log::line("Unable to check version of QLN");
        setState({Outcome::failed});
        if (message_) {
            showAlert("ERROR_VERSION_CHECK", "Version check failed", "ERROR_VERSION_CHECK_LONG",
                      "The version information could not be downloaded.");
        }
        return;
    }
    const int latest = leadingInteger(asText(*data));
    if (kThisVersion < latest) {
        setState({Outcome::newVersion, latest});
        displayNewVersion();
    } else {
        setState({Outcome::upToDate});
        if (message_) {
            showAlert("MSG_VERSION_UPTODATE", "Quillon is up to date", "MSG_VERSION_UPTODATE_LONG",
                      "You are running the latest version.");
        }
    }
}

void VersionCheck::displayNewVersion() {
    bool open =
        ui_.confirm(localized("MSG_NEW_VERSION", "A new version is available"),
                    localized("MSG_NEW_VERSION_LONG", "A newer version of Quillon can be downloaded."),
                    localized("BTN_OK", "OK"), localized("BTN_CANCEL", "Cancel"));
    if (open) loadWebSite();
}

void VersionCheck::loadWebSite() {
    const std::string host = versionHost();
    if (host.empty()) return;
    openWebPage_("http://" + host + "/");
}

int VersionCheck::leadingInteger(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    long long value = 0;
    for (; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])); ++i) {
        value = value * 10 + (text[i] - '0');
        if (value > INT_MAX) return negative ? INT_MIN : INT_MAX;
    }
    return static_cast<int>(negative ? -value : value);
}

void VersionCheck::setState(State state) {
    if (state == state_) return;
    state_ = state;
    if (changed_) changed_(state_);
}

void VersionCheck::showAlert(const char* titleKey, const char* title, const char* messageKey,
                             const char* message) {
    // One button: "BTN_OK".
    ui_.alert(titleKey, localized(titleKey, title) + "\n" + localized(messageKey, message));
}

}  // namespace quillon
