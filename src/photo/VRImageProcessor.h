// The photo pipeline's reader of image properties: size and orientation questions from an
// image-properties dictionary (a model value, which the assets use too), and such a
// dictionary read from an image source. Used by the photo pipeline's image object.
#pragma once

#include <cstdint>
#include <optional>

#include "model/VRImageProperties.h"

namespace platform {
class ImageSource;
}

class VRImageProcessor {
  public:
    using ImageProperties = VRImageProperties;

    // The properties of image 0, or nothing when they can't be copied.
    static std::optional<ImageProperties> propertiesOfImageSource(
        const platform::ImageSource& source) {
        return VRImageProperties::ofImageSource(source);
    }

    // The EXIF orientation number (1...8) as the platform's image orientation (0...7).
    static std::int64_t imageOrientationForExifOrientation(std::int64_t exif) {
        return VRImageProperties::imageOrientationForExifOrientation(exif);
    }
};
