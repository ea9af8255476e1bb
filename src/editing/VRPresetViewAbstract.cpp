#include "editing/VRPresetViewAbstract.h"

#include <algorithm>

#include "model/VXHelperSize.h"

using platform::PlistArray;
using platform::PlistValue;

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
    if (!_sizeInputMode) handOn();
}

void VRPresetViewAbstract::_rotateSize() {
    std::optional<VRSizeEntry> entry = currentSizeEntry();
    if (!entry) return;
    _sizesMutable.front() = entry->sizeEntryRotated().sizeArray();
    _updateSizeOptionsOrientation();
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

void VRPresetViewAbstract::_updateSizeOptionsOrientation() {
    std::erase(_options, static_cast<std::int64_t>(VRSizeOptionTargetPortrait));
    if (_targetPortrait) _options.push_back(VRSizeOptionTargetPortrait);
}

void VRPresetViewAbstract::handOn() {
    std::optional<VRSizeEntry> entry = currentSizeEntry();
    if (entry && _updateSizeEntry) _updateSizeEntry(*entry, _options);
}
