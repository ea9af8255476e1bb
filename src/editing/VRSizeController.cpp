#include "editing/VRSizeController.h"

#include <algorithm>

#include "model/VXHelperDevice.h"
#include "storage/VRSettings.h"

VRSizeController::VRSizeController(Source source, VXTemplateRef tpl, std::uint64_t mediaType)
    : _source(source),
      _mediaType(mediaType),
      _template(tpl ? std::move(tpl) : VXTemplate::create()),
      _format(VRFormat::formatWithType(0)) {
    const std::optional<VRSizeEntry> entry = _template->sizeEntryForMediaType(mediaType);
    const bool photo = mediaType == VRFormatMediaTypePhoto;
    platform::PlistArray sizes = presetViewSizes(static_cast<std::int64_t>(mediaType), source,
                                                 entry.value_or(VRSizeEntry()));
    if (entry && sizes.empty()) sizes.emplace_back(entry->sizeArray());
    _presetView.setSizesMutable(std::move(sizes));
    if (entry) {
        _presetView.setOptions(_template->optionsForMediaType(mediaType).value_or(VRSizeOptions{}));
        _format = _template->formatForMediaType(mediaType);
    } else {
        _presetView.setOptions(photo ? VRSettings::imageOptions() : VRSettings::videoOptions());
        const std::int64_t type = photo ? VRSettings::imageFormat() : VRSettings::videoFormat();
        _format = VRFormat::formatWithTypeMediaType(
            static_cast<std::uint64_t>(std::max<std::int64_t>(type, 0)), mediaType);
    }
}

CGSize VRSizeController::sizeMax() const {
    return _mediaType == VRFormatMediaTypePhoto ? VXHelper::maxPhotoSize()
                                                : VXHelper::maxVideoSize();
}

bool VRSizeController::_storeSettings() {
    std::optional<VRSizeEntry> entry = _presetView.currentSizeEntry();
    if (!entry) return false;
    const VRSizeOptions options = _presetView.options();
    _template->setSizeEntry(*entry, _format, options, _mediaType);
    _storeGlobalSettings(_source, _presetView.sizesMutable(), _format.type(), options,
                         static_cast<std::int64_t>(_mediaType));
    return true;
}

VXTemplateRef VRSizeController::presetViewDidFinish(const std::set<std::uint64_t>& assetsShapes) {
    _storeSettings();
    VXTemplateRef copy = _template->copy();
    if (std::optional<VRSizeEntry> entry = copy->sizeEntryForMediaType(_mediaType)) {
        copy->setOptions(
            finishedOptions(_source,
                            copy->optionsForMediaType(_mediaType).value_or(VRSizeOptions{}), *entry,
                            assetsShapes),
            _mediaType);
    }
    return copy;
}

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
