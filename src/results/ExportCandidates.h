// The preparation of one shared item: the name it should carry, and how it gets that name
// without renaming or duplicating the source: the source itself when its name fits, else a
// hard link under the new name, else a copy. Used by ExportManager off the main thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

struct ItemCandidate {
    enum class Kind { linked, copied, source };
    Kind kind = Kind::source;
    std::string url;
    // For `source`: false when the link and the copy failed, so the item would keep its old name.
    bool success = true;
};

// How the shared files are named: by the source's original name, or by a custom base name.
struct SharingNaming {
    bool custom = false;
    std::string baseName;        // custom: the base; "%" stands for the number
    std::uint64_t digits = 1;    // custom: the numbers' width, digitsForCount of the count
    bool hasMany = false;        // custom: more than one item, so names are numbered
    bool suffixEnabled = false;  // original: isOriginalFilenameSuffixEnabled
};

// The name the item at `index` (from 0) should carry. Custom: the base name (numbered from 1
// when hasMany) with the source file's extension. Original: the stem of `originalFilename`
// through the result-stem rule without incrementing, with the source file's extension.
std::string sharingTargetName(const SharingNaming& naming, const std::string& sourceURL,
                              const std::string& originalFilename, std::size_t index);

// The candidate for `sourceURL` under `targetName`: the source with success when its name is
// already the target; else a hard link in a new folder of its own inside `sharingFolder`
// (so equal names of different sources don't collide); else a copy there; else the source
// without success.
ItemCandidate prepareSharingCandidate(const std::string& sourceURL, const std::string& targetName,
                                      const std::string& sharingFolder);
