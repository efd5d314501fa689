#include "store/Url.h"

#include <cctype>

namespace quillon {

namespace {

bool isBlankOrControl(unsigned char c) { return c <= 0x20 || c == 0x7F; }

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// A scheme is a letter followed by letters, digits, "+", "-" or ".".
std::size_t schemeLength(std::string_view text) {
    if (text.empty() || !std::isalpha(static_cast<unsigned char>(text[0]))) return 0;
    for (std::size_t i = 1; i < text.size(); ++i) {
        char c = text[i];
        if (c == ':') return i;
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '-' && c != '.') return 0;
    }
    return 0;
}

bool parseAuthority(std::string_view authority, Url& url) {
    std::size_t at = authority.rfind('@');
    if (at != std::string_view::npos) {
        std::string_view info = authority.substr(0, at);
        authority = authority.substr(at + 1);
        std::size_t colon = info.find(':');
        url.user = Url::percentDecode(info.substr(0, colon));
        if (colon != std::string_view::npos) url.password = Url::percentDecode(info.substr(colon + 1));
    }
    std::string_view host = authority;
    std::string_view port;
    bool hasPort = false;
    if (!authority.empty() && authority[0] == '[') {
        std::size_t close = authority.find(']');
        if (close == std::string_view::npos) return false;
        host = authority.substr(1, close - 1);
        std::string_view rest = authority.substr(close + 1);
        if (!rest.empty()) {
            if (rest[0] != ':') return false;
            hasPort = true;
            port = rest.substr(1);
        }
    } else if (std::size_t colon = authority.rfind(':'); colon != std::string_view::npos) {
        host = authority.substr(0, colon);
        hasPort = true;
        port = authority.substr(colon + 1);
    }
    if (!host.empty()) url.host = std::string(host);
    // A port that is not a plain number is left out rather than failing the
    // whole text; callers have their own reading of the raw text for it.
    bool digits = hasPort && !port.empty() && port.size() <= 9;
    for (char c : port) digits = digits && c >= '0' && c <= '9';
    if (digits) {
        int value = 0;
        for (char c : port) value = value * 10 + (c - '0');
        url.port = value;
    }
    return true;
}

}  // namespace

std::string Url::percentDecode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size()) {
            int hi = hexDigit(text[i + 1]);
            int lo = hexDigit(text[i + 2]);
            if (hi >= 0 && lo >= 0) {
                out += static_cast<char>(hi * 16 + lo);
                i += 2;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

std::optional<Url> Url::parse(std::string_view text) {
    while (!text.empty() && isBlankOrControl(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
    while (!text.empty() && isBlankOrControl(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
    if (text.empty()) return std::nullopt;
    for (char c : text) {
        auto u = static_cast<unsigned char>(c);
        if (isBlankOrControl(u) || c == '"' || c == '<' || c == '>') return std::nullopt;
    }

    Url url;
    if (std::size_t n = schemeLength(text); n > 0) {
        url.scheme = std::string(text.substr(0, n));
        text.remove_prefix(n + 1);
    }
    if (std::size_t hash = text.find('#'); hash != std::string_view::npos) {
        url.fragment = std::string(text.substr(hash + 1));
        text = text.substr(0, hash);
    }
    if (std::size_t question = text.find('?'); question != std::string_view::npos) {
        url.query = std::string(text.substr(question + 1));
        text = text.substr(0, question);
    }
    if (text.substr(0, 2) == "//") {
        text.remove_prefix(2);
        std::size_t slash = text.find('/');
        if (!parseAuthority(text.substr(0, slash), url)) return std::nullopt;
        text = slash == std::string_view::npos ? std::string_view{} : text.substr(slash);
    }
    url.path = std::string(text);
    return url;
}

}  // namespace quillon
