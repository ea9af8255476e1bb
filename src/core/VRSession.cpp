#include "core/VRSession.h"

#include <cstdio>

#include "assets/VRAssetManager2.h"

VRSession& VRSession::mainSession() {
    static VRSession* session = new VRSession();
    return *session;
}

std::vector<VRAssetRef> VRSession::editingAssets() const {
    std::lock_guard lock(_lock);
    return _editingAssets;
}

void VRSession::setEditingAssets(std::vector<VRAssetRef> assets) {
    std::lock_guard lock(_lock);
    _editingAssets = std::move(assets);
}

std::string VRSession::_keyForAsset(const VRAsset& asset) const {
    const auto date = asset.modificationDate();
    char seconds[64];
    std::snprintf(seconds, sizeof seconds, "%f", date ? date->timeIntervalSince1970() : 0.0);
    return std::to_string(sourceImageEnabled() ? 1 : 0) + "-" + asset.objectIdentifier() + "-" +
           seconds;
}

std::optional<CGSize> VRSession::imageSizeForAsset(const VRAsset& asset) const {
    const std::string key = _keyForAsset(asset);
    std::lock_guard lock(_lock);
    auto it = _imageSizes.find(key);
    if (it == _imageSizes.end()) return std::nullopt;
    return it->second;
}

void VRSession::setImageSize(CGSize size, const VRAsset& asset) {
    const std::string key = _keyForAsset(asset);
    std::lock_guard lock(_lock);
    _imageSizes[key] = size;
}

bool VRSession::sourceImageEnabled() const {
    std::lock_guard lock(_lock);
    return _sourceImageEnabled;
}

void VRSession::setSourceImageEnabled(bool enabled) {
    {
        std::lock_guard lock(_lock);
        _sourceImageEnabled = enabled;
    }
    VRAssetManager2::defaultManager().setSourceImageEnabled(enabled);
}

bool VRSession::loadImagesOnly() const {
    std::lock_guard lock(_lock);
    return _loadImagesOnly;
}

void VRSession::setLoadImagesOnly(bool only) {
    {
        std::lock_guard lock(_lock);
        _loadImagesOnly = only;
    }
    VRAssetManager2::defaultManager().setLoadImagesOnly(only);
}

bool VRSession::backgroundMode() const {
    std::lock_guard lock(_lock);
    return _backgroundMode;
}

void VRSession::setBackgroundMode(bool background) {
    std::lock_guard lock(_lock);
    _backgroundMode = background;
}

bool VRSession::needsShowOnceLimitedPhotosAlert() const {
    std::lock_guard lock(_lock);
    return _needsShowOnceLimitedPhotosAlert;
}

bool VRSession::limitedPhotosAlertAllowedOnce() const {
    std::lock_guard lock(_lock);
    return _limitedPhotosAlertAllowedOnce;
}

void VRSession::setNeedsShowOnceLimitedPhotosAlert(bool needs) {
    std::lock_guard lock(_lock);
    if (needs && _limitedPhotosAlertAllowedOnce) return;
    _needsShowOnceLimitedPhotosAlert = needs;
    _limitedPhotosAlertAllowedOnce = true;
}
