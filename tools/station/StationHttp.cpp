#include "station/StationHttp.h"

#include "platform/TextUtil.h"

namespace quillon {

std::optional<StationRequest> StationHttp::parseRequest(std::string_view head) {
    const auto lineEnd = head.find("\r\n");
    const std::string_view line = head.substr(0, lineEnd);
    const auto firstBlank = line.find(' ');
    const auto lastBlank = line.rfind(' ');
    if (firstBlank == std::string_view::npos || firstBlank == lastBlank || firstBlank == 0)
        return std::nullopt;
    if (!startsWith(line.substr(lastBlank + 1), "HTTP/")) return std::nullopt;
    StationRequest request;
    request.method = std::string(line.substr(0, firstBlank));
    request.path = std::string(line.substr(firstBlank + 1, lastBlank - firstBlank - 1));
    if (request.path.empty() || request.path.find(' ') != std::string::npos) return std::nullopt;

    std::string_view rest = lineEnd == std::string_view::npos ? std::string_view{} : head.substr(lineEnd + 2);
    while (!rest.empty()) {
        const auto end = rest.find("\r\n");
        const std::string_view field = rest.substr(0, end);
        const auto colon = field.find(':');
        if (colon != std::string_view::npos && toLowerAscii(field.substr(0, colon)) == "icy-metadata") {
            request.wantsMetadata = intValue(field.substr(colon + 1)) == 1;
        }
        if (end == std::string_view::npos) break;
        rest.remove_prefix(end + 2);
    }
    return request;
}

std::string StationHttp::streamHeader(const StationOptions& o, std::uint32_t metaint) {
    std::string server;
    if (o.server) {
        server = *o.server;
    } else if (o.status == StationStatus::http) {
        server = "Icecast 2.4.4";
    }
    std::string header = o.status == StationStatus::icy ? "ICY 200 OK\r\n"
                         : o.chunked                    ? "HTTP/1.1 200 OK\r\n"
                                                        : "HTTP/1.0 200 OK\r\n";
    if (!server.empty()) header += "Server: " + server + "\r\n";
    if (o.chunked) header += "Transfer-Encoding: chunked\r\n";
    header += "content-type:" + contentType(o.payload) + "\r\n";
    header += "icy-name:" + o.name + "\r\n";
    header += "icy-genre:" + o.genre + "\r\n";
    header += "icy-url:" + o.url + "\r\n";
    header += "icy-pub:0\r\n";
    header += "icy-br:" + std::to_string(o.bitrate) + "\r\n";
    if (o.metaintText) {
        header += "icy-metaint:" + *o.metaintText + "\r\n";
    } else if (metaint > 0) {
        header += "icy-metaint:" + std::to_string(metaint) + "\r\n";
    }
    header += "\r\n";
    return header;
}

std::string StationHttp::contentType(StationPayload payload) {
    switch (payload) {
        case StationPayload::aac:
            return "audio/aac";
        case StationPayload::ogg:
            return "application/ogg";
        case StationPayload::mp3:
        case StationPayload::counter:
            break;
    }
    return "audio/mpeg";
}

std::string StationHttp::redirect(std::string_view location) {
    std::string reply = "HTTP/1.0 302 Found\r\nLocation: ";
    reply += location;
    reply += "\r\nContent-Length: 0\r\n\r\n";
    return reply;
}

std::string StationHttp::reasonPhrase(int status) {
    switch (status) {
        case 400:
            return "Bad Request";
        case 401:
            return "Unauthorized";
        case 403:
            return "Forbidden";
        case 404:
            return "Not Found";
        case 500:
            return "Internal Server Error";
        case 503:
            return "Service Unavailable";
        default:
            return "Error";
    }
}

std::string StationHttp::refusal(int status, StationStatus style) {
    std::string reply = style == StationStatus::icy ? "ICY " : "HTTP/1.0 ";
    reply += std::to_string(status) + " " + reasonPhrase(status) + "\r\n\r\n";
    return reply;
}

std::string StationHttp::badRequest() { return refusal(400, StationStatus::http); }

std::string StationHttp::fileReply(const std::string& contentType, const std::string& body) {
    return "HTTP/1.0 200 OK\r\nContent-Type: " + contentType +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

}  // namespace quillon
