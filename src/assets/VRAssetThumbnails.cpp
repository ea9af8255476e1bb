#include "assets/VRAssetThumbnails.h"

#include <algorithm>
#include <cmath>

#include "assets/VRAssetManager2Internal.h"
#include "assets/VRURLAsset.h"
#include "model/ImageRendering.h"
#include "model/VRImageProperties.h"
#include "platform/Dispatch.h"
#include "platform/ImageDestination.h"
#include "platform/ImageSource.h"
#include "platform/Log.h"
#include "platform/ReducedJpeg.h"

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

constexpr auto kUpright =
    static_cast<VRImageArrangementBits>(VRImageArrangementIntegral | VRImageArrangementOriented);

// A JPEG drawn from a DCT-reduced decode that is still at least as large as the thumbnail, into
// the size the full picture would give; none for anything else, which is decoded in full.
std::optional<Bitmap> reducedThumbnail(const std::string& url, CGSize targetSize,
                                       PHImageContentMode contentMode) {
    auto source = ImageSource::createWithURL(url);
    if (!source || source->type() != "public.jpeg") return std::nullopt;
    auto properties = VRImageProperties::ofImageSource(*source);
    if (!properties) return std::nullopt;
    const CGSize size =
        VRThumbnailSizeForSize(properties->displayedSize(), targetSize, contentMode);
    if (size.width == 0) return std::nullopt;
    auto image =
        decodeReducedJpeg(url, static_cast<std::uint32_t>(std::max(size.width, size.height)));
    if (!image) return std::nullopt;
    return VRRenderCGImage(*image, properties->orientation().value_or(0), kCGInterpolationMedium,
                           std::nullopt, kUpright, 1, 0, CGRect{}, size, CGPoint{});
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
    if (!movie) {
        if (auto reduced = reducedThumbnail(url, targetSize, contentMode)) return reduced;
    }
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
