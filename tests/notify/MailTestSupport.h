#pragma once
// Mail servers for the notifier's tests, both on loopback and both stopped by
// the test that starts them:
// - SmtpPeer: aiosmtpd (a real SMTP server) in a child process, optionally
//   with AUTH LOGIN; every message it takes is a file in its folder.
// - ScriptedSmtpServer: one connection served by a thread of ours, answering
//   each command with the reply the test's script gives, so that refusals,
//   multi-line and malformed replies can be staged.
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "notify/MailSettings.h"
#include "support/Files.h"
#include "support/Loopback.h"
#include "support/Process.h"

namespace quillon::test {

class SmtpPeer {
public:
    // `auth`: "user:password", or empty for a server without AUTH. A test
    // may run one peer of each kind.
    explicit SmtpPeer(const std::string& auth = {})
        : folder_(testFolder(auth.empty() ? "smtp" : "smtp-auth")), process_(command(folder_, auth)) {
        auto line = process_.readLine();
        if (!line || line->rfind("PORT ", 0) != 0) throw std::runtime_error("the SMTP peer did not start");
        port_ = static_cast<std::uint16_t>(std::stoi(line->substr(5)));
    }
    ~SmtpPeer() {
        process_.signal(SIGTERM);
        process_.wait();
    }
    std::uint16_t port() const { return port_; }
    std::string server() const { return "127.0.0.1:" + std::to_string(port_); }
    // The n-th message taken (from 1): envelope sender line, recipients line, data.
    std::string message(int n) const { return readText(folder_ + "/" + std::to_string(n) + ".eml"); }
    std::size_t messageCount() const { return countEntries(folder_); }

private:
    static std::vector<std::string> command(const std::string& folder, const std::string& auth) {
        std::vector<std::string> argv{"/usr/bin/python3", QUILLON_SOURCE_DIR "/tests/notify/smtp_peer.py",
                                      "--dir", folder};
        if (!auth.empty()) argv.insert(argv.end(), {"--auth", auth});
        return argv;
    }
    std::string folder_;
    CapturedProcess process_;
    std::uint16_t port_ = 0;
};

class ScriptedSmtpServer {
public:
    // Replies by command word ("EHLO", "HELO", "AUTH", "MAIL", "RCPT", "DATA",
    // "QUIT"), "greeting", "USER" and "PASS" (the two AUTH LOGIN lines) and
    // "." (the end of the message); each a whole reply with its line ends.
    // Unscripted commands are accepted with a code that suits them.
    // A reply of kClose closes the connection instead.
    using Script = std::map<std::string, std::string>;
    static constexpr const char* kClose = "<close>";

    explicit ScriptedSmtpServer(Script script) : script_(std::move(script)), listener_(listenOnLoopback()) {
        port_ = boundPort(listener_.fd());
        thread_ = std::thread([this] { serve(); });
    }
    ~ScriptedSmtpServer() {
        // Wakes an accept that no client came for.
        ::shutdown(listener_.fd(), SHUT_RDWR);
        if (thread_.joinable()) thread_.join();
    }
    ScriptedSmtpServer(const ScriptedSmtpServer&) = delete;
    ScriptedSmtpServer& operator=(const ScriptedSmtpServer&) = delete;

    std::uint16_t port() const { return port_; }
    std::string server() const { return "127.0.0.1:" + std::to_string(port_); }
    // Set once a client is connected.
    std::shared_future<void> connected() const { return connected_; }
    // Every line the client sent (the message as one entry), once the
    // client has gone: call after the dialogue ended.
    std::vector<std::string> received() {
        if (thread_.joinable()) thread_.join();
        return lines_;
    }

private:
    std::string reply(const std::string& key, const char* standard) const {
        auto it = script_.find(key);
        return it == script_.end() ? std::string(standard) : it->second;
    }

    // The next line without its "\r\n"; false when the client has gone.
    bool readLine(int fd, std::string& line) {
        line.clear();
        char c = 0;
        while (::read(fd, &c, 1) == 1) {
            line += c;
            if (line.size() >= 2 && line.compare(line.size() - 2, 2, "\r\n") == 0) {
                line.resize(line.size() - 2);
                return true;
            }
        }
        return false;
    }

    void send(int fd, const std::string& text) {
        // A client that has gone fails the test by what it did not receive.
        if (!text.empty() && ::send(fd, text.data(), text.size(), MSG_NOSIGNAL) < 0) return;
    }

    void serve() {
        FileHandle client(::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!client.isOpen()) return;
        connectedPromise_.set_value();
        const int fd = client.fd();
        send(fd, reply("greeting", "220 scripted ESMTP\r\n"));
        std::string line;
        int authStep = 0;
        while (readLine(fd, line)) {
            lines_.push_back(line);
            if (authStep == 1 || authStep == 2) {
                send(fd,
                     authStep++ == 1 ? reply("USER", "334 UGFzc3dvcmQ6\r\n") : reply("PASS", "235 ok\r\n"));
                continue;
            }
            const std::string verb = line.substr(0, line.find(' '));
            if (verb == "DATA") {
                const std::string answer = reply("DATA", "354 go ahead\r\n");
                send(fd, answer);
                if (answer.rfind("354", 0) != 0) continue;
                std::string message;
                while (readLine(fd, line) && line != ".") message += line + "\r\n";
                lines_.push_back(message);
                lines_.push_back(".");
                send(fd, reply(".", "250 queued\r\n"));
            } else if (verb == "AUTH") {
                const std::string answer = reply("AUTH", "334 VXNlcm5hbWU6\r\n");
                if (answer.rfind("334", 0) == 0) authStep = 1;
                send(fd, answer);
            } else if (verb == "QUIT") {
                send(fd, reply("QUIT", "221 bye\r\n"));
                return;
            } else {
                const std::string answer = reply(verb, "250 ok\r\n");
                if (answer == kClose) return;
                send(fd, answer);
            }
        }
    }

    Script script_;
    FileHandle listener_;
    std::uint16_t port_ = 0;
    std::promise<void> connectedPromise_;
    std::shared_future<void> connected_ = connectedPromise_.get_future().share();
    std::vector<std::string> lines_;  // the server thread's until it is joined
    std::thread thread_;
};

// Settings that send to `server` from and to fixed loopback addresses.
inline MailSettings settingsFor(const std::string& server) {
    MailSettings s;
    s.server = server;
    s.from = "recorder@example.test";
    s.to = "listener@example.test";
    return s;
}

}  // namespace quillon::test
