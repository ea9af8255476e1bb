#include "results/VRExportShareStatus.h"

std::string VRExportShareStatusMessage(VRExportShareStatus status, const std::string& appName) {
    switch (status) {
        case VRExportShareStatusCancelled:
            return "Cancelled";
        case VRExportShareStatusDone:
            return "Success";
        case VRExportShareStatusNoLibraryAccess:
            return "An error occurred while sharing: No access to Photos (Settings / " + appName +
                   " / Photos).";
        case VRExportShareStatusEmptySelection:
            return "An error occurred while sharing: Selection is empty. Please try again.";
        case VRExportShareStatusFailed:
            break;
    }
    return "An error occurred while sharing: The device may lack free space, or connection is "
           "not available, or this media already exists at the target location.";
}

bool VRExportShareStatusIsSuccess(VRExportShareStatus status) {
    return status == VRExportShareStatusCancelled || status == VRExportShareStatusDone;
}
