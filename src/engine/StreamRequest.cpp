#include "engine/StreamRequest.h"

#include <string_view>

#include "platform/TextUtil.h"

namespace quillon {

namespace {
// A line break inside a value would end its line early and let a bookmark or a
// directory entry add header lines of its own; no valid value contains one.
std::string oneLine(std::string_view value) {
    std::string out;
    out.reserve(value.size());
    for (char c : value)
        if (c != '\r' && c != '\n') out += c;
    return out;
}
}  // namespace

std::string logHeader(const StreamRequestParams& params) {
    const std::string host = oneLine(params.host), port = oneLine(params.port), path = oneLine(params.path);
    std::string request;
    if (params.proxyOn)
        request += "GET http://" + host + ":" + port + path + " HTTP/1.1\r\n";
    else
        request += "GET " + path + " HTTP/1.1\r\n";
    request += "Accept: */*\r\n";
    request += "Cache-Control: no-cache\r\n";
    request += "User-Agent: " + oneLine(params.userAgent.value_or(kDefaultUserAgent)) + "\r\n";
    request += "Icy-MetaData: 1\r\n";
    request += "Connection: close\r\n";
    request += "Host: " + host + ":" + port + "\r\n";
    if (params.authentication) {
        request += "Extension: Security/Remote-Passphrase\r\n";
        request += "Authorization: Basic " + base64Encode(*params.authentication) + "\r\n";
    }
    request += "\r\n";
    return request;
}

std::string tunnelRequest(const StreamRequestParams& params) {
    const std::string address = oneLine(params.host) + ":" + oneLine(params.port);
    return "CONNECT " + address + " HTTP/1.1\r\nHost: " + address + "\r\n\r\n";
}

bool tunnelOpened(std::string_view reply) {
    if (reply.substr(0, 5) != "HTTP/") return false;
    const std::size_t space = reply.find(' ');
    if (space == std::string_view::npos || reply.size() < space + 4) return false;
    const std::string_view code = reply.substr(space + 1, 3);
    return code[0] == '2' && code.find_first_not_of("0123456789") == std::string_view::npos &&
           (reply.size() == space + 4 || reply[space + 4] == ' ' || reply[space + 4] == '\r');
}

}  // namespace quillon
