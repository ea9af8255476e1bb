// What the archiving and unarchiving halves of the keyed archive agree on: the archiver's
// name and version, the size value's special code and the escaping of record keys.
#pragma once

#include <cstdint>
#include <string>

namespace platform::keyed_archive {

inline constexpr const char* kArchiverName = "NSKeyedArchiver";
inline constexpr std::int64_t kArchiveVersion = 100000;
inline constexpr std::int64_t kSizeSpecial = 2;

// The archiver reserves keys starting with "$" for itself and escapes such keys of a record by
// one more "$".
inline std::string escapeKey(const std::string& key) {
    return key.starts_with('$') ? "$" + key : key;
}
inline std::string unescapeKey(const std::string& key) {
    return key.starts_with("$$") ? key.substr(1) : key;
}

}  // namespace platform::keyed_archive
