#include "store/Bookmark.h"

#include <fmt/format.h>

#include "net/TCPSocket.h"
#include "platform/Log.h"
#include "platform/NamedException.h"
#include "platform/TextUtil.h"
#include "platform/Timing.h"
#include "store/Url.h"

namespace quillon {

namespace {

// Whether a character is a letter, mark or digit of its 8-bit (Latin-1) form.
// Deliberate: a Latin-1 character is tested as itself, not through its first
// byte sign-extended into U+FF80-U+FFFF. That reading blanked "é" and "Ç" but
// kept "«" and the no-break space, so "Café Jazz" could not keep its name.
// Characters beyond Latin-1 have no 8-bit form and are never kept.
bool keepsCharacter(char32_t c) {
    if (c < 0x80) return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    if (c > 0xFF) return false;
    // ª ² ³ µ ¹ º ¼ ½ ¾, then the letters from À to ÿ except × and ÷.
    return c == 0xAA || c == 0xB2 || c == 0xB3 || c == 0xB5 || c == 0xB9 || c == 0xBA ||
           (c >= 0xBC && c <= 0xBE) || (c >= 0xC0 && c != 0xD7 && c != 0xF7);
}

std::string_view asView(std::span<const std::uint8_t> data) { return asText(data); }

// The bytes after the first `start` and before the next `end`, or nothing.
std::optional<std::string_view> between(std::string_view text, std::string_view start, std::string_view end) {
    std::size_t from = text.find(start);
    if (from == std::string_view::npos) return std::nullopt;
    from += start.size();
    std::size_t to = text.find(end, from);
    if (to == std::string_view::npos) return std::nullopt;
    return text.substr(from, to - from);
}

// The text after the first `marker`; empty when there is none.
std::string_view after(std::string_view text, std::string_view marker) {
    std::size_t at = text.find(marker);
    return at == std::string_view::npos ? std::string_view{} : text.substr(at + marker.size());
}

// Sends the redirect probe and returns the reply header, or nothing when the
// server cannot be reached or does not answer in time.
std::string probeRedirect(const std::string& host, int port, const std::string& target, bool secure) {
    try {
        TCPSocket socket;
        if (!socket.connectToHostName(host, static_cast<std::uint16_t>(port))) return {};
        double timeout = timing().redirectTimeout;
        // The probe trusts only what verifies: no bookmark has said otherwise yet.
        if (secure) socket.startTls(host, false, timeout);
        socket.writeString(fmt::format("GET {} HTTP/1.0\r\n\r\n", target), timeout);
        Bytes reply = socket.readDataUpToData("\r\n\r\n", 16384, timeout);
        socket.close();
        return std::string(asText(reply));
    } catch (const NamedException& e) {
        Log::info("Bookmark redirect probe of {}:{} failed: {}", host, port, e.reason());
        return {};
    }
}

}  // namespace

Bookmark::Bookmark() { setString(" - ", "separator"); }

std::string Bookmark::titleEncoding() const {
    auto value = stringForKey("titleEncoding");
    return value && !value->empty() ? *value : std::string("auto");
}

void Bookmark::setTitleEncoding(const std::string& encoding) {
    if (encoding.empty() || encoding == "auto")
        removeObjectForKey("titleEncoding");
    else
        setString(encoding, "titleEncoding");
}

std::string Bookmark::scheme() const {
    return toLowerAscii(stringForKey("scheme").value_or("")) == "https" ? "https" : "http";
}

void Bookmark::setScheme(const std::string& scheme) {
    if (toLowerAscii(scheme) == "https")
        setString(std::string("https"), "scheme");
    else
        removeObjectForKey("scheme");
}

int Bookmark::defaultPort(const std::string& scheme) { return toLowerAscii(scheme) == "https" ? 443 : 80; }

void Bookmark::setAllowUntrustedCertificate(bool on) {
    if (on)
        setBool(true, "allowUntrustedCertificate");
    else
        removeObjectForKey("allowUntrustedCertificate");
}

std::string Bookmark::checkName(std::optional<std::string_view> name) {
    std::string out;
    if (!name) return out;
    std::string_view text = *name;
    std::size_t pos = 0;
    while (pos < text.size()) {
        char32_t c = decodeUtf8(text, pos);
        if (c > 0xFFFF) {
            // Two UTF-16 units, each a lone surrogate: neither converts.
            out += "  ";
        } else if (keepsCharacter(c)) {
            appendUtf8(out, c);
        } else {
            out += ' ';
        }
    }
    return out;
}

bool Bookmark::isLatin1(std::string_view text) {
    std::size_t pos = 0;
    while (pos < text.size()) {
        if (decodeUtf8(text, pos) > 0xFF) return false;
    }
    return true;
}

std::optional<std::string> Bookmark::name() const { return stringForKey("name"); }

void Bookmark::setName(std::optional<std::string> name) {
    setString(checkName(name ? std::optional<std::string_view>(*name) : std::nullopt), "name");
}

std::string Bookmark::path() const {
    auto stored = stringForKey("path");
    return stored && !stored->empty() ? *stored : "/";
}

void Bookmark::setPath(std::optional<std::string> path) {
    if (path && !path->empty() && path->back() == '\r') path->pop_back();
    setString(std::move(path), "path");
}

std::string Bookmark::genre() const { return stringForKey("genre").value_or("-"); }

std::optional<std::string> Bookmark::authentication() const {
    auto u = user();
    auto p = pass();
    if (!u || !p || u->empty() || p->empty()) return std::nullopt;
    return *u + ":" + *p;
}

std::string Bookmark::description() const {
    auto show = [](const std::optional<std::string>& v) { return v ? *v : std::string("(null)"); };
    return fmt::format("Bookmark {} Host {} Port {} Path {}", show(name()), show(host()), show(port()),
                       path());
}

std::string Bookmark::pathInFolder(const std::string& folder) const {
    std::string base = folder;
    while (base.size() > 1 && base.back() == '/') base.pop_back();
    return base + "/" + name().value_or("(null)") + "." + kFileExtension;
}

bool Bookmark::saveToFile(const std::string& folder) { return writeContainer(pathInFolder(folder)); }

bool Bookmark::loadFromFile(const std::string& path) {
    setFilePath(path);
    return loadFromFile();
}

std::string Bookmark::parseData(std::span<const std::uint8_t> data, std::string_view start,
                                std::string_view end) {
    auto found = between(asView(data), start, end);
    return found ? textFromWire(*found) : std::string();
}

bool Bookmark::getUrlFromData(std::string_view text) { return getUrlFromData(asBytes(text)); }

bool Bookmark::getUrlFromData(std::span<const std::uint8_t> data) {
    std::string_view text = asView(data);

    auto currentName = name();
    if (!currentName || currentName->empty()) {
        auto title = between(text, "Title1=", "\n");
        setName(title ? textFromWire(*title) : std::string(kUntitledName));
    }

    std::string location;
    if (auto file = between(text, "File1=", "\n")) {
        location = textFromWire(*file);
    } else if (auto bare = between(text, "http://", "\n"), secureLine = between(text, "https://", "\n");
               bare || secureLine) {
        // The first address in the text, whichever its scheme.
        if (secureLine && (!bare || secureLine->data() < bare->data()))
            location = "https://" + textFromWire(*secureLine);
        else
            location = "http://" + textFromWire(*bare);
    } else {
        return false;
    }

    auto url = Url::parse(location);
    if (!url) return false;
    const std::string urlScheme = url->scheme.value_or("http");
    setScheme(urlScheme);
    const int schemePort = defaultPort(urlScheme);

    if (!url->query || url->query->empty()) {
        setHost(url->host);
        setPath(url->path);
        setUser(url->user);
        setPass(url->password);
        if (url->port && *url->port != 0) {
            setPort(std::to_string(*url->port));
            return true;
        }
        // A port the parser did not take (e.g. "host:8000junk") may still lead.
        int leading = intValue(after(after(location, "://"), ":"));
        if (leading > 0) setPort(std::to_string(leading));
        if (intValue(port().value_or("")) != 0) return true;
        setPort(std::to_string(schemePort));
        return true;
    }

    // A query URL is a script that redirects to the stream: follow it once.
    std::optional<Url> target = url;
    std::string reply;
    if (url->host)
        reply = probeRedirect(*url->host, url->port.value_or(schemePort), url->path + "?" + *url->query,
                              secure());
    if (!reply.empty()) {
        if (reply.find("Location: ") != std::string::npos) {
            auto line = between(reply, "Location: ", "\n");
            target = Url::parse(line ? *line : after(reply, "Location: "));
        }
    }
    if (target) {
        if (target->scheme) setScheme(*target->scheme);
        setHost(target->host);
        if (target->port) setPort(std::to_string(*target->port));
        // A target without a query keeps the text "(null)" where the query
        // goes, as the stored paths of earlier versions do.
        setPath(target->path + "?" + target->query.value_or("(null)"));
        setUser(target->user);
        setPass(target->password);
    }
    return !host().value_or("").empty() && !port().value_or("").empty();
}

}  // namespace quillon
