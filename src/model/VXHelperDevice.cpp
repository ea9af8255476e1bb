#include "model/VXHelperDevice.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <regex>

#include "model/VXHelperText.h"
#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/Screen.h"

namespace VXHelper {
namespace {

struct DeviceClassRule {
    const char* pattern;
    unsigned deviceClass;
};

// Tested in order; the first match wins. "^iPod," is kept as the table has it: it matches only
// a name with no number after "iPod", so later iPods fall through to the last class.
constexpr std::array<DeviceClassRule, 12> kDeviceClassRules{{
    {"^iPhone[1-4],", 0},
    {"^iPad[1-2],", 0},
    {"^iPod[1-5],", 0},
    {"^iPhone5,", 1},
    {"^iPad3,", 1},
    {"^iPod6,", 1},
    {"^iPhone[6-7],", 2},
    {"^iPad4,", 2},
    {"^iPod7,", 2},
    {"^iPhone[8-9],", 3},
    {"^iPad[5-6],", 3},
    {"^iPod,", 3},
}};

constexpr unsigned kUnlistedDeviceClass = 4;

}  // namespace

const std::string& deviceMachineName() {
    static const std::string name = platform::Environment::machineName();
    return name;
}

unsigned deviceClassForMachineName(const std::string& machineName) {
    for (const auto& rule : kDeviceClassRules) {
        if (!std::regex_search(machineName, std::regex(rule.pattern))) continue;
        if (rule.deviceClass == 0) platform::log("SYS: using limited device functionality!!!");
        return rule.deviceClass;
    }
    return kUnlistedDeviceClass;
}

unsigned deviceClass() {
    static const unsigned cached = deviceClassForMachineName(deviceMachineName());
    return cached;
}

CGSize maxPhotoSize(unsigned deviceClass) {
    return deviceClass == 0 ? CGSize{4096, 4096} : CGSize{8192, 8192};
}

CGSize maxVideoSize(unsigned deviceClass) {
    if (deviceClass < 2) return {1920, 1080};
    if (deviceClass < 4) return {3840, 2160};
    return {4096, 2160};
}

CGSize minLivePhotoVideoSize(unsigned deviceClass) {
    return deviceClass < 2 ? CGSize{960, 540} : CGSize{1280, 720};
}

CGSize maxPhotoSize() {
    return maxPhotoSize(deviceClass());
}

CGSize maxVideoSize() {
    return maxVideoSize(deviceClass());
}

CGSize minLivePhotoVideoSize() {
    return minLivePhotoVideoSize(deviceClass());
}

std::string appVersion() {
    return platform::Environment::appVersion();
}

std::string appFullName() {
    return "Unwarp v" + appVersion();
}

std::string systemMessage() {
    std::string message = "Machine name: " + deviceMachineName() +
                          "\niOS: " + platform::Environment::systemVersion() +
                          "\nApp version: " + appVersion();
    // The free space of the documents' file system; the documents folder itself may not be
    // made yet, so its nearest existing parent answers for it.
    std::string path = platform::Environment::documentsDirectory();
    std::optional<std::uint64_t> free;
    while (!path.empty() && !(free = platform::FileManager::freeDiskSpaceAtPath(path)))
        path = path == "/" ? "" : platform::FileManager::stringByDeletingLastPathComponent(path);
    if (free) message += "\nFree disk space: " + stringFromDataLength(*free);
    return message;
}

double thumbnailSideForScreen(CGSize screenPoints, double scale, double assetInset,
                              double assetWidth) {
    const double w = std::min(screenPoints.width, screenPoints.height);
    const double count = std::max(1.0, std::round((w - assetInset) / (assetInset + assetWidth)));
    const double pitch = std::floor((w - assetInset) / count * scale) / scale;
    return (pitch - assetInset) * scale;
}

CGSize thumbnailSize() {
    static const CGSize size = [] {
        const CGSize screen = platform::Screen::mainScreenPixelSize().value_or(CGSize{1920, 1080});
        const double side = thumbnailSideForScreen(screen, 1, 2, 160);
        return CGSize{side, side};
    }();
    return size;
}

}  // namespace VXHelper
