#include "model/VRImageProperties.h"

#include "model/VROrientation.h"
#include "platform/ImagePropertyKeys.h"
#include "platform/ImageSource.h"

namespace {

using platform::PlistDictionary;
using platform::PlistValue;

std::optional<CGSize> sizeOf(const PlistDictionary& d, const char* widthKey,
                             const char* heightKey) {
    auto w = d.find(widthKey), h = d.find(heightKey);
    if (w == d.end() || h == d.end() || !w->second.isNumber() || !h->second.isNumber())
        return std::nullopt;
    return CGSize{w->second.doubleValue(), h->second.doubleValue()};
}

const PlistValue& valueOf(const PlistDictionary& d, const char* key) {
    static const PlistValue null;
    auto it = d.find(key);
    return it == d.end() ? null : it->second;
}

}  // namespace

std::optional<VRImageProperties> VRImageProperties::ofImageSource(
    const platform::ImageSource& source) {
    auto properties = source.copyPropertiesAtIndex(0);
    if (!properties) return std::nullopt;
    return VRImageProperties(std::move(*properties));
}

std::optional<CGSize> VRImageProperties::size() const {
    using namespace platform;
    if (auto s = sizeOf(_properties, kCGImagePropertyPixelWidth, kCGImagePropertyPixelHeight))
        return s;
    if (auto s = sizeOf(_properties, kCGImagePropertyWidth, kCGImagePropertyHeight)) return s;
    if (const PlistDictionary* exif =
            valueOf(_properties, kCGImagePropertyExifDictionary).dictionary())
        return sizeOf(*exif, kCGImagePropertyExifPixelXDimension,
                      kCGImagePropertyExifPixelYDimension);
    return std::nullopt;
}

std::optional<std::int64_t> VRImageProperties::orientation() const {
    using namespace platform;
    const PlistValue* value = &valueOf(_properties, kCGImagePropertyOrientation);
    if (value->isNull())
        value =
            &valueOf(_properties, kCGImagePropertyTIFFDictionary)[kCGImagePropertyTIFFOrientation];
    if (!value->isNumber()) return std::nullopt;
    return imageOrientationForExifOrientation(value->integerValue());
}

CGSize VRImageProperties::displayedSize() const {
    auto stored = size();
    if (!stored) return CGSizeZero;
    const auto o = VROrientation::orientationWithImageOrientation(orientation().value_or(0));
    return o.isRotated() ? CGSize{stored->height, stored->width} : *stored;
}

std::int64_t VRImageProperties::imageOrientationForExifOrientation(std::int64_t exif) {
    // EXIF 1...8 -> up, upMirrored, down, downMirrored, leftMirrored, right, rightMirrored, left.
    static constexpr std::int64_t kTable[9] = {0, 0, 4, 1, 5, 6, 3, 7, 2};
    return exif >= 1 && exif <= 8 ? kTable[exif] : 0;
}
