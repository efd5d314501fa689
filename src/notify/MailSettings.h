#pragma once
// Where notices go: the SMTP server ("host" or "host:port"), the sender and
// recipient addresses, and optionally a user name with the path of a file that
// holds the password (its first line). The password itself is never stored in
// the preferences: only the file's path is.
//
// The preferences keys: "mailServer", "mailFrom", "mailTo", "mailUser",
// "mailPasswordFile", and the switches of the notices, all off by default:
// "mailOnScheduleEnd", "mailOnDiskFull", "mailOnGiveUp".
//
// Thread contract: a value; read the preferences on any thread (single
// accesses), hand copies to the thread that sends.
#include <optional>
#include <string>

#include "store/RequestOwner.h"

namespace quillon {

class Preferences;

class MailSettings : public RequestOwner {
public:
    static constexpr const char* kServerKey = "mailServer";
    static constexpr const char* kFromKey = "mailFrom";
    static constexpr const char* kToKey = "mailTo";
    static constexpr const char* kUserKey = "mailUser";
    static constexpr const char* kPasswordFileKey = "mailPasswordFile";
    static constexpr const char* kOnScheduleEndKey = "mailOnScheduleEnd";
    static constexpr const char* kOnDiskFullKey = "mailOnDiskFull";
    static constexpr const char* kOnGiveUpKey = "mailOnGiveUp";
    // A password file is a line, not a document.
    static constexpr std::size_t kMaxPasswordFile = 4096;

    std::string server;
    std::string from;
    std::string to;
    std::string user;
    std::string passwordFile;

    static MailSettings fromPreferences(const Preferences& prefs);

    // Why these settings cannot send (one line); empty when they can.
    std::string problem() const;
    // Reads the password file (when there is a user and a file): false, with
    // `why` set, when it cannot be read.
    bool loadPassword(std::string& why);

    // ---- RequestOwner
    std::string host() const override;
    // The port after the last ":", 0 when there is none.
    int port() const override;
    bool useAuthentication() const override { return !user.empty() && password_.has_value(); }
    std::string username() const override { return user; }
    std::string password() const override { return password_.value_or(""); }

private:
    std::optional<std::string> password_;
};

}  // namespace quillon
