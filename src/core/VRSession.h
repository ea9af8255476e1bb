// Process-wide state that lives only as long as the process: the assets being edited, the
// output sizes worked out for them, and the flags that steer library requests and the
// limited-photos alert. Nothing here is stored.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "assets/VRAsset.h"
#include "platform/Geometry.h"

class VRSession {
  public:
    static VRSession& mainSession();

    std::vector<VRAssetRef> editingAssets() const;
    void setEditingAssets(std::vector<VRAssetRef> assets);

    // The size worked out for an asset, kept under _keyForAsset so that a changed file or
    // another source-image choice doesn't reuse it.
    std::optional<CGSize> imageSizeForAsset(const VRAsset& asset) const;
    void setImageSize(CGSize size, const VRAsset& asset);
    // "%d-%@-%f": sourceImageEnabled, the asset's object identifier and its modification date
    // in seconds since 1970.
    std::string _keyForAsset(const VRAsset& asset) const;

    // Both are handed on to the asset manager, whose library requests follow them.
    bool sourceImageEnabled() const;
    void setSourceImageEnabled(bool enabled);
    bool loadImagesOnly() const;
    void setLoadImagesOnly(bool only);

    bool backgroundMode() const;
    void setBackgroundMode(bool background);

    bool needsShowOnceLimitedPhotosAlert() const;
    bool limitedPhotosAlertAllowedOnce() const;
    // Ignores true once limitedPhotosAlertAllowedOnce is set; otherwise stores the value and
    // sets limitedPhotosAlertAllowedOnce, so the alert is asked for at most once a process.
    void setNeedsShowOnceLimitedPhotosAlert(bool needs);

    VRSession() = default;
    VRSession(const VRSession&) = delete;
    VRSession& operator=(const VRSession&) = delete;

  private:
    mutable std::mutex _lock;
    std::vector<VRAssetRef> _editingAssets;
    std::map<std::string, CGSize> _imageSizes;
    bool _sourceImageEnabled = false;
    bool _loadImagesOnly = false;
    bool _backgroundMode = false;
    bool _needsShowOnceLimitedPhotosAlert = false;
    bool _limitedPhotosAlertAllowedOnce = false;
};
