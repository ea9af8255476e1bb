// Answers size and orientation questions from an image-properties dictionary, and reads such
// a dictionary from an image source. Used by the photo pipeline's image object and by assets.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/Geometry.h"
#include "platform/PlistValue.h"

namespace platform {
class ImageSource;
}

class VRImageProcessor {
  public:
    class ImageProperties {
      public:
        explicit ImageProperties(platform::PlistDictionary properties)
            : _properties(std::move(properties)) {}
        const platform::PlistDictionary& properties() const { return _properties; }

        // "PixelWidth"/"PixelHeight"; when either is missing or no number, "Width"/"Height";
        // then the EXIF family's "PixelXDimension"/"PixelYDimension". As stored (not turned).
        std::optional<CGSize> size() const;
        // The platform's image orientation (0 up ... 7) from "Orientation", or from the TIFF
        // family's "Orientation" when the top level has none. EXIF numbers outside 1...8 read
        // as up.
        std::optional<std::int64_t> orientation() const;

      private:
        platform::PlistDictionary _properties;
    };

    // The properties of image 0, or nothing when they can't be copied.
    static std::optional<ImageProperties> propertiesOfImageSource(
        const platform::ImageSource& source);

    // The EXIF orientation number (1...8) as the platform's image orientation (0...7).
    static std::int64_t imageOrientationForExifOrientation(std::int64_t exif);
};
