// Writes one image with its properties to a file of a given type. The photo pipeline writes
// its results through it. The file appears whole or not at all: it is encoded into a hidden
// temporary file in the same folder and renamed over the target at the end.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Bitmap.h"
#include "platform/Error.h"
#include "platform/PlistValue.h"

namespace platform {

class ImageDestination {
  public:
    // The type identifiers this build can write (CGImageDestinationCopyTypeIdentifiers):
    // "public.jpeg", "public.png", "public.tiff", "com.compuserve.gif", "org.webmproject.webp",
    // and "public.heic" when libheif has an HEVC encoder.
    static std::vector<std::string> typeIdentifiers();

    // CGImageDestinationCreateWithURL for `count` images (only 1 is supported); null with an
    // error for an unknown type or another count. Nothing is written yet.
    static std::unique_ptr<ImageDestination> createWithURL(const std::string& path,
                                                           const std::string& type,
                                                           std::size_t count,
                                                           ErrorRef* error = nullptr);

    // CGImageDestinationAddImage. Properties read:
    //  "kCGImageDestinationLossyCompressionQuality" 0..1: JPEG quality 1..100; HEIC through the
    //     encoder's quality scale (see the implementation); WebP lossy at 0..100 below 1.0 and
    //     lossless at 1.0; ignored by the lossless formats.
    //  "HasAlpha": false drops the image's alpha; true keeps it where the format has alpha.
    //  "Orientation": the EXIF orientation written (1 when absent).
    //  "DPIWidth"/"DPIHeight": resolution in the file (JFIF, pHYs, TIFF tags, EXIF).
    //  "{TIFF}", "{Exif}", "{GPS}", "{IPTC}", "{XMP}": metadata blocks, where the format can
    //     carry them (JPEG, PNG, TIFF: all; HEIC and WebP: EXIF, GPS and XMP; GIF: none).
    //  "{PNG}" text keys (PNG only), and under its "TextChunks" a dictionary of PNG keywords
    //     to texts written as they are (the thumbnail cache's keys); "{JFIF}" density (JPEG
    //     only).
    // 16-bit images stay 16-bit in PNG and TIFF; JPEG, GIF, HEIC and WebP take 8 bits (HEIC 10
    // bits is not written). The image's ICC profile is embedded where the format allows.
    void addImage(const Bitmap& image, const PlistDictionary& properties);

    // Whether addImageRows can write files of this type: JPEG and PNG.
    static bool canWriteRows(const std::string& type);
    // As addImage, for a picture whose rows arrive while finalize() encodes them: `shape` gives
    // its size, layout and colour space (a strip without rows will do), and `rows` the bitmap
    // that holds row y, asked for top to bottom on finalize's thread; null there stops the
    // encode, which then fails and leaves no file. Types without canWriteRows fail at
    // finalize.
    void addImageRows(const Bitmap& shape, std::function<const Bitmap*(std::size_t)> rows,
                      const PlistDictionary& properties);

    // CGImageDestinationFinalize: encodes and renames into place. On failure (no image added,
    // encoder failure, full disk) returns false with an error and leaves no file behind; an
    // existing file at the path is then left untouched.
    bool finalize(ErrorRef* error = nullptr);

    ~ImageDestination();

  private:
    ImageDestination() = default;
    std::string _path;
    std::string _type;
    std::optional<Bitmap> _image;
    std::function<const Bitmap*(std::size_t)> _rows;
    PlistDictionary _properties;
    bool _finalized = false;
};

}  // namespace platform
