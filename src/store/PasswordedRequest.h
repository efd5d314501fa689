#pragma once
// A request with a user name and a password ("_request_USERNAME",
// "_request_PASSWORD"), and their base64 forms for servers that want them.
//
// Thread contract: as AbstractRequest.
#include <optional>
#include <string>
#include <string_view>

#include "store/AbstractRequest.h"

namespace quillon {

class PasswordedRequest : public AbstractRequest {
public:
    static constexpr const char* kUserNameKey = "_request_USERNAME";
    static constexpr const char* kPasswordKey = "_request_PASSWORD";

    using AbstractRequest::AbstractRequest;

    // Each raises "Invalid userName" / "Invalid password" for none.
    void setUserName(std::optional<std::string> name);
    void setPassword(std::optional<std::string> password);
    // "" when unset.
    std::string userName() const;
    std::string passWord() const;
    // A password is set (and not empty).
    bool usePassword() const;
    // "user:password".
    std::string authorization() const;
    std::string authorization64() const;
    std::string userName64() const;
    std::string passWord64() const;
    static std::string base64Encode(std::string_view bytes);

    // Also the owner's user name and password when it uses authentication.
    void getConnectionParams() override;
};

}  // namespace quillon
