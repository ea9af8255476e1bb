#include "platform/PlistValue.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace platform {

PlistDate PlistDate::now() {
    using namespace std::chrono;
    double unix = duration<double>(system_clock::now().time_since_epoch()).count();
    return fromTimeIntervalSince1970(unix);
}

std::optional<PlistDate> PlistValue::date() const {
    if (auto* d = std::get_if<PlistDate>(&_v)) return *d;
    return std::nullopt;
}

std::optional<PlistUID> PlistValue::uid() const {
    if (auto* u = std::get_if<PlistUID>(&_v)) return *u;
    return std::nullopt;
}

namespace {

std::int64_t saturatingTruncate(double v) {
    if (std::isnan(v)) return 0;
    if (v >= 9.2233720368547758e18) return std::numeric_limits<std::int64_t>::max();
    if (v <= -9.2233720368547758e18) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(v);
}

}  // namespace

double PlistValue::doubleValue() const {
    switch (type()) {
        case Type::Boolean:
            return std::get<bool>(_v) ? 1.0 : 0.0;
        case Type::Integer:
            return static_cast<double>(std::get<std::int64_t>(_v));
        case Type::Real:
            return std::get<double>(_v);
        case Type::String:
            return std::strtod(std::get<std::string>(_v).c_str(), nullptr);
        default:
            return 0.0;
    }
}

std::int64_t PlistValue::integerValue() const {
    switch (type()) {
        case Type::Boolean:
            return std::get<bool>(_v) ? 1 : 0;
        case Type::Integer:
            return std::get<std::int64_t>(_v);
        case Type::Real:
            return saturatingTruncate(std::get<double>(_v));
        case Type::String:
            return saturatingTruncate(doubleValue());
        default:
            return 0;
    }
}

bool PlistValue::boolValue() const {
    switch (type()) {
        case Type::Boolean:
            return std::get<bool>(_v);
        case Type::Integer:
            return std::get<std::int64_t>(_v) != 0;
        case Type::Real:
            return std::get<double>(_v) != 0.0;
        case Type::String: {
            // The platform reads "Y", "y", "T", "t" or a non-zero number as true.
            const std::string& s = std::get<std::string>(_v);
            std::size_t i = s.find_first_not_of(" \t\n");
            if (i == std::string::npos) return false;
            char c = s[i];
            if (c == 'Y' || c == 'y' || c == 'T' || c == 't') return true;
            return integerValue() != 0;
        }
        default:
            return false;
    }
}

bool PlistValue::isEqual(const PlistValue& other) const {
    if (isNumber() && other.isNumber()) {
        if (isReal() || other.isReal()) return doubleValue() == other.doubleValue();
        return integerValue() == other.integerValue();
    }
    if (type() != other.type()) return false;
    if (auto* a = array()) {
        const PlistArray& b = *other.array();
        if (a->size() != b.size()) return false;
        for (std::size_t i = 0; i < a->size(); ++i) {
            if (!(*a)[i].isEqual(b[i])) return false;
        }
        return true;
    }
    if (auto* a = dictionary()) {
        const PlistDictionary& b = *other.dictionary();
        if (a->size() != b.size()) return false;
        for (const auto& [key, value] : *a) {
            auto it = b.find(key);
            if (it == b.end() || !value.isEqual(it->second)) return false;
        }
        return true;
    }
    return *this == other;
}

const PlistValue& PlistValue::operator[](const std::string& key) const {
    static const PlistValue null;
    if (auto* d = dictionary()) {
        auto it = d->find(key);
        if (it != d->end()) return it->second;
    }
    return null;
}

std::string PlistValue::debugDescription() const {
    switch (type()) {
        case Type::Null:
            return "(null)";
        case Type::Boolean:
            return std::get<bool>(_v) ? "1" : "0";
        case Type::Integer:
            return std::to_string(std::get<std::int64_t>(_v));
        case Type::Real: {
            char buffer[32];
            std::snprintf(buffer, sizeof buffer, "%.17g", std::get<double>(_v));
            return buffer;
        }
        case Type::String:
            return std::get<std::string>(_v);
        case Type::Data:
            return "{length = " + std::to_string(data()->size()) + "}";
        case Type::Date: {
            char buffer[48];
            std::snprintf(buffer, sizeof buffer, "%.3f", date()->timeIntervalSince1970());
            return std::string("date(") + buffer + ")";
        }
        case Type::Array: {
            std::string text = "(";
            for (std::size_t i = 0; i < array()->size(); ++i) {
                text += (i ? ", " : "") + (*array())[i].debugDescription();
            }
            return text + ")";
        }
        case Type::Dictionary: {
            std::string text = "{";
            bool first = true;
            for (const auto& [key, value] : *dictionary()) {
                text += (first ? "" : "; ") + key + " = " + value.debugDescription();
                first = false;
            }
            return text + "}";
        }
        case Type::UID:
            return "<CFKeyedArchiverUID " + std::to_string(uid()->value) + ">";
    }
    return {};
}

}  // namespace platform
