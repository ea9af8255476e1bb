// Reads one image file or buffer: its type from the signature, the properties of image 0
// without decoding pixels, and the decoded bitmap. Used by the photo pipeline and thumbnails.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Bitmap.h"
#include "platform/Error.h"
#include "platform/PlistValue.h"

namespace platform {

inline constexpr std::int64_t NSFileReadTooLargeError = 263;

// Checked when a source is opened, before any pixel is decoded. A file above them is refused
// with an error naming the limit and the value found.
struct ImageSourceLimits {
    std::uint64_t maxBytes = 1ull << 30;             // size of the encoded file
    std::uint32_t maxSide = 65535;                   // width or height of image 0
    std::uint64_t maxPixels = 400ull * 1000 * 1000;  // width x height of image 0
};

class ImageSource {
  public:
    // CGImageSourceCreateWithData / ...WithURL: null with an error when the bytes are empty,
    // unreadable, of no known type, or their header is damaged or above the limits.
    static std::shared_ptr<ImageSource> createWithData(std::vector<std::uint8_t> bytes,
                                                       ErrorRef* error = nullptr,
                                                       const ImageSourceLimits& limits = {});
    static std::shared_ptr<ImageSource> createWithURL(const std::string& path,
                                                      ErrorRef* error = nullptr,
                                                      const ImageSourceLimits& limits = {});

    // The type identifier from the first bytes, by the one sniffer of ImageFormats.h, when it
    // names a format with a reader: "public.jpeg", "public.png", "public.tiff",
    // "com.compuserve.gif", "public.heic", "public.heif", "org.webmproject.webp"; "" for
    // anything else.
    static std::string typeIdentifierForData(const std::uint8_t* bytes, std::size_t size);

    virtual ~ImageSource() = default;

    // CGImageSourceGetType.
    const std::string& type() const { return _type; }
    // Images in the source; only image 0 is ever read.
    std::size_t count() const { return 1; }
    std::uint32_t pixelWidth() const { return _width; }
    std::uint32_t pixelHeight() const { return _height; }

    // CGImageSourceCopyPropertiesAtIndex for image 0: the top-level keys "PixelWidth",
    // "PixelHeight", "Depth", "HasAlpha", "ColorModel", and when known "Orientation",
    // "DPIWidth", "DPIHeight", "ProfileName", plus the families "{TIFF}", "{Exif}", "{GPS}",
    // "{IPTC}", "{PNG}", "{JFIF}", "{HEICS}" (and "{XMP}", exiv2 keys to text) that the file
    // carries. Read from headers and metadata blocks only; pixels are not decoded.
    std::optional<PlistDictionary> copyPropertiesAtIndex(std::size_t index,
                                                         ErrorRef* error = nullptr) const;

    // CGImageSourceCreateImageAtIndex for image 0: pixels in the file's own depth (8 or 16
    // bits), its colour space with the ICC profile, and its alpha (straight alpha "Last",
    // opaque RGB as "NoneSkipLast", grey without alpha as "None"; grey with alpha becomes
    // RGB). CMYK JPEGs come out RGB through their profile. Orientation is not applied.
    std::optional<Bitmap> createImageAtIndex(std::size_t index, ErrorRef* error = nullptr) const;

    // True when image 0 decodes at exactly 1/`denominator` of each side (a JPEG whose sides
    // both divide by 2, 4 or 8), so that each decoded pixel stands for a whole block.
    bool canDecodeReduced(std::uint32_t denominator) const;
    // Image 0 at 1/`denominator` of each side, as createImageAtIndex gives it otherwise; null
    // with an error where canDecodeReduced is false or the decoding fails.
    std::optional<Bitmap> createReducedImage(std::uint32_t denominator,
                                             ErrorRef* error = nullptr) const;

  protected:
    ImageSource() = default;
    std::string _type;
    std::uint32_t _width = 0;
    std::uint32_t _height = 0;
};

}  // namespace platform
