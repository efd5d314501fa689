#pragma once
// The base of a request to a server: host, port and proxy kept as values of
// the resource ("_request_HOST", "_request_PORT", "_request_PROXYHOST",
// "_request_PROXYPORT"), the TCP connection it owns, the dates of connect and
// disconnect with the time between them, and a result code.
//
// The request lives in the store layer because it is a resource (AbstractResource
// is above the sockets in the layering) and owns a TCPSocket from below.
//
// Thread contract: one thread runs a request (configures, connects, talks,
// disconnects); the resource's own mutex guards its values. interrupt() alone
// may be called from any other thread: it wakes a blocked read or write of the
// connection, under `socketMutex_`, which also guards the socket pointer.
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "net/TCPSocket.h"
#include "store/AbstractResource.h"
#include "store/RequestOwner.h"

namespace quillon {

class AbstractRequest : public AbstractResource {
public:
    using Date = std::chrono::system_clock::time_point;

    static constexpr const char* kHostKey = "_request_HOST";
    static constexpr const char* kPortKey = "_request_PORT";
    static constexpr const char* kProxyHostKey = "_request_PROXYHOST";
    static constexpr const char* kProxyPortKey = "_request_PROXYPORT";

    AbstractRequest() = default;
    explicit AbstractRequest(RequestOwner* owner) : requestOwner_(owner) {}
    ~AbstractRequest() override;

    void setRequestOwner(RequestOwner* owner) { requestOwner_ = owner; }
    RequestOwner* requestOwner() const { return requestOwner_; }

    void setHost(const std::string& host);
    // Raises NamedException "Invalid host" ("103 Invalid host") when unset or empty.
    std::string host() const;
    void setPort(int port);
    // Raises NamedException "Invalid port" ("104 Invalid port") when 0.
    std::uint16_t port() const;
    // The stored number, unchecked.
    int portNum() const;
    // Raises "Invalid proxy host" for an empty text.
    void setProxyHost(const std::string& host);
    std::string proxyHost() const;
    // Raises "Invalid proxy port" for none.
    void setProxyPort(std::optional<int> port);
    int proxyPort() const;
    bool useProxy() const;
    // The port of the request's protocol when the owner gives none.
    virtual int defaultPort() const { return 0; }

    // Host from the owner; its port when 1 or more, else defaultPort().
    virtual void getConnectionParams();
    // Opens a new connection to host and port. Failures are caught: logged as
    // "Exception text : <reason>", the reason's leading three-digit code kept
    // as resultCode and the reason as lastError; connected() then says no.
    virtual void connect();
    // Stamps the stop date, keeps the seconds since connect when connected,
    // and closes the connection.
    virtual void disconnect();
    bool connected() const;
    // Wakes a blocked read or write of the connection: it fails at once, and
    // so does every later connect of this request.
    void interrupt();

    std::string IP() const;
    std::uint16_t remotePort() const;
    // This machine's host name, as it introduces itself to a server.
    static std::string ourHostName();
    double processTime() const { return T_; }
    int resultCode() const { return resultCode_; }
    void setResultCode(int code) { resultCode_ = code; }
    // The reason of the last failed connect; empty after a good one.
    const std::string& lastError() const { return lastError_; }
    static std::string userAgent();
    std::string description() const override;

protected:
    // The open connection; raises NamedException when there is none.
    TCPSocket& socket();

private:
    mutable std::mutex socketMutex_;
    std::unique_ptr<TCPSocket> socket_;  // guarded by socketMutex_ (the pointer, not its use)
    bool interrupted_ = false;           // guarded by socketMutex_
    std::optional<Date> startDate_;
    std::optional<Date> stopDate_;
    double T_ = 0;
    RequestOwner* requestOwner_ = nullptr;
    int resultCode_ = -1;
    std::string lastError_;
};

}  // namespace quillon
