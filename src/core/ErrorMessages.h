// The words a failed asset is shown with, by its error code, and the question of the size
// limit. The batch run's dialogs and the `process` command use them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/Geometry.h"

struct VRErrorMessage {
    std::optional<std::string> title;
    std::string message;
    // The error's user information goes with a report (codes 3, 4 and 17).
    bool detailsAttached = false;
};

// 1 load, 2 save, 3 and 4 unwarp, 17 disk space, anything else the unexpected error. Code 5
// has the question below instead.
VRErrorMessage VRErrorMessageForCode(std::int64_t code);

inline constexpr const char* VRExceedingMaxSizeTitle = "Exceeding max size";
// "Target size %@ px exceeds\nmaximum supported size.\nWould you like to proceed using\nsmaller
// size %@ px?" with stringFromSize of the two sizes.
std::string VRExceedingMaxSizeMessage(CGSize exceedingSize, CGSize correctingSize);
