#pragma once
// What a request asks of the object it works for: where to connect and, for a
// request with credentials, who to log in as. The owner is not owned by the
// request and must outlive it.
//
// Thread contract: called on the thread that runs the request (its
// getConnectionParams); an owner shared between threads guards itself.
#include <string>

namespace quillon {

class RequestOwner {
public:
    virtual ~RequestOwner() = default;
    virtual std::string host() const = 0;
    // 0 or less: the request's own default port.
    virtual int port() const = 0;
    virtual bool useAuthentication() const { return false; }
    virtual std::string username() const { return {}; }
    virtual std::string password() const { return {}; }
};

}  // namespace quillon
