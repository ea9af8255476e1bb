#include "results/VXHelperNames.h"

#include <algorithm>
#include <cstring>

#include "platform/UnicodeText.h"

namespace VXHelper {

namespace {

constexpr std::uint64_t kMaxNumberWidth = 64;

bool isFileNameCharacter(char32_t c) {
    if (c < 0x80) {
        char ascii = static_cast<char>(c);
        return (ascii >= 'a' && ascii <= 'z') || (ascii >= 'A' && ascii <= 'Z') ||
               (ascii >= '0' && ascii <= '9') || std::strchr("_-.@!*", ascii) != nullptr;
    }
    // \w of the platform's regular expressions, combining marks included.
    return platform::isWordCharacter(c);
}

std::string paddedNumber(std::uint64_t value, std::uint64_t width) {
    std::string digits = std::to_string(value);
    std::uint64_t cappedWidth = std::min(width, kMaxNumberWidth);
    if (digits.size() < cappedWidth) digits.insert(0, cappedWidth - digits.size(), '0');
    return digits;
}

}  // namespace

std::string sharingFileNameWithBaseName(const std::optional<std::string>& baseName,
                                        std::uint64_t index, std::uint64_t numberOfDigits,
                                        const std::string& extension) {
    const std::string base = baseName.value_or("img");
    const std::string number = paddedNumber(index, numberOfDigits);
    std::string name;
    if (base.find('%') == std::string::npos) {
        name = base + number;
    } else {
        for (char c : base) {
            if (c == '%') {
                name += number;
            } else {
                name += c;
            }
        }
    }
    if (!extension.empty()) name += "." + extension;
    return name;
}

std::uint64_t digitsForCount(std::uint64_t count) {
    std::uint64_t digits = 1;
    if (count > 10) {
        while (true) {
            ++digits;
            if (count <= 109) break;
            count /= 10;
        }
    }
    return digits;
}

bool isValidFileName(const std::string& name) {
    if (name.empty()) return false;
    std::size_t i = 0;
    while (i < name.size()) {
        auto c = platform::nextCodePoint(name, i);
        if (!c || !isFileNameCharacter(*c)) return false;
    }
    return true;
}

}  // namespace VXHelper
