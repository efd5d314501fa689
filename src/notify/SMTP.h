#pragma once
// One plain-text e-mail through an SMTP server, optionally after AUTH LOGIN.
// Set sender, recipient, subject and body, then connect() runs the whole
// dialogue: greeting, EHLO (HELO when refused), AUTH LOGIN when a password is
// set, MAIL, RCPT, DATA with the message, QUIT. Every read and write waits at
// most timing().mailTimeout seconds; replies are read line by line, each line
// and the number of lines bounded.
//
// Thread contract: connect() blocks for the whole dialogue and runs on a
// worker thread; one object sends one message and is used by that thread
// alone, except for interrupt() (see AbstractRequest), which any thread may
// call to end a dialogue that waits.
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "store/PasswordedRequest.h"

namespace quillon {

class SMTP : public PasswordedRequest {
public:
    static constexpr const char* kSenderMailKey = "_request_SENDERMAIL";
    static constexpr const char* kSenderNameKey = "_request_SENDERNAME";
    static constexpr const char* kDestMailKey = "_request_DESTMAIL";
    static constexpr const char* kSubjectKey = "_request_SUBJECT";
    static constexpr const char* kMailDataKey = "_request_MAILDATA";
    static constexpr int kDefaultPort = 25;
    // Servers keep reply lines to 512 bytes; a line past this bound is no SMTP.
    static constexpr std::size_t kMaxReplyLine = 2048;
    // The most lines one reply may have (EHLO lists a dozen or so extensions).
    static constexpr int kMaxReplyLines = 100;

    explicit SMTP(RequestOwner* owner = nullptr);

    int defaultPort() const override { return kDefaultPort; }

    // Each raises "Invalid sender mail" / "Invalid dest mail" for an empty
    // text and stores nothing then.
    void setSenderMail(const std::string& address);
    std::string senderMail() const;
    void setSenderName(const std::string& name);
    std::string senderName() const;
    void setDestMail(const std::string& address);
    std::string destMail() const;
    void setSubject(const std::string& subject);
    std::string subject() const;
    // Stores the body after its first "\r\n.\r\n" has had its dot replaced by
    // a carriage return, so that line does not end the message.
    void setMailData(const std::string& body);

    // Runs the dialogue. On any failure disconnects and raises NamedException
    // "Error sending mail ..." with reason "Error sending mail: <why>".
    void connect() override;

    // Reads one reply (all its lines) and judges its code.
    bool readCommand();
    // Sends the line and "\r\n".
    void writeCommand(const std::string& text);
    // Accepted: 220, 221, 235, 250, 251, 334, 354. A refusal is logged
    // ("Service unavailable" for 421, nothing for 550, else "Error while connecting").
    static bool parseCommand(int code);

    bool EHLOCommand();
    bool HELOCommand();
    bool MAILCommand();
    bool RCPTCommand();
    bool RSETCommand();
    // DATA and, when accepted, the message and its ending ".".
    bool DATACommand();

    // The whole message: headers, a blank line, the body.
    std::string mailData() const;
    static std::string currentDate();

    // The last reply read, its lines joined by "\r\n" (tests, failure texts).
    const std::string& lastReply() const { return lastReply_; }

private:
    // Sends a line whose text must not reach the log (credentials).
    void writeSecret(const std::string& text);
    void send(const std::string& line);
    std::string readLine();
    void dialogue();

    std::string lastReply_;
};

}  // namespace quillon
