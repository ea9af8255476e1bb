#include "photo/ImageFileWriting.h"

#include "platform/FileManager.h"
#include "platform/ImageDestination.h"
#include "platform/ImagePropertyKeys.h"
#include "platform/Log.h"

using namespace platform;

std::int64_t VRExifOrientationForImageOrientation(std::int64_t imageOrientation) {
    static constexpr std::int64_t kTable[8] = {1, 3, 8, 6, 2, 4, 5, 7};
    return imageOrientation >= 0 && imageOrientation <= 7 ? kTable[imageOrientation] : 1;
}

PlistDictionary VRImageFileProperties(const Bitmap& image, std::int64_t imageOrientation,
                                      const VRFormat& format,
                                      const std::optional<PlistDictionary>& properties) {
    const CGImageAlphaInfo alpha = image.alphaInfo();
    const bool hasAlpha = alpha == kCGImageAlphaPremultipliedLast ||
                          alpha == kCGImageAlphaPremultipliedFirst || alpha == kCGImageAlphaLast ||
                          alpha == kCGImageAlphaFirst || alpha == kCGImageAlphaOnly;
    PlistDictionary merged = properties.value_or(PlistDictionary{});
    merged[kCGImagePropertyOrientation] = VRExifOrientationForImageOrientation(imageOrientation);
    merged[kCGImagePropertyHasAlpha] = hasAlpha;
    merged[kCGImageDestinationLossyCompressionQuality] = static_cast<double>(format.compression());
    return merged;
}

bool VRWriteImageFile(const Bitmap& image, std::int64_t imageOrientation, const VRFormat& format,
                      const std::string& path, const std::optional<PlistDictionary>& properties,
                      ErrorRef* error) {
    const std::string type = format.UTI();
    const PlistDictionary merged =
        VRImageFileProperties(image, imageOrientation, format, properties);

    if (FileManager::fileExistsAtPath(path)) FileManager::removeItemAtPath(path);
    auto destination = ImageDestination::createWithURL(path, type, 1, error);
    if (!destination) return false;
    if (image.isNull()) {
        logf("~~ IMAGE: nothing to write to %s", path.c_str());
        return false;
    }
    destination->addImage(image, merged);
    return destination->finalize(error);
}
