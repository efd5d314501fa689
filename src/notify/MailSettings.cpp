#include "notify/MailSettings.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/FileHandle.h"
#include "platform/TextUtil.h"
#include "store/Preferences.h"

namespace quillon {

namespace {

bool isPort(std::string_view text) {
    return !text.empty() && text.size() <= 5 &&
           text.find_first_not_of("0123456789") == std::string_view::npos && intValue(text) >= 1 &&
           intValue(text) <= 65535;
}

}  // namespace

MailSettings MailSettings::fromPreferences(const Preferences& prefs) {
    MailSettings s;
    s.server = prefs.getParam(kServerKey);
    s.from = prefs.getParam(kFromKey);
    s.to = prefs.getParam(kToKey);
    s.user = prefs.getParam(kUserKey);
    s.passwordFile = prefs.getParam(kPasswordFileKey);
    return s;
}

std::string MailSettings::host() const {
    const std::size_t colon = server.rfind(':');
    return colon == std::string::npos ? server : server.substr(0, colon);
}

int MailSettings::port() const {
    const std::size_t colon = server.rfind(':');
    if (colon == std::string::npos) return 0;
    const std::string_view digits = std::string_view(server).substr(colon + 1);
    return isPort(digits) ? intValue(digits) : -1;
}

std::string MailSettings::problem() const {
    if (host().empty()) return "no mail server is set (" + std::string(kServerKey) + ")";
    if (port() < 0) return "the mail server's port must be a number from 1 to 65535";
    if (from.empty()) return "no sender address is set (" + std::string(kFromKey) + ")";
    if (to.empty()) return "no recipient address is set (" + std::string(kToKey) + ")";
    if (!user.empty() && passwordFile.empty())
        return "a mail user needs a password file (" + std::string(kPasswordFileKey) + ")";
    return {};
}

bool MailSettings::loadPassword(std::string& why) {
    password_.reset();
    if (user.empty() || passwordFile.empty()) return true;
    FileHandle file(::open(passwordFile.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.isOpen()) {
        why = "cannot read the password file " + passwordFile + ": " + std::strerror(errno);
        return false;
    }
    std::string text;
    char chunk[512];
    while (true) {
        ssize_t got = ::read(file.fd(), chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            why = "cannot read the password file " + passwordFile + ": " + std::strerror(errno);
            return false;
        }
        if (got == 0) break;
        text.append(chunk, static_cast<std::size_t>(got));
        if (text.size() > kMaxPasswordFile) {
            why = "the password file " + passwordFile + " is too long to hold a password";
            return false;
        }
    }
    // The first line, without its line end.
    text = text.substr(0, text.find_first_of("\r\n"));
    if (text.empty()) {
        why = "the password file " + passwordFile + " is empty";
        return false;
    }
    password_ = std::move(text);
    return true;
}

}  // namespace quillon
