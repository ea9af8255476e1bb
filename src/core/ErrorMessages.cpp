#include "core/ErrorMessages.h"

#include "model/VXHelperText.h"

VRErrorMessage VRErrorMessageForCode(std::int64_t code) {
    switch (code) {
        case 1:
            return {std::nullopt,
                    "Unable to load media for processing. A problem may occur when it is being "
                    "used by another app or has been deleted.",
                    false};
        case 2:
            return {"Saving problem",
                    "Unable to save media to photo library. A problem may occur when not enough "
                    "free space or format is not supported.",
                    false};
        case 3:
        case 4:
            return {std::nullopt,
                    "Unable to unwarp media. A problem may occur when unsupported format used. "
                    "Try to use another format and/or update encoding parameters.",
                    true};
        case 17:
            return {"Not enough disk space",
                    "There is not enough available space to continue the file writing. Make room "
                    "by deleting existing videos or photos.",
                    true};
        default:
            return {std::nullopt, "An unexpected error has occurred.", false};
    }
}

std::string VRExceedingMaxSizeMessage(CGSize exceedingSize, CGSize correctingSize) {
    return "Target size " + VXHelper::stringFromSize(exceedingSize) +
           " px exceeds\nmaximum supported size.\nWould you like to proceed using\nsmaller size " +
           VXHelper::stringFromSize(correctingSize) + " px?";
}
