// Size and orientation questions answered from an image-properties dictionary, as the
// platform's image source yields it. A value; the photo pipeline knows it as
// `VRImageProcessor::ImageProperties`, and the assets read their pixel size with it.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/Geometry.h"
#include "platform/PlistValue.h"

namespace platform {
class ImageSource;
}

class VRImageProperties {
  public:
    explicit VRImageProperties(platform::PlistDictionary properties)
        : _properties(std::move(properties)) {}
    const platform::PlistDictionary& properties() const { return _properties; }

    // The properties of image 0, or nothing when they can't be copied.
    static std::optional<VRImageProperties> ofImageSource(const platform::ImageSource& source);

    // "PixelWidth"/"PixelHeight"; when either is missing or no number, "Width"/"Height";
    // then the EXIF family's "PixelXDimension"/"PixelYDimension". As stored (not turned).
    std::optional<CGSize> size() const;
    // The platform's image orientation (0 up ... 7) from "Orientation", or from the TIFF
    // family's "Orientation" when the top level has none. EXIF numbers outside 1...8 read
    // as up.
    std::optional<std::int64_t> orientation() const;
    // The size as shown: sides swapped when the orientation turns the picture a quarter.
    // Zero when no size is stored.
    CGSize displayedSize() const;

    // The EXIF orientation number (1...8) as the platform's image orientation (0...7).
    static std::int64_t imageOrientationForExifOrientation(std::int64_t exif);

  private:
    platform::PlistDictionary _properties;
};
