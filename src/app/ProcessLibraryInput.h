// The library assets a `process` run takes beside its files: --asset ID..., --album NAME and
// --recents N, from the library at --library DIR (else the `libraryPath` setting, else the
// pictures folder).
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "app/ProcessInputs.h"

namespace app {

struct LibraryInput {
    std::vector<std::string> identifiers;
    std::optional<std::string> album;
    std::optional<std::size_t> recents;
    std::string libraryPath;

    bool any() const { return !identifiers.empty() || album || recents; }
};

// The assets in this order: the identifiers as given, then the album's assets oldest first,
// then the newest N, newest first; each named by its identifier and placed in a shard by its
// still's (or movie's) path relative to the library's folder, since every home's catalogue
// makes identifiers of its own. The library opened becomes the asset manager's. Nothing,
// with the reason, for a library that can't be opened, an identifier or album it doesn't
// have, or --recents 0.
std::optional<std::vector<ProcessInput>> resolveLibraryInput(const LibraryInput& input,
                                                             std::string* problem);

}  // namespace app
