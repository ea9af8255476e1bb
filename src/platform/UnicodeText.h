// The platform's text rules on UTF-8 strings: what its regular expressions count as \w, what
// its white space set holds, and its case-insensitive search. Used by the template search,
// template names, styled text and sharing names.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace platform {

// The code point of the UTF-8 sequence at `index`, which moves past it; absent (index
// unchanged) for a malformed, overlong or surrogate sequence or at the end.
std::optional<char32_t> nextCodePoint(const std::string& text, std::size_t& index);

// \w of the platform's regular expressions: letters, combining marks, decimal digits,
// connector punctuation and the two joiners.
bool isWordCharacter(char32_t c);

// whitespaceAndNewlineCharacterSet: the separators of every script, tab to carriage
// return, and next line.
bool isWhitespaceOrNewline(char32_t c);
// True when the text holds nothing but such characters (also when it is empty). Bytes that
// are not UTF-8 count as text.
bool isBlank(const std::string& text);

// rangeOfString:options: with the case-insensitive option: whether `query` occurs in `text`
// with case folded fully ("élan" in "Élan", "strasse" in "STRASSE") and canonically equivalent
// spellings taken as equal. An empty query occurs nowhere.
bool containsCaseInsensitive(const std::string& text, const std::string& query);

}  // namespace platform
