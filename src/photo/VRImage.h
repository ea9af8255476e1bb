// The image object of the photo pipeline: a picture with its scale and its orientation, the
// displayed size following from both. Made from encoded bytes, whose pixels are decoded only
// when first asked for, or from a drawn bitmap. The photo stage and previews use it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "platform/Bitmap.h"
#include "platform/Geometry.h"

namespace platform {
class ImageSource;
class ImageRowReader;
}

class VRImage {
  public:
    // imageWithData: reads the header (size and orientation) now and decodes image 0 at the
    // first cgImage(). Null when the bytes are no image this build opens.
    static std::shared_ptr<VRImage> imageWithData(std::vector<std::uint8_t> bytes);
    // An image of a bitmap with a scale and an orientation (0 up ... 7, the platform's numbers).
    static std::shared_ptr<VRImage> imageWithCGImage(platform::Bitmap bitmap, double scale,
                                                     std::int64_t imageOrientation);

    // The pixels in stored orientation; a null bitmap when decoding fails.
    const platform::Bitmap& cgImage() const;
    // Before the first cgImage(): decodes the pixels now at 1/`denominator` of each side, or
    // at the next smaller reduction that the source decodes exactly (ImageSource::
    // canDecodeReduced), and returns the reduction taken; 1 (and nothing decoded) where there
    // is none or the pixels are already there. size() and pixelSize() keep the whole picture's.
    std::uint32_t decodeReduced(std::uint32_t denominator) const;
    // Before the first cgImage(): a reader of the pixels a band of rows at a time, at
    // 1/`denominator` of each side or the next smaller reduction the source decodes exactly,
    // with the reduction taken. The image then gives its encoded bytes over to the reader.
    // Null (and the image left as it was) where the pixels are there or the format has no
    // row reader.
    std::unique_ptr<platform::ImageRowReader> rowReader(std::uint32_t denominator,
                                                        std::uint32_t* taken = nullptr) const;
    double scale() const { return _scale; }
    std::int64_t imageOrientation() const { return _orientation; }
    // The displayed size in points: the stored size, sides exchanged for the quarter-turn
    // orientations, divided by the scale.
    CGSize size() const;
    // size() multiplied by the scale.
    CGSize pixelSize() const;

  private:
    VRImage() = default;
    mutable std::shared_ptr<const platform::ImageSource> _source;
    mutable std::optional<platform::Bitmap> _bitmap;
    CGSize _storedSize;
    double _scale = 1;
    std::int64_t _orientation = 0;
};

using VRImageRef = std::shared_ptr<const VRImage>;
