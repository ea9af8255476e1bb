#include "editing/VRPresetViewAbstract.h"

#include <algorithm>

#include "model/VXHelperSize.h"

using platform::PlistArray;
using platform::PlistValue;

namespace {

struct ButtonFace {
    VRSizeOption option;
    const char* title;
    const char* icon;
};

// In the order shown: the size-mode group, then the method group.
constexpr ButtonFace kButtonFaces[] = {
    {VRSizeOptionNormal, "Normal size", "iconSizeNormalHor"},
    {VRSizeOptionSmart, "Smart size", "iconSizeSmartHor"},
    {VRSizeOptionRatioClip, "Ratio clip", "iconRatioClip"},
    {VRSizeOptionRatioFit, "Ratio fit", "iconRatioFit"},
    {VRSizeOptionStretch, "Stretch", "iconStretch"},
};

bool isSizeMode(std::int64_t option) {
    return option == VRSizeOptionNormal || option == VRSizeOptionSmart;
}

bool isMethod(std::int64_t option) {
    return option == VRSizeOptionRatioClip || option == VRSizeOptionRatioFit ||
           option == VRSizeOptionStretch;
}

}  // namespace

VRSizeOptions VRPresetViewAbstract::sourceOptions(const VRSizeOptions& options) {
    VRSizeOptions completed = options;
    if (!containsOption(options, VRSizeOptionNormal) &&
        !containsOption(options, VRSizeOptionSmart)) {
        completed.push_back(VRSizeOptionNormal);
    }
    if (!containsOption(options, VRSizeOptionStretch) &&
        !containsOption(options, VRSizeOptionRatioFit) &&
        !containsOption(options, VRSizeOptionRatioClip)) {
        completed.push_back(VRSizeOptionStretch);
    }
    return completed;
}

VXTemplateRef VRPresetViewAbstract::templateWithSourceOptions(const VXTemplateRef& tpl) {
    if (!tpl) return nullptr;
    VXTemplateRef completed = tpl->copy();
    VXTemplate::OptionsDictionary options;
    for (std::uint64_t mediaType : tpl->mediaTypes()) {
        options[mediaType] =
            sourceOptions(tpl->optionsForMediaType(mediaType).value_or(VRSizeOptions{}));
    }
    completed->setOptionsDictionary(std::move(options));
    return completed;
}

VRSizeOptions VRPresetViewAbstract::options() const {
    VRSizeOptions options{_sizeMode, _method};
    if (_targetPortrait) options.push_back(VRSizeOptionTargetPortrait);
    return options;
}

void VRPresetViewAbstract::setOptions(const VRSizeOptions& received) {
    const VRSizeOptions options = sourceOptions(received);
    _sizeMode = containsOption(options, VRSizeOptionSmart) ? VRSizeOptionSmart : VRSizeOptionNormal;
    _method = containsOption(options, VRSizeOptionRatioClip)  ? VRSizeOptionRatioClip
              : containsOption(options, VRSizeOptionRatioFit) ? VRSizeOptionRatioFit
                                                              : VRSizeOptionStretch;
    _targetPortrait = containsOption(options, VRSizeOptionTargetPortrait);
}

std::vector<VRPresetViewAbstract::OptionButton> VRPresetViewAbstract::optionButtons() const {
    std::vector<OptionButton> buttons;
    for (const ButtonFace& face : kButtonFaces) {
        buttons.push_back({face.option, face.title, face.icon,
                           face.option == _sizeMode || face.option == _method});
    }
    return buttons;
}

bool VRPresetViewAbstract::didTouchOptionButton(VRSizeOption option) {
    if (isSizeMode(option)) {
        _sizeMode = option;
    } else if (isMethod(option)) {
        _method = option;
    } else {
        return false;
    }
    if (!_sizeInputMode) handOn();
    return true;
}

bool VRPresetViewAbstract::isRatioToggleEnabled() const {
    std::optional<VRSizeEntry> entry = currentSizeEntry();
    return entry && (entry->type() == VRSizeTypeRatioUp || entry->type() == VRSizeTypeRatioDown);
}

void VRPresetViewAbstract::_updateSizeValue() {
    std::optional<VRSizeEntry> entry = currentSizeEntry();
    _updateSizeSwapEnabled(entry && !entry->isSquare(), entry && entry->isPortrait());
}

std::optional<VRSizeEntry> VRPresetViewAbstract::currentSizeEntry() const {
    if (_sizesMutable.empty() || !_sizesMutable.front().isArray()) return std::nullopt;
    return VRSizeEntry::sizeEntryWithSizeArray(*_sizesMutable.front().array());
}

void VRPresetViewAbstract::_addSize(const PlistArray& sizeArray) {
    const PlistValue added(sizeArray);
    std::erase_if(_sizesMutable, [&](const PlistValue& size) { return size.isEqual(added); });
    _sizesMutable.insert(_sizesMutable.begin(), added);
    if (_sizesMutable.size() > kMaximumRecentSizes) _sizesMutable.resize(kMaximumRecentSizes);
}

void VRPresetViewAbstract::_didTouchPresetButton(const PlistArray& sizeArray) {
    _addSize(sizeArray);
    _updateSizeValue();
    if (!_sizeInputMode) handOn();
}

void VRPresetViewAbstract::_rotateSize() {
    std::optional<VRSizeEntry> entry = currentSizeEntry();
    if (!entry) return;
    _sizesMutable.front() = entry->sizeEntryRotated().sizeArray();
    // TargetPortrait goes with the target, and the options are assembled from it.
    _updateSizeValue();
    if (!_sizeInputMode) handOn();
}

void VRPresetViewAbstract::didTouchSizeSwapControl() {
    _swapControl.selected = false;
    _rotateSize();
}

bool VRPresetViewAbstract::_toggleRatioMode() {
    std::optional<VRSizeEntry> entry = currentSizeEntry();
    if (!entry) return false;
    if (entry->type() != VRSizeTypeRatioUp && entry->type() != VRSizeTypeRatioDown) return false;
    entry->setType(entry->type() == VRSizeTypeRatioUp ? VRSizeTypeRatioDown : VRSizeTypeRatioUp);
    _sizesMutable.front() = entry->sizeArray();
    if (!_sizeInputMode) handOn();
    return true;
}

void VRPresetViewAbstract::_updateTargetPortrait(CGSize previewTargetSize) {
    _targetPortrait = VXHelper::shapeForSize(previewTargetSize) == VXHelper::ShapePortrait;
}

bool VRPresetViewAbstract::_checkSettingsRequireRotation(CGSize currentTargetSize) const {
    if (!_swapOptionSelected) return false;
    bool targetIsPortrait = VXHelper::shapeForSize(currentTargetSize) == VXHelper::ShapePortrait;
    return _targetPortrait != targetIsPortrait;
}

bool VRPresetViewAbstract::_checkAndUpdateSettingsForTarget(CGSize currentTargetSize) {
    if (!_checkSettingsRequireRotation(currentTargetSize)) return false;
    _targetPortrait = !_targetPortrait;
    _rotateSize();
    return true;
}

void VRPresetViewAbstract::_updateSizeSwapEnabled(bool enabled, bool portrait) {
    _swapControl.enabled = enabled;
    _swapControl.alpha = enabled ? 1.0 : 0.5;
    _swapControl.highlighted = !enabled;
    _swapControl.portrait = portrait;
}

void VRPresetViewAbstract::handOn() {
    std::optional<VRSizeEntry> entry = currentSizeEntry();
    if (entry && _updateSizeEntry) _updateSizeEntry(*entry, options());
}
