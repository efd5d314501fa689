#include "store/AbstractRequest.h"

#include <unistd.h>

#include <climits>

#include <fmt/format.h>

#include "platform/Log.h"
#include "platform/NamedException.h"
#include "platform/TextUtil.h"

namespace quillon {

AbstractRequest::~AbstractRequest() = default;

void AbstractRequest::setHost(const std::string& host) { setString(host, kHostKey); }

std::string AbstractRequest::host() const {
    std::optional<std::string> host = stringForKey(kHostKey);
    if (!host || host->empty()) throw NamedException("Invalid host", "103 Invalid host");
    return *host;
}

void AbstractRequest::setPort(int port) { setInt(port, kPortKey); }

std::uint16_t AbstractRequest::port() const {
    const int port = portNum();
    // The port goes to the socket as 16 bits.
    if (port == 0 || static_cast<std::uint16_t>(port) == 0)
        throw NamedException("Invalid port", "104 Invalid port");
    return static_cast<std::uint16_t>(port);
}

int AbstractRequest::portNum() const { return intForKey(kPortKey); }

void AbstractRequest::setProxyHost(const std::string& host) {
    if (host.empty()) throw NamedException("Invalid proxy host", "Invalid proxy host");
    setString(host, kProxyHostKey);
}

std::string AbstractRequest::proxyHost() const { return stringForKey(kProxyHostKey).value_or(""); }

void AbstractRequest::setProxyPort(std::optional<int> port) {
    if (!port) throw NamedException("Invalid proxy port", "Invalid proxy port");
    setInt(*port, kProxyPortKey);
}

int AbstractRequest::proxyPort() const { return intForKey(kProxyPortKey); }

bool AbstractRequest::useProxy() const { return !proxyHost().empty(); }

void AbstractRequest::getConnectionParams() {
    if (!requestOwner_) return;
    setHost(requestOwner_->host());
    const int port = requestOwner_->port();
    setPort(port >= 1 ? port : defaultPort());
}

void AbstractRequest::connect() {
    auto made = std::make_unique<TCPSocket>();
    TCPSocket* fresh = made.get();
    bool interrupted = false;
    {
        std::lock_guard lock(socketMutex_);
        socket_ = std::move(made);
        interrupted = interrupted_;
    }
    startDate_ = std::chrono::system_clock::now();
    stopDate_.reset();
    lastError_.clear();
    try {
        if (interrupted) throw NamedException("Interrupted", "106 Interrupted");
        const std::string to = host();
        const std::uint16_t number = port();
        // The socket logs why; the request names where.
        if (!fresh->connectToHostName(to, number))
            throw NamedException("Connection failed", fmt::format("105 Cannot connect to {}:{}", to, number));
    } catch (const NamedException& e) {
        Log::info("Exception text : {}", e.reason());
        lastError_ = e.reason();
        resultCode_ = intValue(std::string_view(e.reason()).substr(0, 3));
    }
}

void AbstractRequest::disconnect() {
    std::unique_ptr<TCPSocket> gone;
    {
        std::lock_guard lock(socketMutex_);
        gone.swap(socket_);
    }
    stopDate_ = std::chrono::system_clock::now();
    if (gone && gone->connected() && startDate_)
        T_ = std::chrono::duration<double>(*stopDate_ - *startDate_).count();
    if (gone) gone->close();
    startDate_.reset();
    stopDate_.reset();
}

bool AbstractRequest::connected() const {
    std::lock_guard lock(socketMutex_);
    return socket_ && socket_->connected();
}

void AbstractRequest::interrupt() {
    std::lock_guard lock(socketMutex_);
    interrupted_ = true;
    if (socket_) socket_->interrupt();
}

std::string AbstractRequest::IP() const {
    std::lock_guard lock(socketMutex_);
    return socket_ ? socket_->remoteHostName() : std::string();
}

std::uint16_t AbstractRequest::remotePort() const {
    std::lock_guard lock(socketMutex_);
    return socket_ ? socket_->remotePort() : 0;
}

std::string AbstractRequest::ourHostName() {
    char name[HOST_NAME_MAX + 1] = {};
    if (::gethostname(name, sizeof name - 1) != 0 || name[0] == '\0') return "localhost";
    return name;
}

std::string AbstractRequest::userAgent() { return "Quillon/1.7.2 (Linux)"; }

std::string AbstractRequest::description() const {
    const std::string h = stringForKey(kHostKey).value_or("");
    const std::string p = std::to_string(portNum());
    return fmt::format("Request to : {} port: {}, {}", h, p, connected() ? "Connected." : "Not connected.");
}

TCPSocket& AbstractRequest::socket() {
    std::lock_guard lock(socketMutex_);
    if (!socket_ || !socket_->connected())
        throw NamedException("Not connected", lastError_.empty() ? "Not connected" : lastError_);
    return *socket_;
}

}  // namespace quillon
