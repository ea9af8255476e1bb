// Keeps a store file that can't be read for inspection instead of overwriting it: used by the
// settings and the template lists, whose next write would otherwise replace it.
#pragma once

#include <optional>
#include <string>

namespace platform {

// Renames `path` to "PATH.unreadable-<unix time>" ("-N" appended while that name is taken) and
// logs a line with the reason and both names. The new name, or absent when the rename failed
// (also logged).
std::optional<std::string> moveUnreadableFileAside(const std::string& path,
                                                   const std::string& reason);

}  // namespace platform
