// The words a failed asset is shown with, by its error code, the question of the size limit,
// and the plain cause that goes with the words (a missing source, a folder that can't be
// written). The batch run's dialogs and the `process` command use them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/Error.h"
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

// The user-information key of the plain cause of a failure, one line of text.
inline constexpr const char* VRErrorUserInfoReasonKey = "reason";

// What is wrong with a source file, if anything: it is missing, can't be read, is a folder,
// or (for a photo) holds bytes that no decoder reads, with the decoder's words for truncated
// or damaged data. Absent when the file is readable (and, for a photo, decodes).
std::optional<std::string> VRSourceProblem(const std::string& path, bool isPhoto);

// The plainest cause that an error or an error it wraps (at any depth) names: a set reason,
// the words of a file error ("Read-only file system", "No space left on device"), or a failed
// video job's "Error" text. Absent when none says more than the code.
std::optional<std::string> VRErrorReason(const platform::Error& error);

// True when the error or one it wraps is a full disk (a write out of space, ENOSPC, EDQUOT).
bool VRErrorIsOutOfSpace(const platform::Error& error);
