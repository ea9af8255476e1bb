#include "results/VRHelper.h"

#include <cstdint>
#include <cstring>
#include <optional>

#include "storage/VRSettings.h"

namespace {

struct ResultStemParts {
    std::string base;
    std::string separator;
    std::optional<std::uint64_t> number;
};

bool isLineTerminator(char c) {
    return c == '\n' || c == '\r';
}

bool isSeparatorChar(char c) {
    return c == '-' || std::strchr(" \t\n\v\f\r", c) != nullptr;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Leading zeros are dropped; more than 2^63-1 is no number, as the platform's parse gives up.
std::optional<std::uint64_t> parseDecimal(const std::string& digits) {
    constexpr std::uint64_t kMax = 9223372036854775807ULL;
    std::uint64_t value = 0;
    for (char c : digits) {
        std::uint64_t d = static_cast<std::uint64_t>(c - '0');
        if (value > (kMax - d) / 10) return std::nullopt;
        value = value * 10 + d;
    }
    return value;
}

// "^(.+?)-uwrp([-\s]*)(\d+)?$" matched by hand: the lazy first group means the first "-uwrp"
// (after at least one character) whose remainder is separators followed only by digits.
// Written out so that no input length can exhaust a backtracking engine's stack.
std::optional<ResultStemParts> matchResultStem(const std::string& name) {
    const std::string marker = VRResultFilenameSuffix;
    for (std::size_t p = 1; p + marker.size() <= name.size(); ++p) {
        if (isLineTerminator(name[p - 1])) return std::nullopt;
        if (name.compare(p, marker.size(), marker) != 0) continue;
        std::size_t restStart = p + marker.size();
        std::size_t q = restStart;
        while (q < name.size() && isSeparatorChar(name[q])) ++q;
        bool onlyDigits = true;
        for (std::size_t i = q; i < name.size() && onlyDigits; ++i) onlyDigits = isDigit(name[i]);
        if (!onlyDigits) continue;
        ResultStemParts parts;
        parts.base = name.substr(0, p);
        parts.separator = name.substr(restStart, q - restStart);
        if (q < name.size()) parts.number = parseDecimal(name.substr(q));
        return parts;
    }
    return std::nullopt;
}

}  // namespace

std::string VRHelper::originaFilenameForCurrentSettings(const std::string& name,
                                                        bool incrementing) {
    return originaFilename(name, VRSettings::isOriginalFilenameSuffixEnabled(), incrementing);
}

std::string VRHelper::originaFilename(const std::string& name, bool suffixEnabled,
                                      bool incrementing) {
    ResultStemParts parts;
    if (auto matched = matchResultStem(name)) {
        parts = std::move(*matched);
    } else {
        parts.base = name;
    }
    std::string result = parts.base;
    if (suffixEnabled) result += VRResultFilenameSuffix;
    result += parts.separator;
    if (parts.number) {
        std::uint64_t number = *parts.number + (incrementing ? 1 : 0);
        result += std::to_string(number);
    }
    return result;
}
