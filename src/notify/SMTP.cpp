#include "notify/SMTP.h"

#include <fmt/format.h>

#include "platform/Log.h"
#include "platform/NamedException.h"
#include "platform/TextUtil.h"
#include "platform/TimeUtil.h"
#include "platform/Timing.h"

namespace quillon {

namespace {

[[noreturn]] void fail(const char* text) { throw NamedException(text, text); }

void require(bool accepted, const char* text) {
    if (!accepted) fail(text);
}

// Deliberate: a line break in an address would end the command early and let
// the rest go to the server as commands of its own; no address has one.
bool isOneLine(std::string_view text) { return text.find_first_of("\r\n") == std::string_view::npos; }

// Header values stay on their line for the same reason.
std::string oneLine(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (c == '\r' || c == '\n') c = ' ';
    return out;
}

}  // namespace

SMTP::SMTP(RequestOwner* owner) : PasswordedRequest(owner) { setPort(kDefaultPort); }

void SMTP::setSenderMail(const std::string& address) {
    if (address.empty() || !isOneLine(address))
        throw NamedException("Invalid sender mail", "Invalid sender mail");
    setString(address, kSenderMailKey);
}

std::string SMTP::senderMail() const { return stringForKey(kSenderMailKey).value_or(""); }

void SMTP::setSenderName(const std::string& name) { setString(oneLine(name), kSenderNameKey); }

std::string SMTP::senderName() const { return stringForKey(kSenderNameKey).value_or(""); }

void SMTP::setDestMail(const std::string& address) {
    if (address.empty() || !isOneLine(address))
        throw NamedException("Invalid dest mail", "Invalid dest mail");
    setString(address, kDestMailKey);
}

std::string SMTP::destMail() const { return stringForKey(kDestMailKey).value_or(""); }

void SMTP::setSubject(const std::string& subject) { setString(oneLine(subject), kSubjectKey); }

std::string SMTP::subject() const { return stringForKey(kSubjectKey).value_or(""); }

void SMTP::setMailData(const std::string& body) {
    std::string data = body;
    // Only the first such line is changed, and a body that begins with ".\r\n"
    // is left alone: the message text is ours, made without such lines.
    if (std::size_t at = data.find("\r\n.\r\n"); at != std::string::npos) data[at + 2] = '\r';
    setString(data, kMailDataKey);
}

std::string SMTP::mailData() const {
    const std::string from = senderMail();
    std::string text = fmt::format("User-Agent: {}\r\nDate: {}\r\nSubject: {}\r\nFrom: \"{}\" <{}>\r\n",
                                   userAgent(), currentDate(), subject(), senderName(), from);
    // The reply-to name is the address itself, as it always was.
    text += fmt::format(
        "To: <{}>\r\nReply-To: \"{}\" <{}>\r\nMIME-Version: 1.0\r\nContent-type: text/plain;\r\n\r\n{}",
        destMail(), from, from, stringForKey(kMailDataKey).value_or(""));
    return text;
}

std::string SMTP::currentDate() { return TimeUtil::maildate(std::chrono::system_clock::now()); }

// ---- the wire ---------------------------------------------------------------

void SMTP::send(const std::string& line) { socket().writeString(line + "\r\n", timing().mailTimeout); }

void SMTP::writeCommand(const std::string& text) {
    send(text);
    Log::info(">{}", text);
}

void SMTP::writeSecret(const std::string& text) {
    send(text);
    // Deliberate: base64 is no protection, so credentials never reach the log.
    Log::line(">(credentials)");
}

std::string SMTP::readLine() {
    Bytes bytes = socket().readBoundedUpToString("\r\n", kMaxReplyLine, timing().mailTimeout);
    std::string line(bytes.begin(), bytes.end());
    if (!endsWith(line, "\r\n"))
        throw NamedException("SMTP read error", "SMTP read error (the server closed the connection)");
    line.resize(line.size() - 2);
    return line;
}

bool SMTP::readCommand() {
    std::string line = readLine();
    std::string reply = line;
    const std::string code = line.substr(0, 3);
    if (line.size() > 3 && line[3] == '-') {
        // Deliberate: the reply is read a line at a time up to the line that
        // begins with the code and a blank, rather than up to that text
        // wherever it stands, so that each line and the line count are bounded.
        const std::string last = code + " ";
        int lines = 1;
        do {
            if (++lines > kMaxReplyLines)
                throw NamedException(
                    "SMTP read limit",
                    fmt::format("SMTP read limit (a reply of more than {} lines)", kMaxReplyLines));
            line = readLine();
            reply += "\r\n" + line;
        } while (!startsWith(line, last));
    }
    lastReply_ = reply;
    Log::line(printable(reply));
    return parseCommand(intValue(code));
}

bool SMTP::parseCommand(int code) {
    switch (code) {
        case 220:
        case 221:
        case 235:
        case 250:
        case 251:
        case 334:
        case 354:
            return true;
        case 421:
            Log::line("Service unavailable");
            return false;
        case 550:
            return false;
        default:
            Log::line("Error while connecting");
            return false;
    }
}

// ---- commands ---------------------------------------------------------------

bool SMTP::EHLOCommand() {
    writeCommand("EHLO " + ourHostName());
    return readCommand();
}

bool SMTP::HELOCommand() {
    writeCommand("HELO " + ourHostName());
    return readCommand();
}

bool SMTP::MAILCommand() {
    writeCommand("MAIL FROM: <" + senderMail() + ">");
    return readCommand();
}

bool SMTP::RCPTCommand() {
    writeCommand("RCPT TO: <" + destMail() + ">");
    return readCommand();
}

bool SMTP::RSETCommand() {
    writeCommand("RSET");
    return readCommand();
}

bool SMTP::DATACommand() {
    writeCommand("DATA");
    if (!readCommand()) return false;
    const std::string message = mailData();
    send(message);
    // Deliberate: the log has one line per event, not the message's lines.
    Log::info(">(message of {} bytes)", message.size());
    writeCommand(".");
    return true;
}

void SMTP::dialogue() {
    getConnectionParams();
    PasswordedRequest::connect();
    if (!connected()) fail(lastError().empty() ? "Server not responding" : lastError().c_str());
    require(readCommand(), "Server not responding");
    if (!EHLOCommand()) require(HELOCommand(), "Error starting HELO transaction");
    if (usePassword()) {
        writeCommand("AUTH LOGIN");
        require(readCommand(), "Error starting AUTH transaction");
        writeSecret(userName64());
        require(readCommand(), "User unknown");
        writeSecret(passWord64());
        require(readCommand(), "Authentication failed");
    }
    require(MAILCommand(), "Error starting MAIL transaction");
    require(RCPTCommand(), "Error sending RCPT, Recipient refuser by the server");
    require(DATACommand() && readCommand(), "Error sending DATA, smtp server returned an error");
    writeCommand("QUIT");
    require(readCommand(), "Error closing connection ... we will do a dirty close");
}

void SMTP::connect() {
    try {
        dialogue();
    } catch (const NamedException& e) {
        disconnect();
        throw NamedException("Error sending mail ...", "Error sending mail: " + e.reason());
    }
    disconnect();
}

}  // namespace quillon
