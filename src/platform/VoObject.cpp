#include "platform/VoObject.h"

#include <locale.h>
#include <wctype.h>

#include <algorithm>

#include "platform/TextUtil.h"

namespace quillon {

namespace {

// Position of the first occurrence of `key` in `data`, or npos.
std::size_t find(std::span<const std::uint8_t> data, std::string_view key) { return asText(data).find(key); }

// The letter/digit classification of C.UTF-8, which glibc ships with every
// system. Should it be missing, ASCII and Latin-1 letters still count.
bool isLetterOrDigit(char32_t c) {
    static const locale_t utf8 = [] {
        locale_t l = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
        if (!l) l = ::newlocale(LC_CTYPE_MASK, "C.utf8", static_cast<locale_t>(nullptr));
        return l;
    }();
    if (utf8) return ::iswalnum_l(static_cast<wint_t>(c), utf8) != 0;
    if (c < 0x80) return (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z');
    return c >= 0xC0 && c <= 0xFF && c != 0xD7 && c != 0xF7;
}

}  // namespace

std::optional<Bytes> VoObject::returnDataInDataAfter(std::span<const std::uint8_t> data,
                                                     std::string_view key) {
    std::size_t at = find(data, key);
    if (at == std::string_view::npos) return std::nullopt;
    auto rest = data.subspan(at + key.size());
    return Bytes(rest.begin(), rest.end());
}

std::optional<Bytes> VoObject::returnDataInDataBefore(std::span<const std::uint8_t> data,
                                                      std::string_view key) {
    if (key.empty()) return std::nullopt;
    std::size_t at = find(data, key);
    if (at == std::string_view::npos) return std::nullopt;
    return Bytes(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(at));
}

std::optional<std::string> VoObject::returnStringInData(std::span<const std::uint8_t> data,
                                                        std::string_view start, std::string_view end) {
    auto after = returnDataInDataAfter(data, start);
    if (!after) return std::nullopt;
    auto between = returnDataInDataBefore(*after, end);
    if (!between) return std::nullopt;
    return textFromWire(asText(*between));
}

std::optional<std::string> VoObject::returnStringInData(std::string_view data, std::string_view start,
                                                        std::string_view end) {
    return returnStringInData(asBytes(data), start, end);
}

CharFilter VoObject::filterFromChars(std::string_view pairs) {
    std::u32string chars = toUtf32(pairs);
    CharFilter filter;
    for (std::size_t i = 0; i + 1 < chars.size(); i += 2) filter[chars[i]] = chars[i + 1];
    return filter;
}

std::string VoObject::filterString(std::string_view text, const CharFilter& filter) {
    if (filter.empty()) return std::string(text);
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        std::size_t from = i;
        char32_t c = decodeUtf8(text, i);
        auto hit = filter.find(c);
        if (hit == filter.end()) {
            // Copy the original bytes, so that text the decoder read as Latin-1
            // passes through unchanged.
            out.append(text.substr(from, i - from));
        } else {
            appendUtf8(out, hit->second);
        }
    }
    return out;
}

const CharFilter& VoObject::standartFilter() {
    static const CharFilter filter = filterFromChars("\\ /_: | ._");
    return filter;
}

std::string VoObject::alphabeticString(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        std::size_t from = i;
        char32_t c = decodeUtf8(text, i);
        if (c == ' ' || c == '-' || c == '&' || isLetterOrDigit(c)) out.append(text.substr(from, i - from));
    }
    return out;
}

}  // namespace quillon
