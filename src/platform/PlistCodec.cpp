#include "platform/PlistCodec.h"

#include <plist/plist.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include <fmt/format.h>

#include "platform/AtomicFile.h"
#include "platform/DamagedFile.h"
#include "platform/Home.h"
#include "platform/TextUtil.h"

namespace quillon {

namespace {

// Owns one libplist tree.
struct PlistDeleter {
    void operator()(void* node) const {
        if (node) plist_free(node);
    }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

// Owns a buffer that libplist allocated with malloc.
struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
template <typename T>
using Malloced = std::unique_ptr<T, FreeDeleter>;

void splitDate(double seconds, std::int32_t& sec, std::int32_t& usec) {
    constexpr double lo = std::numeric_limits<std::int32_t>::min();
    constexpr double hi = std::numeric_limits<std::int32_t>::max();
    if (std::isnan(seconds)) seconds = 0;
    if (seconds < lo) seconds = lo;
    if (seconds > hi) seconds = hi;
    // Both parts carry the sign, so that sec + usec / 1e6 is the value again.
    double whole = std::trunc(seconds);
    sec = static_cast<std::int32_t>(whole);
    usec = static_cast<std::int32_t>(std::lround((seconds - whole) * 1e6));
    if (usec >= 1000000 || usec <= -1000000) {
        sec += usec / 1000000;
        usec %= 1000000;
    }
}

// Our strings are UTF-8. A damaged or foreign binary list can hold other bytes
// in its one-byte strings; those are read as Latin-1, as the format intends.
std::string validText(const char* raw) { return raw ? textFromWire(raw) : std::string(); }

// libplist keeps a date as one double (sec + usec / 1e6) and hands it back as
// whole seconds plus the fraction's microseconds, truncated and without sign;
// a date so comes back within a microsecond or two (PlistDate's equality allows
// for that). A date less than a second before the epoch reads back after it.
plist_t newDate(double seconds) {
    std::int32_t sec = 0, usec = 0;
    splitDate(seconds, sec, usec);
    return plist_new_date(sec, usec);
}

// Builds a libplist node; null past the nesting limit.
plist_t toNode(const PlistValue& value, int depth) {
    if (depth > PlistCodec::kMaxDepth) return nullptr;
    switch (value.kind()) {
        case PlistValue::Kind::String:
            return plist_new_string(value.asString()->c_str());
        case PlistValue::Kind::Integer:
            // libplist keeps integers as 64-bit patterns and writes them signed.
            return plist_new_uint(static_cast<std::uint64_t>(*value.asInteger()));
        case PlistValue::Kind::Real:
            return plist_new_real(*value.asReal());
        case PlistValue::Kind::Boolean:
            return plist_new_bool(*value.asBoolean() ? 1 : 0);
        case PlistValue::Kind::Date:
            return newDate(value.asDate()->secondsSince2001);
        case PlistValue::Kind::Data: {
            const auto& bytes = *value.asData();
            return plist_new_data(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        }
        case PlistValue::Kind::Array: {
            PlistPtr array(plist_new_array());
            for (const PlistValue& item : *value.asArray()) {
                plist_t child = toNode(item, depth + 1);
                if (!child) return nullptr;
                plist_array_append_item(array.get(), child);
            }
            return array.release();
        }
        case PlistValue::Kind::Dictionary: {
            PlistPtr dict(plist_new_dict());
            for (const auto& [key, item] : *value.asDictionary()) {
                plist_t child = toNode(item, depth + 1);
                if (!child) return nullptr;
                plist_dict_set_item(dict.get(), key.c_str(), child);
            }
            return dict.release();
        }
    }
    return nullptr;
}

std::optional<PlistValue> fromNode(plist_t node, int depth) {
    if (!node || depth > PlistCodec::kMaxDepth) return std::nullopt;
    switch (plist_get_node_type(node)) {
        case PLIST_STRING: {
            std::uint64_t length = 0;
            const char* raw = plist_get_string_ptr(node, &length);
            if (!raw) return std::nullopt;
            return PlistValue(validText(raw));
        }
        case PLIST_UINT: {
            std::uint64_t n = 0;
            plist_get_uint_val(node, &n);
            return PlistValue::integer(static_cast<std::int64_t>(n));
        }
        case PLIST_REAL: {
            double x = 0;
            plist_get_real_val(node, &x);
            return PlistValue::real(x);
        }
        case PLIST_BOOLEAN: {
            std::uint8_t b = 0;
            plist_get_bool_val(node, &b);
            return PlistValue::boolean(b != 0);
        }
        case PLIST_DATE: {
            std::int32_t sec = 0, usec = 0;
            plist_get_date_val(node, &sec, &usec);
            // The fraction comes without its sign; it has the sign of the seconds.
            double fraction = std::abs(static_cast<double>(usec)) / 1e6;
            return PlistValue(PlistDate{sec < 0 ? sec - fraction : sec + fraction});
        }
        case PLIST_DATA: {
            char* raw = nullptr;
            std::uint64_t length = 0;
            plist_get_data_val(node, &raw, &length);
            Malloced<char> owner(raw);
            if (!raw && length > 0) return std::nullopt;
            const auto* begin = reinterpret_cast<const std::uint8_t*>(raw);
            return PlistValue(PlistValue::Data(begin, begin + length));
        }
        case PLIST_ARRAY: {
            PlistValue::Array items;
            std::uint32_t count = plist_array_get_size(node);
            items.reserve(count);
            for (std::uint32_t i = 0; i < count; ++i) {
                auto item = fromNode(plist_array_get_item(node, i), depth + 1);
                if (!item) return std::nullopt;
                items.push_back(std::move(*item));
            }
            return PlistValue(std::move(items));
        }
        case PLIST_DICT: {
            PlistValue::Dictionary entries;
            plist_dict_iter iter = nullptr;
            plist_dict_new_iter(node, &iter);
            Malloced<void> iterOwner(iter);
            if (!iter) return std::nullopt;
            while (true) {
                char* rawKey = nullptr;
                plist_t child = nullptr;
                plist_dict_next_item(node, iter, &rawKey, &child);
                Malloced<char> key(rawKey);
                if (!child) break;
                if (!rawKey) return std::nullopt;
                auto item = fromNode(child, depth + 1);
                if (!item) return std::nullopt;
                entries.insert_or_assign(validText(rawKey), std::move(*item));
            }
            return PlistValue(std::move(entries));
        }
        default:
            // Keys out of place, keyed-archive UIDs: not a value of ours.
            return std::nullopt;
    }
}

Bytes fromMalloced(char* raw, std::uint32_t length) {
    Malloced<char> owner(raw);
    if (!raw) return {};
    const auto* begin = reinterpret_cast<const std::uint8_t*>(raw);
    return Bytes(begin, begin + length);
}

std::uint64_t readBigEndian(const std::uint8_t* p, std::size_t n) {
    std::uint64_t v = 0;
    for (std::size_t i = 0; i < n; ++i) v = (v << 8) | p[i];
    return v;
}

// libplist must only see input it survives. It reads strings as C strings and
// aborts on one with a NUL inside; it builds, reads and frees trees
// recursively, so deep nesting overflows the stack; and it expands a binary
// list's shared objects into copies, so a few objects that refer to each other
// twice over can stand for billions of nodes. These checks refuse such input
// before libplist parses it.
constexpr std::uint64_t kMaxNodes = 2'000'000;

bool xmlIsSafe(std::string_view text) {
    if (text.find('\0') != std::string_view::npos) return false;
    int depth = 0;
    for (std::size_t at = text.find('<'); at != std::string_view::npos; at = text.find('<', at + 1)) {
        std::string_view tag = text.substr(at + 1);
        bool closing = !tag.empty() && tag[0] == '/';
        if (closing) tag.remove_prefix(1);
        std::size_t nameLength = tag.rfind("array", 0) == 0 ? 5 : tag.rfind("dict", 0) == 0 ? 4 : 0;
        if (nameLength == 0 || nameLength >= tag.size()) continue;
        char next = tag[nameLength];
        if (next != '>' && next != '/' && next != ' ' && next != '\t' && next != '\r' && next != '\n')
            continue;
        std::size_t close = tag.find('>');
        bool empty = close != std::string_view::npos && close > 0 && tag[close - 1] == '/';
        if (closing) {
            --depth;
        } else if (!empty && ++depth > PlistCodec::kMaxDepth) {
            return false;
        }
    }
    return true;
}

// The objects of a binary list, read from its trailer and offset table.
class BinaryObjects {
public:
    explicit BinaryObjects(std::string_view bytes)
        : data_(reinterpret_cast<const std::uint8_t*>(bytes.data())), size_(bytes.size()) {}

    // Strings without NUL, references inside the list, nesting and expanded
    // size within the limits.
    bool safe() {
        constexpr std::size_t kTrailer = 32;
        if (size_ < 8 + kTrailer) return false;
        end_ = size_ - kTrailer;
        const std::uint8_t* trailer = data_ + end_;
        offsetSize_ = trailer[6];
        refSize_ = trailer[7];
        count_ = readBigEndian(trailer + 8, 8);
        std::uint64_t top = readBigEndian(trailer + 16, 8);
        tableOffset_ = readBigEndian(trailer + 24, 8);
        if (offsetSize_ < 1 || offsetSize_ > 8 || refSize_ < 1 || refSize_ > 8) return false;
        if (tableOffset_ > end_ || count_ > end_ || count_ * offsetSize_ > end_ - tableOffset_ ||
            top >= count_) {
            return false;
        }
        for (std::uint64_t i = 0; i < count_; ++i) {
            if (!stringIsSafe(i)) return false;
        }
        return measure(top);
    }

private:
    struct Object {
        std::uint64_t first = 0;  // offset of the first reference
        std::uint64_t refs = 0;   // number of references (containers only)
    };
    struct Measure {
        std::uint32_t depth = 0;
        std::uint64_t nodes = 0;
        int state = 0;  // 0 unseen, 1 on the current path, 2 done
    };

    bool offsetOf(std::uint64_t index, std::uint64_t& offset) const {
        offset = readBigEndian(data_ + tableOffset_ + index * offsetSize_, offsetSize_);
        return offset < end_;
    }

    // The length that follows a marker: its low nibble, or an integer object.
    bool lengthAt(std::uint64_t offset, std::uint64_t& length, std::uint64_t& next) const {
        length = data_[offset] & 0x0F;
        next = offset + 1;
        if (length != 0x0F) return true;
        if (next >= end_ || (data_[next] >> 4) != 0x1) return false;
        std::size_t intSize = std::size_t{1} << (data_[next] & 0x0F);
        if (intSize > 8 || next + 1 + intSize > end_) return false;
        length = readBigEndian(data_ + next + 1, intSize);
        next += 1 + intSize;
        return true;
    }

    bool stringIsSafe(std::uint64_t index) const {
        std::uint64_t offset = 0, length = 0, pos = 0;
        if (!offsetOf(index, offset)) return false;
        int type = data_[offset] >> 4;
        if (type != 0x5 && type != 0x6) return true;  // one-byte and two-byte strings
        if (!lengthAt(offset, length, pos)) return false;
        std::uint64_t unit = type == 0x5 ? 1 : 2;
        if (length > (end_ - pos) / unit) return false;
        for (std::uint64_t k = 0; k < length; ++k) {
            const std::uint8_t* c = data_ + pos + k * unit;
            if (c[0] == 0 && (unit == 1 || c[1] == 0)) return false;
        }
        return true;
    }

    bool containerAt(std::uint64_t index, Object& object) const {
        std::uint64_t offset = 0, length = 0, pos = 0;
        object = {};
        if (!offsetOf(index, offset)) return false;
        int type = data_[offset] >> 4;
        if (type != 0xA && type != 0xC && type != 0xD) return true;  // arrays, sets, dictionaries
        if (!lengthAt(offset, length, pos)) return false;
        std::uint64_t refs = type == 0xD ? 2 * length : length;
        if (length > end_ || refs > (end_ - pos) / refSize_) return false;
        object = {pos, refs};
        return true;
    }

    std::uint64_t refAt(const Object& object, std::uint64_t k) const {
        return readBigEndian(data_ + object.first + k * refSize_, refSize_);
    }

    // Depth and expanded size from `top`, without recursion.
    bool measure(std::uint64_t top) {
        std::vector<Measure> seen(count_);
        struct Frame {
            std::uint64_t index;
            Object object;
            std::uint64_t next = 0;
        };
        std::vector<Frame> stack;
        auto enter = [&](std::uint64_t index) {
            Object object;
            if (index >= count_ || seen[index].state == 1 || !containerAt(index, object)) return false;
            if (seen[index].state == 2) return true;
            seen[index] = {0, 1, 1};
            stack.push_back({index, object});
            return stack.size() <= static_cast<std::size_t>(PlistCodec::kMaxDepth) + 1;
        };
        if (!enter(top)) return false;
        while (!stack.empty()) {
            Frame& frame = stack.back();
            if (frame.next < frame.object.refs) {
                std::uint64_t child = refAt(frame.object, frame.next++);
                if (!enter(child)) return false;
                continue;
            }
            Measure& m = seen[frame.index];
            for (std::uint64_t k = 0; k < frame.object.refs; ++k) {
                const Measure& c = seen[refAt(frame.object, k)];
                m.depth = std::max(m.depth, c.depth + 1);
                m.nodes += c.nodes;
                if (m.nodes > kMaxNodes) return false;
            }
            if (m.depth > static_cast<std::uint32_t>(PlistCodec::kMaxDepth)) return false;
            m.state = 2;
            stack.pop_back();
        }
        return true;
    }

    const std::uint8_t* data_;
    std::size_t size_;
    std::uint64_t end_ = 0;
    std::size_t offsetSize_ = 0;
    std::size_t refSize_ = 0;
    std::uint64_t count_ = 0;
    std::uint64_t tableOffset_ = 0;
};

bool safeForLibplist(std::string_view bytes, bool binary) {
    return binary ? BinaryObjects(bytes).safe() : xmlIsSafe(bytes);
}

// The root of a stored file when it has the kind wanted; a damaged file is moved aside.
std::optional<PlistValue> readStored(const std::string& path, PlistValue::Kind kind) {
    if (!fileExists(path)) return std::nullopt;
    std::string failure;
    if (auto bytes = readWholeFile(path); !bytes) {
        failure = fmt::format("reading failed: {}", std::strerror(errno));
    } else if (auto root = PlistCodec::decode(*bytes); !root) {
        failure = "not a property list";
    } else if (root->kind() != kind) {
        failure = fmt::format("the root is a {}, not a {}", PlistValue::kindName(root->kind()),
                              PlistValue::kindName(kind));
    } else {
        return root;
    }
    DamagedFile::moveAside(path, failure);
    return std::nullopt;
}

}  // namespace

Bytes PlistCodec::encodeXml(const PlistValue& value) {
    PlistPtr root(toNode(value, 0));
    if (!root) return {};
    char* out = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(root.get(), &out, &length);
    return fromMalloced(out, length);
}

Bytes PlistCodec::encodeBinary(const PlistValue& value) {
    PlistPtr root(toNode(value, 0));
    if (!root) return {};
    char* out = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(root.get(), &out, &length);
    return fromMalloced(out, length);
}

std::optional<PlistValue> PlistCodec::decode(std::span<const std::uint8_t> bytes) {
    if (bytes.empty() || bytes.size() > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
    // A private, NUL-terminated copy: the XML reader must never run past the end.
    std::string copy(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    auto length = static_cast<std::uint32_t>(copy.size());
    bool binary = plist_is_binary(copy.data(), length) != 0;
    if (!safeForLibplist(copy, binary)) return std::nullopt;
    plist_t raw = nullptr;
    if (binary) {
        plist_from_bin(copy.data(), length, &raw);
    } else {
        plist_from_xml(copy.data(), length, &raw);
    }
    PlistPtr root(raw);
    if (!root) return std::nullopt;
    return fromNode(root.get(), 0);
}

std::optional<PlistValue> PlistCodec::readFile(const std::string& path) {
    auto bytes = readWholeFile(path);
    if (!bytes) return std::nullopt;
    return decode(*bytes);
}

std::optional<PlistValue::Dictionary> PlistCodec::readDictionaryFile(const std::string& path) {
    auto value = readFile(path);
    if (!value || !value->isDictionary()) return std::nullopt;
    return std::move(*value->asDictionary());
}

std::optional<PlistValue::Array> PlistCodec::readArrayFile(const std::string& path) {
    auto value = readFile(path);
    if (!value || !value->isArray()) return std::nullopt;
    return std::move(*value->asArray());
}

std::optional<PlistValue::Dictionary> PlistCodec::readStoredDictionary(const std::string& path) {
    auto root = readStored(path, PlistValue::Kind::Dictionary);
    if (!root) return std::nullopt;
    return std::move(*root->asDictionary());
}

std::optional<PlistValue::Array> PlistCodec::readStoredArray(const std::string& path) {
    auto root = readStored(path, PlistValue::Kind::Array);
    if (!root) return std::nullopt;
    return std::move(*root->asArray());
}

bool PlistCodec::writeXmlFile(const std::string& path, const PlistValue& value) {
    Bytes bytes = encodeXml(value);
    if (bytes.empty()) return false;
    return writeFileAtomically(path, bytes);
}

}  // namespace quillon
