#include "assets/VRAssetThumbnails.h"

#include <algorithm>
#include <cmath>

#include "assets/VRAssetManager2Internal.h"
#include "assets/VRURLAsset.h"
#include "platform/Dispatch.h"
#include "platform/ImageDestination.h"
#include "platform/Log.h"

using namespace platform;

namespace {

constexpr double kThumbnailQuality = 0.85;

bool writeThumbnail(const Bitmap& image, const std::string& path) {
    ErrorRef error;
    auto destination = ImageDestination::createWithURL(path, "public.jpeg", 1, &error);
    if (destination) {
        destination->addImage(
            image, {{"kCGImageDestinationLossyCompressionQuality", PlistValue(kThumbnailQuality)},
                    {"HasAlpha", PlistValue(false)}});
        if (destination->finalize(&error)) return true;
    }
    logf("~~ ASSET: no thumbnail at %s: %s", path.c_str(),
         error ? error->localizedDescription().c_str() : "unknown");
    return false;
}

}  // namespace

CGSize VRThumbnailSizeForSize(CGSize source, CGSize target, PHImageContentMode contentMode) {
    if (!(source.width > 0 && source.height > 0 && target.width > 0 && target.height > 0))
        return {0, 0};
    const double rx = target.width / source.width, ry = target.height / source.height;
    const double scale = std::min(
        1.0, contentMode == PHImageContentModeAspectFill ? std::max(rx, ry) : std::min(rx, ry));
    return {std::max(1.0, std::round(source.width * scale)),
            std::max(1.0, std::round(source.height * scale))};
}

std::optional<Bitmap> VRThumbnailForURL(const std::string& url, CGSize targetSize,
                                        PHImageContentMode contentMode) {
    const bool movie = VRURLAsset::mediaTypeForPath(url) == VRFormatMediaTypeVideo;
    auto picture = vr_asset_manager::pictureAtPath(url, movie);
    if (!picture) return std::nullopt;
    // Integral and oriented: the target is upright and already has the picture's proportions.
    return vr_asset_manager::drawPicture(
        *picture, targetSize, contentMode,
        static_cast<VRImageArrangementBits>(VRImageArrangementIntegral |
                                            VRImageArrangementOriented));
}

std::optional<Bitmap> VRCreateThumbnailForURL(const std::string& url,
                                              const std::string& thumbnailURL, CGSize targetSize,
                                              PHImageContentMode contentMode, bool synchronously) {
    auto image = VRThumbnailForURL(url, targetSize, contentMode);
    if (!image) return std::nullopt;
    if (synchronously) {
        if (!writeThumbnail(*image, thumbnailURL)) return std::nullopt;
    } else {
        DispatchQueue::global(DispatchQoS::utility).async([copy = *image, thumbnailURL] {
            writeThumbnail(copy, thumbnailURL);
        });
    }
    return image;
}
