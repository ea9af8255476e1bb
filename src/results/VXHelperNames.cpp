#include "results/VXHelperNames.h"

#include <algorithm>
#include <cstring>
#include <locale>
#include <stdexcept>

namespace VXHelper {

namespace {

constexpr std::uint64_t kMaxNumberWidth = 64;

const std::ctype<wchar_t>& unicodeCharacterTypes() {
    // The C.UTF-8 locale classifies letters and digits of every script, as the platform's
    // regular expressions do for \w; without it only ASCII counts.
    static const std::locale locale = [] {
        try {
            return std::locale("C.UTF-8");
        } catch (const std::runtime_error&) {
            return std::locale::classic();
        }
    }();
    return std::use_facet<std::ctype<wchar_t>>(locale);
}

// Decodes one UTF-8 sequence at `i`; false on a malformed or overlong one.
bool decodeUtf8(const std::string& text, std::size_t& i, char32_t& codePoint) {
    auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    unsigned char lead = byte(i);
    std::size_t length = lead < 0x80           ? 1
                         : (lead >> 5) == 0x6  ? 2
                         : (lead >> 4) == 0xE  ? 3
                         : (lead >> 3) == 0x1E ? 4
                                               : 0;
    if (length == 0 || i + length > text.size()) return false;
    char32_t value = length == 1 ? lead : lead & (0x7F >> length);
    for (std::size_t k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80) return false;
        value = (value << 6) | (byte(i + k) & 0x3F);
    }
    static constexpr char32_t kMinimum[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < kMinimum[length] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
        return false;
    }
    i += length;
    codePoint = value;
    return true;
}

bool isFileNameCharacter(char32_t c) {
    if (c < 0x80) {
        char ascii = static_cast<char>(c);
        return (ascii >= 'a' && ascii <= 'z') || (ascii >= 'A' && ascii <= 'Z') ||
               (ascii >= '0' && ascii <= '9') || std::strchr("_-.@!*", ascii) != nullptr;
    }
    return unicodeCharacterTypes().is(std::ctype_base::alnum, static_cast<wchar_t>(c));
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
        char32_t c = 0;
        if (!decodeUtf8(name, i, c) || !isFileNameCharacter(c)) return false;
    }
    return true;
}

}  // namespace VXHelper
