#include "platform/AVMetadataItem.h"

#include <cmath>
#include <cstdio>
#include <ctime>

using platform::PlistDate;

std::optional<std::string> AVMetadataItem::stringKey() const {
    if (const std::string* s = _key.string()) return *s;
    return std::nullopt;
}

std::optional<std::int64_t> AVMetadataItem::numberKey() const {
    if (_key.isInteger()) return _key.integerValue();
    return std::nullopt;
}

std::string AVMetadataItem::identifier() const {
    std::string key;
    if (auto s = stringKey()) {
        key = *s;
    } else if (auto n = numberKey()) {
        key = std::to_string(*n);
    }
    return _keySpace + "/" + key;
}

std::optional<std::string> AVMetadataItem::stringValue() const {
    if (const std::string* s = _value.string()) return *s;
    if (_value.isNumber()) return _value.debugDescription();
    if (auto d = _value.date()) return AVMetadataISO8601String(*d);
    return std::nullopt;
}

std::optional<PlistDate> AVMetadataItem::dateValue() const {
    if (auto d = _value.date()) return d;
    if (const std::string* s = _value.string()) return AVMetadataParseISO8601(*s);
    return std::nullopt;
}

std::string AVMetadataISO8601String(PlistDate date) {
    double unix = date.timeIntervalSince1970();
    double whole = std::floor(unix);
    int millis = static_cast<int>(std::lround((unix - whole) * 1000.0));
    if (millis == 1000) {
        whole += 1;
        millis = 0;
    }
    std::time_t t = static_cast<std::time_t>(whole);
    std::tm tm{};
    gmtime_r(&t, &tm);
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", tm.tm_year + 1900,
                  tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, millis);
    return text;
}

namespace {

bool digits(const std::string& s, std::size_t pos, std::size_t count, int* out) {
    if (pos + count > s.size()) return false;
    int v = 0;
    for (std::size_t i = pos; i < pos + count; ++i) {
        if (s[i] < '0' || s[i] > '9') return false;
        v = v * 10 + (s[i] - '0');
    }
    *out = v;
    return true;
}

// Days from 1970-01-01 of a proleptic Gregorian date (Howard Hinnant's algorithm).
long long daysFromCivil(int y, int m, int d) {
    y -= m <= 2;
    const long long era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<long long>(doe) - 719468;
}

}  // namespace

std::optional<PlistDate> AVMetadataParseISO8601(const std::string& text) {
    int year = 0, month = 1, day = 1, hour = 0, minute = 0, second = 0;
    if (text.size() > 64 || !digits(text, 0, 4, &year)) return std::nullopt;
    std::size_t pos = 4;
    if (pos < text.size() && text[pos] == '-') {
        if (!digits(text, 5, 2, &month) || text.size() < 8 || text[7] != '-' ||
            !digits(text, 8, 2, &day)) {
            return std::nullopt;
        }
        pos = 10;
    }
    double fraction = 0;
    int zoneSeconds = 0;
    if (pos < text.size() && (text[pos] == 'T' || text[pos] == ' ')) {
        if (!digits(text, pos + 1, 2, &hour) || text.size() < pos + 6 || text[pos + 3] != ':' ||
            !digits(text, pos + 4, 2, &minute)) {
            return std::nullopt;
        }
        pos += 6;
        if (pos < text.size() && text[pos] == ':') {
            if (!digits(text, pos + 1, 2, &second)) return std::nullopt;
            pos += 3;
        }
        if (pos < text.size() && (text[pos] == '.' || text[pos] == ',')) {
            double scale = 0.1;
            ++pos;
            while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
                fraction += (text[pos] - '0') * scale;
                scale /= 10;
                ++pos;
            }
        }
        if (pos < text.size() && text[pos] == 'Z') {
            ++pos;
        } else if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) {
            int sign = text[pos] == '-' ? -1 : 1;
            int zh = 0, zm = 0;
            if (!digits(text, pos + 1, 2, &zh)) return std::nullopt;
            pos += 3;
            if (pos < text.size() && text[pos] == ':') ++pos;
            if (pos < text.size() && !digits(text, pos, 2, &zm)) return std::nullopt;
            if (pos < text.size()) pos += 2;
            zoneSeconds = sign * (zh * 3600 + zm * 60);
        }
    }
    if (pos != text.size() || month < 1 || month > 12 || day < 1 || day > 31 || hour > 24 ||
        minute > 59 || second > 60) {
        return std::nullopt;
    }
    double unix = static_cast<double>(daysFromCivil(year, month, day)) * 86400.0 + hour * 3600 +
                  minute * 60 + second + fraction - zoneSeconds;
    return PlistDate::fromTimeIntervalSince1970(unix);
}
