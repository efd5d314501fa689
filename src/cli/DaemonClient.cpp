#include "cli/DaemonClient.h"

#include <fcntl.h>
#include <unistd.h>

#include <httplib.h>
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "platform/Home.h"
#include "platform/TextUtil.h"
#include "store/PreferenceRules.h"
#include "store/Preferences.h"

namespace quillon {

namespace {

constexpr int kConnectSeconds = 2;
constexpr int kStatusSeconds = 5;
// A call that starts a connection may wait for a name look-up or a playlist.
constexpr int kCallSeconds = 30;
constexpr std::size_t kMaxEventBytes = 1u << 20;

enum class TokenRead { missing, read, unreadable };

// The token: 64 hex digits, blanks around them ignored.
TokenRead readToken(const std::string& path, std::string& token, std::string& why) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ENOENT) return TokenRead::missing;
        why = std::strerror(errno);
        return TokenRead::unreadable;
    }
    char buffer[256];
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    int readError = errno;
    ::close(fd);
    if (n < 0) {
        why = std::strerror(readError);
        return TokenRead::unreadable;
    }
    std::string text(buffer, static_cast<std::size_t>(n));
    auto first = text.find_first_not_of(" \t\r\n");
    auto last = text.find_last_not_of(" \t\r\n");
    token = first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
    if (token.size() != 64 || !std::all_of(token.begin(), token.end(), [](char c) {
            return std::isxdigit(static_cast<unsigned char>(c));
        })) {
        why = "it holds no token";
        return TokenRead::unreadable;
    }
    return TokenRead::read;
}

int webPort() {
    std::string text = Preferences::preferences()->getParam("webPort");
    // A port the settings would refuse is one the daemon cannot listen on either.
    if (!PreferenceRules::check("webPort", PlistValue(text)).stored) return DaemonClient::kDefaultPort;
    return intValue(text);
}

std::string transportError(httplib::Error error, int port) {
    std::string where = "127.0.0.1:" + std::to_string(port);
    switch (error) {
        case httplib::Error::Connection:
        case httplib::Error::ConnectionTimeout:
            return "quillon serve does not answer on " + where;
        case httplib::Error::Read:
            return "quillon serve on " + where + " did not finish its answer";
        case httplib::Error::Write:
            return "the request to quillon serve on " + where + " could not be sent";
        case httplib::Error::Canceled:
            return "the answer of quillon serve on " + where + " is too large";
        default:
            return "the call to quillon serve on " + where + " failed (" + httplib::to_string(error) + ")";
    }
}

bool noAnswer(httplib::Error error) {
    return error == httplib::Error::Connection || error == httplib::Error::ConnectionTimeout;
}

httplib::Headers headers(const std::string& token, int port) {
    // Set here, as the daemon checks it and the library leaves the port out for 80.
    return {{"Host", "127.0.0.1:" + std::to_string(port)}, {"X-Quillon-Token", token}};
}

// One request with the answer's body collected up to kMaxAnswerBytes.
DaemonClient::Reply send(httplib::Request& request, int port, int seconds, httplib::Error& error) {
    httplib::Client client("127.0.0.1", port);
    client.set_connection_timeout(kConnectSeconds, 0);
    client.set_read_timeout(seconds, 0);
    client.set_write_timeout(seconds, 0);
    std::string body;
    request.content_receiver = [&body](const char* data, std::size_t length, std::uint64_t, std::uint64_t) {
        if (body.size() + length > DaemonClient::kMaxAnswerBytes) return false;
        body.append(data, length);
        return true;
    };
    httplib::Response response;
    DaemonClient::Reply reply;
    if (!client.send(request, response, error)) {
        reply.error = transportError(error, port);
        return reply;
    }
    reply.status = response.status;
    if (!body.empty()) {
        reply.body = nlohmann::json::parse(body, nullptr, false);
        if (reply.body.is_discarded()) {
            reply.body = nullptr;
            reply.error = "quillon serve answered " + request.path + " with HTTP " +
                          std::to_string(reply.status) + " and no JSON";
            return reply;
        }
    }
    if (reply.status >= 400) {
        const auto* text = reply.body.is_object() && reply.body.contains("error")
                               ? reply.body["error"].get_ptr<const std::string*>()
                               : nullptr;
        reply.error = text ? printable(*text) : "quillon serve answered HTTP " + std::to_string(reply.status);
    }
    return reply;
}

}  // namespace

