#pragma once
// The texts the station exchanges before audio: the client's request as parsed,
// and the replies (stream header, redirect, refusal, bad request). Pure functions.
#include <optional>
#include <string>
#include <string_view>

#include "station/StationOptions.h"

namespace quillon {

struct StationRequest {
    std::string method;
    std::string path;
    bool wantsMetadata = false;  // "Icy-MetaData: 1" (name matched without regard to case)
};

class StationHttp {
public:
    // The request head up to its blank line; none when the request line is not
    // "METHOD PATH HTTP/x".
    static std::optional<StationRequest> parseRequest(std::string_view head);

    // The stream header; `metaint` 0 leaves out "icy-metaint:".
    static std::string streamHeader(const StationOptions& options, std::uint32_t metaint);
    // The Content-Type the payload is announced as (the counter bytes pose as MP3).
    static std::string contentType(StationPayload payload);
    // "HTTP/1.0 302 Found" with a Location: line.
    static std::string redirect(std::string_view location);
    // An error status line ("ICY 401 Unauthorized" or "HTTP/1.0 404 Not Found", ...).
    static std::string refusal(int status, StationStatus style);
    static std::string badRequest();
    // "HTTP/1.0 200 OK" with the body and its length.
    static std::string fileReply(const std::string& contentType, const std::string& body);

    static std::string reasonPhrase(int status);
};

}  // namespace quillon
