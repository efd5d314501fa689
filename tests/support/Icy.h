#pragma once
// A reader of what an ICY client received: the reply header, then audio in runs
// of the meta interval, each followed by a metadata block (a length byte that
// counts 16-byte units, then the text padded with zero bytes).
#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ByteBuffer.h"

namespace quillon::test {

struct IcyMeta {
    std::uint64_t audioOffset = 0;  // audio bytes before the block
    std::uint8_t length = 0;        // the length byte
    std::string text;               // without the zero padding
};

// The text between "StreamTitle='" and "';".
inline std::optional<std::string> streamTitle(std::string_view text) {
    constexpr std::string_view open = "StreamTitle='";
    const auto start = text.find(open);
    const auto end = start == std::string_view::npos ? start : text.find("';", start);
    if (end == std::string_view::npos) return std::nullopt;
    return std::string(text.substr(start + open.size(), end - start - open.size()));
}

struct IcyStream {
    std::string header;         // through its blank line, when read with one
    Bytes audio;                // every audio byte, a cut-off last run included
    std::vector<IcyMeta> meta;  // every whole metadata block, in order
    bool wellFormed = true;     // each text followed by zero bytes only, and by at least one

    // The audio in whole blocks of `size` bytes (a shorter last one left out).
    std::vector<std::string> audioBlocks(std::size_t size) const {
        std::vector<std::string> blocks;
        const std::string_view all = asText(audio);
        for (std::size_t at = 0; at + size <= all.size(); at += size)
            blocks.emplace_back(all.substr(at, size));
        return blocks;
    }
    // The titles the metadata blocks announce, in order.
    std::vector<std::string> titles() const {
        std::vector<std::string> out;
        for (const auto& block : meta)
            if (auto title = streamTitle(block.text)) out.push_back(*title);
        return out;
    }
};

// Splits the bytes after the header for meta interval `metaint` (0: all audio);
// a metadata block cut off at the end is left out.
inline IcyStream parseIcy(std::string_view bytes, std::uint32_t metaint) {
    IcyStream stream;
    std::size_t pos = 0;
    while (pos < bytes.size()) {
        const std::size_t n =
            metaint == 0 ? bytes.size() - pos : std::min<std::size_t>(metaint, bytes.size() - pos);
        const auto run = asBytes(bytes.substr(pos, n));
        stream.audio.insert(stream.audio.end(), run.begin(), run.end());
        pos += n;
        if (metaint == 0 || n < metaint || pos == bytes.size()) break;
        const auto length = static_cast<std::uint8_t>(bytes[pos]);
        if (pos + 1 + length * std::size_t{16} > bytes.size()) break;
        std::string text(bytes.substr(pos + 1, length * std::size_t{16}));
        const std::size_t padding = text.find('\0');
        if (length > 0 &&
            (padding == std::string::npos || text.find_first_not_of('\0', padding) != std::string::npos))
            stream.wellFormed = false;
        text.erase(text.find_last_not_of('\0') + 1);
        stream.meta.push_back({stream.audio.size(), length, std::move(text)});
        pos += 1 + length * std::size_t{16};
    }
    return stream;
}

inline IcyStream parseIcy(const Bytes& bytes, std::uint32_t metaint) {
    return parseIcy(asText(bytes), metaint);
}

// The same for a whole reply, header first; an empty stream until the header is whole.
inline IcyStream parseIcyReply(std::string_view reply, std::uint32_t metaint) {
    const std::size_t end = reply.find("\r\n\r\n");
    if (end == std::string_view::npos) return {};
    IcyStream stream = parseIcy(reply.substr(end + 4), metaint);
    stream.header = reply.substr(0, end + 4);
    return stream;
}

}  // namespace quillon::test
