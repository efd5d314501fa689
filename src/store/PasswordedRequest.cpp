#include "store/PasswordedRequest.h"

#include "platform/NamedException.h"
#include "platform/TextUtil.h"

namespace quillon {

void PasswordedRequest::setUserName(std::optional<std::string> name) {
    if (!name) throw NamedException("Invalid userName", "Invalid userName");
    setString(std::move(name), kUserNameKey);
}

void PasswordedRequest::setPassword(std::optional<std::string> password) {
    if (!password) throw NamedException("Invalid password", "Invalid password");
    setString(std::move(password), kPasswordKey);
}

std::string PasswordedRequest::userName() const { return stringForKey(kUserNameKey).value_or(""); }

std::string PasswordedRequest::passWord() const { return stringForKey(kPasswordKey).value_or(""); }

bool PasswordedRequest::usePassword() const { return !passWord().empty(); }

std::string PasswordedRequest::authorization() const { return userName() + ":" + passWord(); }

std::string PasswordedRequest::authorization64() const { return base64Encode(authorization()); }

std::string PasswordedRequest::userName64() const { return base64Encode(userName()); }

std::string PasswordedRequest::passWord64() const { return base64Encode(passWord()); }

std::string PasswordedRequest::base64Encode(std::string_view bytes) { return quillon::base64Encode(bytes); }

void PasswordedRequest::getConnectionParams() {
    AbstractRequest::getConnectionParams();
    RequestOwner* owner = requestOwner();
    if (owner && owner->useAuthentication()) {
        setUserName(owner->username());
        setPassword(owner->password());
    }
}

}  // namespace quillon
