#include "station/StationOptions.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "platform/TextConverter.h"
#include "station/TitlePlan.h"

namespace quillon {

namespace {

std::string_view trimmed(std::string_view text) {
    const auto blank = [](char c) { return c == ' ' || c == '\t'; };
    while (!text.empty() && blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && blank(text.back())) text.remove_suffix(1);
    return text;
}

}  // namespace

bool isMp3Bitrate(std::uint32_t kbps) {
    static constexpr std::array<std::uint32_t, 14> rates{32,  40,  48,  56,  64,  80,  96,
                                                         112, 128, 160, 192, 224, 256, 320};
    return std::find(rates.begin(), rates.end(), kbps) != rates.end();
}

std::optional<std::string> titleOnWire(const std::string& title, const std::string& encoding) {
    if (encoding.empty()) return title;
    return TextConverter(encoding, "UTF-8").convert(title);
}

std::vector<std::string> parseTitleList(std::string_view text) {
    std::vector<std::string> titles;
    while (true) {
        const auto comma = text.find(',');
        const auto item = trimmed(text.substr(0, comma));
        if (!item.empty()) titles.emplace_back(item);
        if (comma == std::string_view::npos) break;
        text.remove_prefix(comma + 1);
    }
    return titles;
}

void validate(const StationOptions& o) {
    const auto fail = [](const std::string& reason) { throw std::invalid_argument(reason); };
    if (o.bitrate == 0) fail("bitrate must be above 0 kbit/s");
    if (o.payload == StationPayload::mp3 && !isMp3Bitrate(o.bitrate)) {
        fail("bitrate " + std::to_string(o.bitrate) +
             " is not an MPEG-1 Layer III rate (32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, "
             "256, 320)");
    }
    if (!o.titleEncoding.empty()) {
        try {
            const TextConverter probe(o.titleEncoding, "UTF-8");
        } catch (const std::invalid_argument&) {
            fail("unknown title encoding: " + o.titleEncoding);
        }
    }
    for (const auto& title : o.titles) {
        const auto wire = titleOnWire(title, o.titleEncoding);
        if (!wire) fail("title cannot be sent in " + o.titleEncoding + ": " + title);
        if (TitlePlan::metadataText(*wire).size() > TitlePlan::maxMetadataBytes) {
            fail("title too long for one metadata block: " + title.substr(0, 40) + "...");
        }
    }
    if (o.badMetaAt && o.metaint == 0) fail("a bad metadata block needs a meta interval above 0");
    if (o.badMetaAt && o.emptyTitles != EmptyTitles::none) {
        fail("a bad metadata block needs titles, not empty titles");
    }
    if (o.closeAfter && *o.closeAfter == 0) fail("close-after must be at least 1 byte");
    if (o.tlsCertificate.has_value() != o.tlsKey.has_value()) fail("TLS needs both a certificate and a key");
    if (o.refuse && (*o.refuse < 400 || *o.refuse > 599)) {
        fail("refusal status must be between 400 and 599, not " + std::to_string(*o.refuse));
    }
    if (o.redirectTo) {
        const std::string_view url = *o.redirectTo;
        const std::size_t scheme = url.substr(0, 7) == "http://" ? 7 : url.substr(0, 8) == "https://" ? 8 : 0;
        if (scheme == 0 || url.size() == scheme) {
            fail("redirect target must be an http:// or https:// URL: " + *o.redirectTo);
        }
        if (url.find_first_of("\r\n") != std::string_view::npos) fail("redirect target has a line break");
    }
    if (o.redirectTo && o.refuse) fail("choose either a redirect or a refusal");
    if (o.chunked && o.status != StationStatus::http) fail("chunked answers need the http status line");
    if (o.badChunkAt && !o.chunked) fail("a bad chunk needs chunked answers");
    for (const std::string* text : {&o.name, &o.genre, &o.url}) {
        if (text->find_first_of("\r\n") != std::string::npos) fail("header texts cannot hold line breaks");
    }
    if (o.server && o.server->find_first_of("\r\n") != std::string::npos) {
        fail("header texts cannot hold line breaks");
    }
}

}  // namespace quillon
