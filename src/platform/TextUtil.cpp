#include "platform/TextUtil.h"

#include <cctype>
#include <cstdlib>
#include <limits>

namespace quillon {

std::int64_t longValue(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    std::int64_t value = 0;
    constexpr std::int64_t cap = std::numeric_limits<std::int64_t>::max() / 10 - 10;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        if (value < cap) value = value * 10 + (text[i] - '0');
    }
    return negative ? -value : value;
}

std::int32_t intValue(std::string_view text) {
    std::int64_t v = longValue(text);
    if (v > std::numeric_limits<std::int32_t>::max()) return std::numeric_limits<std::int32_t>::max();
    if (v < std::numeric_limits<std::int32_t>::min()) return std::numeric_limits<std::int32_t>::min();
    return static_cast<std::int32_t>(v);
}

double doubleValue(std::string_view text) {
    std::string copy(text);
    return std::strtod(copy.c_str(), nullptr);
}

std::string padLeft(std::string_view text, std::size_t length, char fill) {
    std::string out(text);
    if (out.size() < length) out.insert(0, length - out.size(), fill);
    return out;
}

std::string toLowerAscii(std::string_view text) {
    std::string out(text);
    for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

std::string_view trimmedBlanks(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

bool endsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

namespace {
// Length of the valid UTF-8 sequence at pos, or 0 when the bytes there are not one.
std::size_t utf8SequenceLength(std::string_view s, std::size_t pos) {
    auto b = [&](std::size_t i) { return static_cast<unsigned char>(s[i]); };
    unsigned char c = b(pos);
    std::size_t len;
    char32_t min;
    if (c < 0x80) return 1;
    if ((c & 0xE0) == 0xC0) {
        len = 2;
        min = 0x80;
    } else if ((c & 0xF0) == 0xE0) {
        len = 3;
        min = 0x800;
    } else if ((c & 0xF8) == 0xF0) {
        len = 4;
        min = 0x10000;
    } else {
        return 0;
    }
    if (pos + len > s.size()) return 0;
    char32_t cp = c & (0x7F >> len);
    for (std::size_t i = 1; i < len; ++i) {
        if ((b(pos + i) & 0xC0) != 0x80) return 0;
        cp = (cp << 6) | (b(pos + i) & 0x3F);
    }
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
    return len;
}
}  // namespace

bool isValidUtf8(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        std::size_t len = utf8SequenceLength(text, i);
        if (len == 0) return false;
        i += len;
    }
    return true;
}

void appendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

std::string latin1ToUtf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) appendUtf8(out, static_cast<unsigned char>(c));
    return out;
}

std::string textFromWire(std::string_view bytes) {
    return isValidUtf8(bytes) ? std::string(bytes) : latin1ToUtf8(bytes);
}

std::string_view utf8Prefix(std::string_view text, std::size_t maxBytes) {
    if (text.size() <= maxBytes) return text;
    std::size_t end = maxBytes;
    // Step back over continuation bytes to the start of the cut character.
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return text.substr(0, end);
}

char32_t decodeUtf8(std::string_view text, std::size_t& pos) {
    std::size_t len = utf8SequenceLength(text, pos);
    unsigned char c = static_cast<unsigned char>(text[pos]);
    if (len <= 1) {
        ++pos;
        return c;
    }
    char32_t cp = c & (0x7F >> len);
    for (std::size_t i = 1; i < len; ++i) cp = (cp << 6) | (static_cast<unsigned char>(text[pos + i]) & 0x3F);
    pos += len;
    return cp;
}

std::u32string toUtf32(std::string_view text) {
    std::u32string out;
    for (std::size_t i = 0; i < text.size();) out += decodeUtf8(text, i);
    return out;
}

std::string toUtf8(std::u32string_view text) {
    std::string out;
    for (char32_t c : text) appendUtf8(out, c);
    return out;
}

std::string base64Encode(std::string_view bytes) {
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    std::size_t i = 0;
    auto byte = [&](std::size_t k) { return static_cast<unsigned char>(bytes[k]); };
    for (; i + 2 < bytes.size(); i += 3) {
        unsigned v = (byte(i) << 16) | (byte(i + 1) << 8) | byte(i + 2);
        out += alphabet[(v >> 18) & 63];
        out += alphabet[(v >> 12) & 63];
        out += alphabet[(v >> 6) & 63];
        out += alphabet[v & 63];
    }
    if (i + 1 == bytes.size()) {
        unsigned v = byte(i) << 16;
        out += alphabet[(v >> 18) & 63];
        out += alphabet[(v >> 12) & 63];
        out += "==";
    } else if (i + 2 == bytes.size()) {
        unsigned v = (byte(i) << 16) | (byte(i + 1) << 8);
        out += alphabet[(v >> 18) & 63];
        out += alphabet[(v >> 12) & 63];
        out += alphabet[(v >> 6) & 63];
        out += '=';
    }
    return out;
}

std::string printable(std::string_view text) {
    static constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        std::size_t len = utf8SequenceLength(text, i);
        if (len == 0) {
            // A stray byte of 0x80-0x9F would be a C1 control to an 8-bit terminal.
            out += kReplacement;
            ++i;
            continue;
        }
        std::size_t at = i;
        char32_t c = decodeUtf8(text, at);
        if (c < 0x20 || (c >= 0x7F && c <= 0x9F)) {
            out += kReplacement;
        } else {
            out.append(text.substr(i, len));
        }
        i += len;
    }
    return out;
}

}  // namespace quillon
