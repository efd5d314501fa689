#include "engine/StreamHeader.h"

#include <fmt/format.h>

#include "platform/TextUtil.h"

namespace quillon {

namespace {

constexpr std::string_view kNotAvailable = "N/A";

struct StatusText {
    int code;
    bool error;
    const char* type;
};

constexpr StatusText kStatusTable[] = {
    {200, false, "OK"},         {302, true, "Redirecting"}, {400, true, "Server full"},
    {401, true, "Unavailable"}, {404, true, "Not found"},
};

}  // namespace

StreamHeader::StreamHeader()
    : infoTypes_{"ICY ",        "HTTP/1.1 ",         "HTTP/1.0 ",  "Server: ",
                 "icy-name:",   "x-audiocast-name:", "icy-genre:", "x-audiocast-genre:",
                 "icy-url:",    "x-audiocast-url:",  "icy-br:",    "x-audiocast-bitrate:",
                 "icy-metaint:"} {}

int StreamHeader::parseHeader(std::string_view header) { return parseHeader(asBytes(header)); }

std::optional<std::string> StreamHeader::lineValue(std::span<const std::uint8_t> header,
                                                   std::string_view key) {
    const std::string wanted = toLowerAscii(key);
    std::string_view rest = asText(header);
    while (true) {
        const auto end = rest.find("\r\n");
        // A line without its line end holds no value.
        if (end == std::string_view::npos) return std::nullopt;
        const std::string_view line = rest.substr(0, end);
        if (line.size() >= wanted.size() && toLowerAscii(line.substr(0, wanted.size())) == wanted)
            return std::string(line.substr(wanted.size()));
        rest.remove_prefix(end + 2);
    }
}

int StreamHeader::parseHeader(std::span<const std::uint8_t> header) {
    streamInfos_.clear();
    streamInfos_.emplace(kNotAvailable, kNotAvailable);
    for (const std::string& key : infoTypes_) {
        // Deliberate: keys are matched at the start of a line and without
        // regard to case, because servers and the proxies in front of them
        // send "Icy-MetaInt:" or "ICY-METAINT:" as well, and a key found
        // inside another line's value ("icy-name:Spicy 101") is no key.
        // Raw bytes: the rebuilt header must give the listeners what the server sent.
        if (auto value = lineValue(header, key)) streamInfos_.emplace(key, std::move(*value));
    }
    contentType_ = std::string(trimmedBlanks(lineValue(header, "content-type:").value_or("")));
    chunked_ = false;
    updateError();
    updateServerType();

    std::string_view nameKey = kNotAvailable, genreKey = kNotAvailable, urlKey = kNotAvailable,
                     rateKey = kNotAvailable;
    if (serverType_ == 1) {
        nameKey = "x-audiocast-name:";
        genreKey = "x-audiocast-genre:";
        urlKey = "x-audiocast-url:";
        rateKey = "x-audiocast-bitrate:";
    } else if (serverType_ == 2) {
        nameKey = "icy-name:";
        genreKey = "icy-genre:";
        urlKey = "icy-url:";
        rateKey = "icy-br:";
    }
    name_ = textFromWire(valueOr(nameKey));
    genre_ = textFromWire(valueOr(genreKey));
    url_ = textFromWire(valueOr(urlKey));
    bitRate_ = intValue(valueOr(rateKey));
    if (auto metaInt = checkedMetaInt(valueOr("icy-metaint:"))) {
        metaInt_ = *metaInt;
    } else {
        // Deliberate: refused rather than kept as sent, because the connection
        // sizes its buffers by it; "-5" or "2147483648" would have it allocate
        // gigabytes on a server's word.
        if (!error_)
            errorType_ = "Invalid meta interval: " + printable(utf8Prefix(valueOr("icy-metaint:"), 32));
        error_ = true;
        metaInt_ = 0;
    }
    hasMeta_ = metaInt_ > 0;
    updateTransferCoding(lineValue(header, "transfer-encoding:").value_or(""));
    return static_cast<int>(streamInfos_.size());
}

std::optional<int> StreamHeader::checkedMetaInt(std::string_view value) {
    value = trimmedBlanks(value);
    if (value.empty()) return 0;  // no such line: no metadata
    if (value.size() > 6 || value.find_first_not_of("0123456789") != std::string_view::npos)
        return std::nullopt;
    const int n = intValue(value);
    if (n > kMaxMetaInt) return std::nullopt;
    return n;
}

std::optional<std::string> StreamHeader::getValueForKey(std::string_view key) const {
    auto it = streamInfos_.find(key);
    if (it == streamInfos_.end()) return std::nullopt;
    return it->second;
}

std::string StreamHeader::valueOr(std::string_view key) const {
    auto it = streamInfos_.find(key);
    return it == streamInfos_.end() ? std::string() : it->second;
}

void StreamHeader::updateTransferCoding(const std::string& value) {
    // A list of codings, the last applied last: only "chunked" (and the
    // no-op "identity") can be undone here.
    std::string unsupported;
    std::string_view rest = value;
    while (!rest.empty()) {
        const auto comma = rest.find(',');
        const std::string coding = toLowerAscii(trimmedBlanks(rest.substr(0, comma)));
        if (coding == "chunked") {
            chunked_ = true;
        } else if (!coding.empty() && coding != "identity") {
            unsupported = coding;
        }
        if (comma == std::string_view::npos) break;
        rest.remove_prefix(comma + 1);
    }
    if (unsupported.empty()) return;
    if (!error_) errorType_ = "Unsupported transfer encoding: " + printable(utf8Prefix(unsupported, 32));
    error_ = true;
}

void StreamHeader::updateError() {
    std::optional<std::string> status = getValueForKey("ICY ");
    if (!status) status = getValueForKey("HTTP/1.1 ");
    if (!status) status = getValueForKey("HTTP/1.0 ");
    // Without a status line the earlier verdict stands.
    if (!status) return;
    int code = intValue(std::string_view(*status).substr(0, 3));
    error_ = true;
    errorType_ = "Unknown error";
    for (const StatusText& entry : kStatusTable) {
        if (entry.code == code) {
            error_ = entry.error;
            errorType_ = entry.type;
        }
    }
}

void StreamHeader::updateServerType() {
    if (streamInfos_.contains("x-audiocast-name:")) {
        serverType_ = 1;
    } else if (streamInfos_.contains("ICY ")) {
        serverType_ = 2;
    } else {
        std::string server = valueOr("Server: ");
        if (startsWith(server, "Nano"))
            serverType_ = 3;
        else if (startsWith(server, "icecast") || startsWith(server, "Icecast"))
            serverType_ = 2;
        else
            serverType_ = 4;
    }
}

std::string StreamHeader::header() const {
    std::string out;
    for (const std::string& key : infoTypes_) {
        auto it = streamInfos_.find(key);
        if (it == streamInfos_.end()) continue;
        out += key;
        out += it->second;
        out += "\r\n";
    }
    // Deliberate: the content type goes along too, so that a player can tell
    // an AAC or Ogg relay from an MP3 one.
    if (!contentType_.empty()) out += "Content-Type: " + contentType_ + "\r\n";
    out += "\r\n";
    return out;
}

std::string StreamHeader::description() const {
    return fmt::format("HEADER DESCRIPTION : \nName : {}\nGenre : {}\nUrl: {}\nBitrate : {}\nMeta : {}",
                       name_, genre_, url_, bitRate(), metaInt_);
}

}  // namespace quillon
