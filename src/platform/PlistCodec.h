#pragma once
// Turns property-list values into bytes and back: the XML property-list format
// (version 1.0) of our files and the binary format of our archives. Decoding
// never throws: corrupt, truncated or unsupported input gives no value, and a
// file that cannot be read or written leaves the caller's state as it was.
//
// Limits: strings end at an embedded NUL byte (input holding one is refused);
// dates in XML keep whole seconds, in binary microseconds; nesting deeper than
// kMaxDepth is refused.
//
// Thread contract: stateless; any thread.
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform/ByteBuffer.h"
#include "platform/PlistValue.h"

namespace quillon {

class PlistCodec {
public:
    static constexpr int kMaxDepth = 256;

    static Bytes encodeXml(const PlistValue& value);
    static Bytes encodeBinary(const PlistValue& value);

    // Either format, recognised by its first bytes.
    static std::optional<PlistValue> decode(std::span<const std::uint8_t> bytes);

    // The whole file decoded; nothing when it is missing, unreadable or corrupt.
    static std::optional<PlistValue> readFile(const std::string& path);
    // Only a file whose root is a dictionary (or an array).
    static std::optional<PlistValue::Dictionary> readDictionaryFile(const std::string& path);
    static std::optional<PlistValue::Array> readArrayFile(const std::string& path);

    // A stored file of ours, which a fresh file replaces when it cannot be read:
    // a missing file gives nothing, quietly; one that exists but holds no
    // property list with a root of that kind gives nothing too, after it was
    // moved aside (DamagedFile), so that the fresh file destroys nothing.
    static std::optional<PlistValue::Dictionary> readStoredDictionary(const std::string& path);
    static std::optional<PlistValue::Array> readStoredArray(const std::string& path);

    // Writes the value as an XML property list, atomically.
    static bool writeXmlFile(const std::string& path, const PlistValue& value);
};

}  // namespace quillon
