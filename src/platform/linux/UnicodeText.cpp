#include "platform/UnicodeText.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

namespace platform {

std::optional<char32_t> nextCodePoint(const std::string& text, std::size_t& index) {
    if (index >= text.size()) return std::nullopt;
    auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(index);
    const std::size_t length = lead < 0x80           ? 1
                               : (lead >> 5) == 0x6  ? 2
                               : (lead >> 4) == 0xE  ? 3
                               : (lead >> 3) == 0x1E ? 4
                                                     : 0;
    if (length == 0 || index + length > text.size()) return std::nullopt;
    char32_t value = length == 1 ? lead : lead & (0x7F >> length);
    for (std::size_t k = 1; k < length; ++k) {
        if ((byte(index + k) & 0xC0) != 0x80) return std::nullopt;
        value = (value << 6) | (byte(index + k) & 0x3F);
    }
    static constexpr char32_t kMinimum[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < kMinimum[length] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
        return std::nullopt;
    }
    index += length;
    return value;
}

bool isWordCharacter(char32_t c) {
    const auto code = static_cast<UChar32>(c);
    if (c == 0x200C || c == 0x200D) return true;
    if (u_hasBinaryProperty(code, UCHAR_ALPHABETIC)) return true;
    const std::uint32_t category = U_GET_GC_MASK(code);
    return (category & (U_GC_M_MASK | U_GC_ND_MASK | U_GC_PC_MASK)) != 0;
}

bool isWhitespaceOrNewline(char32_t c) {
    const auto code = static_cast<UChar32>(c);
    if ((c >= 0x09 && c <= 0x0D) || c == 0x85) return true;
    return (U_GET_GC_MASK(code) & U_GC_Z_MASK) != 0;
}

bool isBlank(const std::string& text) {
    for (std::size_t i = 0; i < text.size();) {
        auto c = nextCodePoint(text, i);
        if (!c || !isWhitespaceOrNewline(*c)) return false;
    }
    return true;
}

namespace {

// Full case folding, then the canonical decomposition, so that a precomposed letter and
// its decomposed spelling compare equal.
icu::UnicodeString folded(const std::string& text) {
    icu::UnicodeString value = icu::UnicodeString::fromUTF8(text);
    value.foldCase(U_FOLD_CASE_DEFAULT);
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
    if (U_FAILURE(status) || !nfd) return value;
    icu::UnicodeString normalized = nfd->normalize(value, status);
    return U_SUCCESS(status) ? normalized : value;
}

}  // namespace

bool containsCaseInsensitive(const std::string& text, const std::string& query) {
    if (query.empty() || text.empty()) return false;
    const icu::UnicodeString needle = folded(query);
    return !needle.isEmpty() && folded(text).indexOf(needle) >= 0;
}

}  // namespace platform
