#include "platform/NamedException.h"

#include <cerrno>
#include <cstring>

namespace quillon {

std::string NamedException::errnoText() {
    char buf[256];
    // GNU strerror_r may return a static string instead of filling buf.
    const char* text = strerror_r(errno, buf, sizeof buf);
    return text ? text : "";
}

}  // namespace quillon
