// How a share ended, and the words the results screen shows for it.
#pragma once

#include <cstdint>
#include <string>

enum VRExportShareStatus : std::int64_t {
    VRExportShareStatusCancelled = 0,
    VRExportShareStatusDone = 1,
    VRExportShareStatusFailed = 2,
    VRExportShareStatusNoLibraryAccess = 3,
    VRExportShareStatusEmptySelection = 4,
};

// The message for a status; `appName` fills the settings path of the no-access words.
std::string VRExportShareStatusMessage(VRExportShareStatus status, const std::string& appName);
// Cancelled and done are shown as a success view, the others as errors.
bool VRExportShareStatusIsSuccess(VRExportShareStatus status);
