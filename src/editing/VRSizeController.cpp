#include "editing/VRSizeController.h"

#include <algorithm>

#include "storage/VRSettings.h"

platform::PlistArray VRSizeController::presetViewSizes(std::int64_t mediaType, Source source,
                                                       const VRSizeEntry& templateEntry) {
    platform::PlistArray sizes =
        mediaType == 1 ? VRSettings::imageSizes() : VRSettings::videoSizes();
    if ((source == 1 || source == 2) && !sizes.empty()) {
        sizes.front() = templateEntry.sizeArray();
    }
    return sizes;
}

void VRSizeController::_storeGlobalSettings(Source source, const platform::PlistArray& sizes,
                                            std::int64_t formatType, const VRSizeOptions& options,
                                            std::int64_t mediaType) {
    if (source != 0) return;
    VRSettings::saveData(sizes, formatType, options, mediaType);
    VRSettings::save();
}

VRSizeOptions VRSizeController::finishedOptions(Source source, const VRSizeOptions& options,
                                                const VRSizeEntry& entry,
                                                const std::set<std::uint64_t>& assetsShapes) {
    VRSizeOptions result = options;
    if (source != 0 || !containsOption(result, VRSizeOptionSmart)) return result;
    if (assetsShapes.size() != 1 || *assetsShapes.begin() != 1) return result;
    bool hasPortraitOption = containsOption(result, VRSizeOptionTargetPortrait);
    if (hasPortraitOption && !entry.isPortrait()) {
        std::erase(result, static_cast<std::int64_t>(VRSizeOptionTargetPortrait));
    } else if (!hasPortraitOption && entry.isPortrait()) {
        result.push_back(VRSizeOptionTargetPortrait);
    }
    return result;
}
