// A thumbnail session of a picker: the size and fit its cells want, and a caching manager that
// warms the library's thumbnails of the assets about to scroll into view.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "assets/VRAssetThumbnails.h"
#include "platform/Geometry.h"
#include "platform/PhotoLibrary.h"

// How a library image request is answered. The numbers are the platform's.
enum PHImageRequestOptionsVersion : int {
    PHImageRequestOptionsVersionCurrent = 0,
    PHImageRequestOptionsVersionUnadjusted = 1,
    PHImageRequestOptionsVersionOriginal = 2,
};
enum PHImageRequestOptionsDeliveryMode : int {
    PHImageRequestOptionsDeliveryModeOpportunistic = 0,
    PHImageRequestOptionsDeliveryModeHighQualityFormat = 1,
    PHImageRequestOptionsDeliveryModeFastFormat = 2,
};
enum PHImageRequestOptionsResizeMode : int {
    PHImageRequestOptionsResizeModeNone = 0,
    PHImageRequestOptionsResizeModeFast = 1,
    PHImageRequestOptionsResizeModeExact = 2,
};

struct PHImageRequestOptions {
    bool networkAccessAllowed = false;
    int version = PHImageRequestOptionsVersionCurrent;
    int deliveryMode = PHImageRequestOptionsDeliveryModeOpportunistic;
    int resizeMode = PHImageRequestOptionsResizeModeFast;
    bool synchronous = false;
    friend bool operator==(const PHImageRequestOptions&, const PHImageRequestOptions&) = default;
};

// Keeps the library's freedesktop thumbnails of the assets being cached made, on a background
// queue, so that a request finds them on disk; the bitmaps themselves are not held in memory,
// which keeps a long album's scrolling at a bounded footprint.
class PHCachingImageManager : public std::enable_shared_from_this<PHCachingImageManager> {
  public:
    explicit PHCachingImageManager(std::shared_ptr<platform::PhotoLibrary> library)
        : _library(std::move(library)) {}

    bool allowsCachingHighQualityImages() const { return _allowsCachingHighQualityImages; }
    void setAllowsCachingHighQualityImages(bool value) { _allowsCachingHighQualityImages = value; }

    void startCachingImagesForAssets(const std::vector<std::string>& localIdentifiers,
                                     CGSize targetSize);
    // Assets not yet warmed are skipped; finished ones stay on disk.
    void stopCachingImagesForAssets(const std::vector<std::string>& localIdentifiers);
    void stopCachingImagesForAllAssets();

    const std::shared_ptr<platform::PhotoLibrary>& library() const { return _library; }
    // The identifiers still waiting to be warmed (for the tests and the logs).
    std::size_t pendingCount() const;

  private:
    std::shared_ptr<platform::PhotoLibrary> _library;
    std::atomic<bool> _allowsCachingHighQualityImages{false};
    mutable std::mutex _lock;
    std::set<std::string> _pending;
};

class VRRequestSession {
  public:
    static std::shared_ptr<VRRequestSession> sessionWithTargetSize(
        CGSize targetSize, PHImageContentMode contentMode, bool highQuality, bool synchronous,
        bool allowHighQualityCaching, std::shared_ptr<platform::PhotoLibrary> library);

    CGSize targetSize = {0, 0};
    PHImageContentMode contentMode = PHImageContentModeAspectFill;
    bool highQuality = false;
    bool synchronous = false;
    // Null once the session has ended.
    std::shared_ptr<PHCachingImageManager> imageManager;
};

using VRRequestSessionRef = std::shared_ptr<VRRequestSession>;
