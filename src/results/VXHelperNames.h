// File names of the sharing series and the file-name check, used by export and sharing.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace VXHelper {

// `baseName` (or "img" when absent) with the index zero-padded to `numberOfDigits`: every "%"
// in the base stands for the number, otherwise it is appended; then ".extension" when the
// extension is not empty. ("trip", 7, 2, "jpg") gives "trip07.jpg"; "a%b" gives "a07b.jpg".
// The padding width is capped at 64 so a hostile count cannot make a huge string.
std::string sharingFileNameWithBaseName(const std::optional<std::string>& baseName,
                                        std::uint64_t index, std::uint64_t numberOfDigits,
                                        const std::string& extension);

// The minimum width of the numbers in a series of `count` files: 1 up to 10, 2 from 11 to 109,
// 3 from 110 to 1099, 4 from 1100 on, and so on. Deliberately not the decimal length of count.
std::uint64_t digitsForCount(std::uint64_t count);

// True when `name` matches "^[\w0-9_\-\.@!\*]+$": one or more word characters (Unicode
// letters and digits, read from UTF-8) or any of "_-.@!*". Invalid UTF-8 is not valid.
bool isValidFileName(const std::string& name);

}  // namespace VXHelper
