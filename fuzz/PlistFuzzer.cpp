// Property lists as read from stored files and archives, XML and binary. The
// guards in PlistCodec decide what libplist gets to see; a value that decodes
// must also survive being written back in both formats, since that is what a
// resource does with it next.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>

#include "FuzzCheck.h"
#include "platform/PlistCodec.h"
#include "platform/TextUtil.h"

using namespace quillon;

namespace {

// A date as it can come back: libplist keeps 32-bit seconds, XML whole seconds,
// and a date less than a second before the epoch reads back after it.
bool sameDate(double written, double read) {
    constexpr double lo = std::numeric_limits<std::int32_t>::min();
    constexpr double hi = std::numeric_limits<std::int32_t>::max();
    double expected = std::isnan(written) ? 0 : std::clamp(written, lo, hi);
    return std::abs(expected - read) < 1 + 2e-6;
}

// Equality as far as the formats promise it: a NaN equals itself, dates as above.
bool same(const PlistValue& a, const PlistValue& b) {
    if (a.isReal() && b.isReal() && std::isnan(*a.asReal()) && std::isnan(*b.asReal())) return true;
    if (a.isDate() && b.isDate()) return sameDate(a.asDate()->secondsSince2001, b.asDate()->secondsSince2001);
    if (a.isArray() && b.isArray()) {
        const auto& x = *a.asArray();
        const auto& y = *b.asArray();
        if (x.size() != y.size()) return false;
        for (std::size_t i = 0; i < x.size(); ++i)
            if (!same(x[i], y[i])) return false;
        return true;
    }
    if (a.isDictionary() && b.isDictionary()) {
        const auto& x = *a.asDictionary();
        const auto& y = *b.asDictionary();
        if (x.size() != y.size()) return false;
        for (auto i = x.begin(), j = y.begin(); i != x.end(); ++i, ++j)
            if (i->first != j->first || !same(i->second, j->second)) return false;
        return true;
    }
    return a == b;
}

void checkStrings(const PlistValue& value) {
    if (value.isString()) FUZZ_CHECK(isValidUtf8(*value.asString()));
    if (value.isArray())
        for (const PlistValue& item : *value.asArray()) checkStrings(item);
    if (value.isDictionary()) {
        for (const auto& [key, item] : *value.asDictionary()) {
            FUZZ_CHECK(isValidUtf8(key));
            checkStrings(item);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto value = PlistCodec::decode(std::span<const std::uint8_t>(data, size));
    if (!value) return 0;
    checkStrings(*value);
    for (Bytes encoded : {PlistCodec::encodeXml(*value), PlistCodec::encodeBinary(*value)}) {
        FUZZ_CHECK(!encoded.empty());
        auto again = PlistCodec::decode(encoded);
        FUZZ_CHECK(again && same(*value, *again));
    }
    return 0;
}
