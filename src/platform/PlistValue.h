#pragma once
// One property-list value: string, integer, real, boolean, date, data, array or
// dictionary. Every kind survives a round trip through our files and archives
// unchanged; in particular the integer 1 and the real 1.0 are different values.
//
// Integers are signed 64-bit (every unsigned value the system stores is 32-bit
// and fits). Dictionaries are ordered by key (byte-wise), which also makes the
// files we write stable from one save to the next.
//
// Thread contract: a plain value type; a value may be read from several threads
// at once, written by one thread at a time.
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace quillon {

// A moment as seconds since 2001-01-01 00:00:00 UTC, the epoch of property lists.
struct PlistDate {
    double secondsSince2001 = 0;

    static constexpr double kUnixOffset = 978307200.0;  // 2001-01-01 in Unix time
    static PlistDate fromUnixTime(double unixSeconds) { return {unixSeconds - kUnixOffset}; }
    double unixTime() const { return secondsSince2001 + kUnixOffset; }
    // The current time.
    static PlistDate now();

    // Archives keep dates to about a microsecond: dates less than two
    // microseconds apart are equal.
    bool operator==(const PlistDate& other) const;
};

class PlistValue {
public:
    enum class Kind { String, Integer, Real, Boolean, Date, Data, Array, Dictionary };

    using Array = std::vector<PlistValue>;
    using Dictionary = std::map<std::string, PlistValue, std::less<>>;
    using Data = std::vector<std::uint8_t>;

    // The empty string.
    PlistValue() = default;
    PlistValue(std::string text) : value_(std::move(text)) {}
    PlistValue(const char* text) : value_(std::string(text)) {}
    PlistValue(std::string_view text) : value_(std::string(text)) {}
    PlistValue(Array items) : value_(std::move(items)) {}
    PlistValue(Dictionary entries) : value_(std::move(entries)) {}
    PlistValue(PlistDate date) : value_(date) {}
    PlistValue(Data bytes) : value_(std::move(bytes)) {}

    // Numbers and booleans are made by name, so that an int never turns into a
    // bool (or a double into an int) by an implicit conversion.
    static PlistValue integer(std::int64_t n);
    static PlistValue real(double x);
    static PlistValue boolean(bool b);

    Kind kind() const { return static_cast<Kind>(value_.index()); }
    bool isString() const { return kind() == Kind::String; }
    bool isInteger() const { return kind() == Kind::Integer; }
    bool isReal() const { return kind() == Kind::Real; }
    bool isNumber() const { return isInteger() || isReal(); }
    bool isDate() const { return kind() == Kind::Date; }
    bool isArray() const { return kind() == Kind::Array; }
    bool isDictionary() const { return kind() == Kind::Dictionary; }

    // The held value, or null when the value is of another kind.
    const std::string* asString() const { return std::get_if<std::string>(&value_); }
    const std::int64_t* asInteger() const { return std::get_if<std::int64_t>(&value_); }
    const double* asReal() const { return std::get_if<double>(&value_); }
    const bool* asBoolean() const { return std::get_if<bool>(&value_); }
    const PlistDate* asDate() const { return std::get_if<PlistDate>(&value_); }
    const Data* asData() const { return std::get_if<Data>(&value_); }
    const Array* asArray() const { return std::get_if<Array>(&value_); }
    Array* asArray() { return std::get_if<Array>(&value_); }
    const Dictionary* asDictionary() const { return std::get_if<Dictionary>(&value_); }
    Dictionary* asDictionary() { return std::get_if<Dictionary>(&value_); }

    // A dictionary's entry, or null (also when this is no dictionary).
    const PlistValue* find(std::string_view key) const;

    // The value as a number, the way a number or a decimal text is read:
    // integers and reals as they are (reals truncated for the integer form),
    // booleans as 0/1, strings by their leading number; anything else is 0.
    std::int64_t integerValue() const;
    double doubleValue() const;

    // A short readable rendering: strings as they are, numbers in decimal,
    // booleans as YES/NO, arrays as (a, b), dictionaries as {k = v; }.
    std::string text() const;

    bool operator==(const PlistValue& other) const { return value_ == other.value_; }

    static const char* kindName(Kind kind);

private:
    // The order of the alternatives is the order of Kind.
    std::variant<std::string, std::int64_t, double, bool, PlistDate, Data, Array, Dictionary> value_;
};

}  // namespace quillon