DaemonClient::DaemonClient(std::string token, int port) : token_(std::move(token)), port_(port) {}

std::string DaemonClient::origin() const { return "http://127.0.0.1:" + std::to_string(port_); }

DaemonLookup DaemonClient::find() {
    const std::string path = homePath(kTokenRelativePath);
    std::string token, why;
    TokenRead read = readToken(path, token, why);
    if (read == TokenRead::missing) return {};
    DaemonClient client(token, webPort());
    httplib::Request request;
    request.method = "GET";
    request.path = "/api/status";
    request.headers = headers(token, client.port_);
    httplib::Error error = httplib::Error::Success;
    Reply reply = send(request, client.port_, kStatusSeconds, error);
    if (reply.status == 0 && noAnswer(error)) return {};  // a token left by a daemon that has ended
    const std::string where = "127.0.0.1:" + std::to_string(client.port_);
    if (read == TokenRead::unreadable)
        return {std::nullopt, "something answers on " + where + ", but " + path + " cannot be read: " + why};
    if (reply.status == 401 || reply.status == 403) {
        return {std::nullopt, "the program on " + where + " refuses the token of " + path +
                                  " (the daemon of another home folder?)"};
    }
    if (!reply.ok()) return {std::nullopt, reply.error};
    if (reply.status != 200 || !reply.body.is_object() || !reply.body.contains("pid"))
        return {std::nullopt, "the program on " + where + " is not quillon serve"};
    return {std::move(client), {}};
}

DaemonClient::Reply DaemonClient::request(std::string_view method, const std::string& path,
                                          const nlohmann::json& body) const {
    httplib::Request request;
    request.method = std::string(method);
    request.path = path;
    request.headers = headers(token_, port_);
    if (!body.is_null()) {
        request.body = body.dump();
        request.set_header("Content-Type", "application/json");
    }
    httplib::Error error = httplib::Error::Success;
    return send(request, port_, kCallSeconds, error);
}

DaemonClient::Reply DaemonClient::stream(const std::string& path,
                                         const std::function<bool(const std::string&)>& onData,
                                         int idleSeconds) const {
    httplib::Client client("127.0.0.1", port_);
    client.set_connection_timeout(kConnectSeconds, 0);
    client.set_read_timeout(idleSeconds, 0);
    httplib::Request request;
    request.method = "GET";
    request.path = path;
    request.headers = headers(token_, port_);
    request.set_header("Accept", "text/event-stream");
    // Events are blocks of lines ended by an empty line; their "data:" lines
    // joined make the event's data.
    std::string pending, data;
    bool tooLarge = false, stopped = false;
    request.content_receiver = [&](const char* bytes, std::size_t length, std::uint64_t, std::uint64_t) {
        pending.append(bytes, length);
        for (std::size_t end; (end = pending.find('\n')) != std::string::npos;) {
            std::string line = pending.substr(0, end);
            pending.erase(0, end + 1);
            if (!line.empty() && line.back() == '\r') line.pop_back();
            if (line.empty()) {
                if (!data.empty() && !onData(data)) {
                    stopped = true;
                    return false;
                }
                data.clear();
            } else if (startsWith(line, "data:")) {
                if (!data.empty()) data += '\n';
                data += line.substr(line.size() > 5 && line[5] == ' ' ? 6 : 5);
            }
        }
        tooLarge = pending.size() + data.size() > kMaxEventBytes;
        return !tooLarge;
    };
    httplib::Response response;
    httplib::Error error = httplib::Error::Success;
    Reply reply;
    bool sent = client.send(request, response, error);
    reply.status = response.status > 0 ? response.status : 0;
    if (stopped) return reply;
    if (tooLarge) {
        reply.error = "an event of quillon serve is larger than " + std::to_string(kMaxEventBytes) + " bytes";
    } else if (!sent) {
        reply.error = transportError(error, port_);
    } else if (reply.status >= 400) {
        reply.error = "quillon serve answered " + path + " with HTTP " + std::to_string(reply.status);
    }
    return reply;
}

}  // namespace quillon
