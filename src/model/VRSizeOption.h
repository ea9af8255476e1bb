// The size options that travel beside a size entry in every template, and the method and
// size mode they select. Read by the pipelines, the editing views and the text forms.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

// Stored in templates and settings as boxed integers; the numbers are kept exactly.
enum VRSizeOption : std::int64_t {
    VRSizeOptionNormal = 0,
    VRSizeOptionSmart = 1,
    VRSizeOptionTargetPortrait = 2,
    VRSizeOptionRatioClip = 3,
    VRSizeOptionRatioFit = 4,
    VRSizeOptionStretch = 5,
};

// An options value: tested by membership only, so order and duplicates carry no meaning.
using VRSizeOptions = std::vector<std::int64_t>;

inline bool containsOption(const VRSizeOptions& options, std::int64_t option) {
    return std::find(options.begin(), options.end(), option) != options.end();
}
