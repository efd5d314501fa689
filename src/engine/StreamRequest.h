#pragma once
// The text of the stream request that a recording connection sends (and hands
// to the Live365 title source): a pure function of the bookmark's address, its
// credentials and the proxy and User-Agent settings. Safe on any thread.
#include <optional>
#include <string>
#include <string_view>

namespace quillon {

struct StreamRequestParams {
    std::string host;
    std::string port;
    std::string path;
    // "user:password" when the bookmark has credentials.
    std::optional<std::string> authentication;
    // Through a proxy the request line carries the absolute address.
    bool proxyOn = false;
    // The configured User-Agent; none stands in the built-in product text, while
    // an empty text sends an empty value.
    std::optional<std::string> userAgent;
};

// The User-Agent sent when no value was configured at all.
inline constexpr const char* kDefaultUserAgent = "QLN_Mac_OSX/1.70 (Macintosh; N; PPC)";

// The whole request, every line ending "\r\n", closed by an empty line.
std::string logHeader(const StreamRequestParams& params);

// An https stream through a proxy: the request that asks the proxy for a
// tunnel to the stream's host and port, through which the TLS session and the
// direct-form request then go.
std::string tunnelRequest(const StreamRequestParams& params);

// Whether a proxy's reply to the tunnel request opens the tunnel (a 2xx
// status line); `reply` is the reply head up to its blank line.
bool tunnelOpened(std::string_view reply);

}  // namespace quillon
