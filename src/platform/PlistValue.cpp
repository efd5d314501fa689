#include "platform/PlistValue.h"

#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <limits>

#include "platform/TextUtil.h"

namespace quillon {

PlistDate PlistDate::now() {
    auto since = std::chrono::system_clock::now().time_since_epoch();
    return fromUnixTime(std::chrono::duration<double>(since).count());
}

bool PlistDate::operator==(const PlistDate& other) const {
    return std::abs(secondsSince2001 - other.secondsSince2001) < 2e-6;
}

PlistValue PlistValue::integer(std::int64_t n) {
    PlistValue v;
    v.value_ = n;
    return v;
}

PlistValue PlistValue::real(double x) {
    PlistValue v;
    v.value_ = x;
    return v;
}

PlistValue PlistValue::boolean(bool b) {
    PlistValue v;
    v.value_ = b;
    return v;
}

const PlistValue* PlistValue::find(std::string_view key) const {
    const Dictionary* dict = asDictionary();
    if (!dict) return nullptr;
    auto it = dict->find(key);
    return it == dict->end() ? nullptr : &it->second;
}

std::int64_t PlistValue::integerValue() const {
    switch (kind()) {
        case Kind::Integer:
            return *asInteger();
        case Kind::Real: {
            double x = *asReal();
            // Out-of-range and NaN conversions are undefined in C++; clamp them.
            if (std::isnan(x)) return 0;
            if (x >= 9.2e18) return std::numeric_limits<std::int64_t>::max();
            if (x <= -9.2e18) return std::numeric_limits<std::int64_t>::min();
            return static_cast<std::int64_t>(x);
        }
        case Kind::Boolean:
            return *asBoolean() ? 1 : 0;
        case Kind::String:
            return longValue(*asString());
        default:
            return 0;
    }
}

double PlistValue::doubleValue() const {
    switch (kind()) {
        case Kind::Integer:
            return static_cast<double>(*asInteger());
        case Kind::Real:
            return *asReal();
        case Kind::Boolean:
            return *asBoolean() ? 1 : 0;
        case Kind::String:
            return quillon::doubleValue(*asString());
        default:
            return 0;
    }
}

std::string PlistValue::text() const {
    switch (kind()) {
        case Kind::String:
            return *asString();
        case Kind::Integer:
            return std::to_string(*asInteger());
        case Kind::Real:
            return fmt::format("{}", *asReal());
        case Kind::Boolean:
            return *asBoolean() ? "YES" : "NO";
        case Kind::Date:
            return fmt::format("<date {}>", asDate()->secondsSince2001);
        case Kind::Data:
            return fmt::format("<{} bytes>", asData()->size());
        case Kind::Array: {
            std::string out = "(";
            bool first = true;
            for (const PlistValue& item : *asArray()) {
                if (!first) out += ", ";
                first = false;
                out += item.text();
            }
            return out + ")";
        }
        case Kind::Dictionary: {
            std::string out = "{";
            for (const auto& [key, item] : *asDictionary()) out += key + " = " + item.text() + "; ";
            return out + "}";
        }
    }
    return {};
}

const char* PlistValue::kindName(Kind kind) {
    switch (kind) {
        case Kind::String:
            return "string";
        case Kind::Integer:
            return "integer";
        case Kind::Real:
            return "real";
        case Kind::Boolean:
            return "boolean";
        case Kind::Date:
            return "date";
        case Kind::Data:
            return "data";
        case Kind::Array:
            return "array";
        case Kind::Dictionary:
            return "dictionary";
    }
    return "?";
}

}  // namespace quillon
