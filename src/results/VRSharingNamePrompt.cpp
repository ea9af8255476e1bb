#include "results/VRSharingNamePrompt.h"

#include "results/SharingNameRules.h"
#include "results/VXHelperNames.h"
#include "storage/VRSettings.h"

std::string VRSharingNamePrompt::previewForName(const std::string& text) const {
    if (!isValidSharingBaseName(text)) return {};
    return sharingNamePreviewText(text, digits, extensions);
}

std::optional<VRSharingNamePrompt> sharingNamePromptForCount(
    std::uint64_t count, const std::vector<std::string>& extensions) {
    if (VRSettings::exportFilenameType() != 1) return std::nullopt;
    return VRSharingNamePrompt{VRSettings::exportFilenameBasename(), count,
                               VXHelper::digitsForCount(count), extensions};
}

bool acceptSharingName(const std::string& name) {
    if (!isValidSharingBaseName(name)) return false;
    VRSettings::setExportFilenameBasename(name);
    return true;
}
