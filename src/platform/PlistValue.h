// The property-list value: boxed numbers, strings, data, dates, arrays and dictionaries.
// Settings, error details, image properties and archives are all made of it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

namespace platform {

class PlistValue;
using PlistArray = std::vector<PlistValue>;
using PlistDictionary = std::map<std::string, PlistValue>;
using PlistData = std::vector<std::uint8_t>;

// A point in time as seconds since 2001-01-01 00:00:00 UTC, the property-list epoch.
struct PlistDate {
    double sinceReferenceDate = 0;
    static constexpr double kReferenceToUnix = 978307200.0;
    static PlistDate now();
    static PlistDate fromTimeIntervalSince1970(double seconds) {
        return {seconds - kReferenceToUnix};
    }
    double timeIntervalSince1970() const { return sinceReferenceDate + kReferenceToUnix; }
    friend bool operator==(const PlistDate&, const PlistDate&) = default;
};

// An object reference inside a keyed archive; appears only in archives.
struct PlistUID {
    std::uint64_t value = 0;
    friend bool operator==(const PlistUID&, const PlistUID&) = default;
};

class PlistValue {
  public:
    // Null stands for "no value" (a missing key); it is never written to a file.
    enum class Type { Null, Boolean, Integer, Real, String, Data, Date, Array, Dictionary, UID };

    PlistValue() = default;
    PlistValue(bool v) : _v(v) {}
    template <class T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>, int> = 0>
    PlistValue(T v) : _v(static_cast<std::int64_t>(v)) {}
    PlistValue(double v) : _v(v) {}
    PlistValue(float v) : _v(static_cast<double>(v)) {}
    PlistValue(const char* v) : _v(std::string(v)) {}
    PlistValue(std::string v) : _v(std::move(v)) {}
    PlistValue(PlistData v) : _v(std::move(v)) {}
    PlistValue(PlistDate v) : _v(v) {}
    PlistValue(PlistArray v) : _v(std::move(v)) {}
    PlistValue(PlistDictionary v) : _v(std::move(v)) {}
    PlistValue(PlistUID v) : _v(v) {}

    Type type() const { return static_cast<Type>(_v.index()); }
    bool isNull() const { return type() == Type::Null; }
    bool isNumber() const {
        return type() == Type::Boolean || type() == Type::Integer || type() == Type::Real;
    }
    bool isBoolean() const { return type() == Type::Boolean; }
    bool isInteger() const { return type() == Type::Integer; }
    bool isReal() const { return type() == Type::Real; }
    bool isString() const { return type() == Type::String; }
    bool isData() const { return type() == Type::Data; }
    bool isDate() const { return type() == Type::Date; }
    bool isArray() const { return type() == Type::Array; }
    bool isDictionary() const { return type() == Type::Dictionary; }
    bool isUID() const { return type() == Type::UID; }

    // Typed views: null when the value holds another type.
    const std::string* string() const { return std::get_if<std::string>(&_v); }
    const PlistData* data() const { return std::get_if<PlistData>(&_v); }
    const PlistArray* array() const { return std::get_if<PlistArray>(&_v); }
    const PlistDictionary* dictionary() const { return std::get_if<PlistDictionary>(&_v); }
    PlistArray* mutableArray() { return std::get_if<PlistArray>(&_v); }
    PlistDictionary* mutableDictionary() { return std::get_if<PlistDictionary>(&_v); }
    std::optional<PlistDate> date() const;
    std::optional<PlistUID> uid() const;

    // Number conversions as a boxed number answers them: any number converts (true is 1,
    // reals truncate toward zero for the integer forms); a decimal string is read as
    // the platform reads it (leading integer or real, else 0); anything else is 0.
    bool boolValue() const;
    std::int64_t integerValue() const;
    std::uint64_t unsignedIntegerValue() const {
        return static_cast<std::uint64_t>(integerValue());
    }
    double doubleValue() const;

    // The platform's equality (isEqual:): numbers compare by value whatever their boxed type,
    // so 1, 1.0 and true are equal; strings, data and dates by content; arrays element by
    // element (isEqualToArray:); dictionaries by keys and values. Null equals only null.
    bool isEqual(const PlistValue& other) const;

    // Strict identity of type and value, recursively: a stored 1 and true differ here.
    // This is what round-trip tests use.
    friend bool operator==(const PlistValue&, const PlistValue&) = default;

    // A short human-readable rendering for logs and diagnostics.
    std::string debugDescription() const;

    // Dictionary lookup; null when this is no dictionary or the key is absent.
    const PlistValue& operator[](const std::string& key) const;

  private:
    std::variant<std::monostate, bool, std::int64_t, double, std::string, PlistData, PlistDate,
                 PlistArray, PlistDictionary, PlistUID>
        _v;
};

}  // namespace platform
