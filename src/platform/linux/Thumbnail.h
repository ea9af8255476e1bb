// Thumbnails of library files through the freedesktop Thumbnail Managing Standard cache, so
// that the desktop's file managers and the library share one set: PNGs named by the MD5 of the
// file's URI in normal/ (128), large/ (256) and x-large/ (512), carrying Thumb::URI and
// Thumb::MTime. Used by the Linux photo library.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "platform/Bitmap.h"
#include "platform/Error.h"

namespace platform::thumbnails {

// "file://" and the absolute path, each byte outside the unreserved set and "/" escaped as
// %XX with upper-case digits (RFC 3986), as file managers write it.
std::string fileURIForPath(const std::string& absolutePath);

// The cache's bucket for a longest side: "normal" up to 128, "large" up to 256, else
// "x-large" (512, the largest kept).
struct Bucket {
    const char* folder;
    std::uint32_t side;
};
Bucket bucketForSide(std::uint32_t maxSide);

// CACHE/<bucket>/<md5 of the URI>.png for the file.
std::string cachePathForFile(const std::string& cacheRoot, const std::string& absolutePath,
                             std::uint32_t maxSide);

// The cached thumbnail of the file when it is current (its Thumb::URI and Thumb::MTime match
// the file), else a new one made from the file and stored (atomically, mode 0600) before it
// is returned. Pictures smaller than the bucket are not enlarged. EXIF orientation is applied.
std::optional<Bitmap> thumbnailForFile(const std::string& cacheRoot,
                                       const std::string& absolutePath, std::uint32_t maxSide,
                                       ErrorRef* error);

// A picture drawn for the cache at a bucket's side (8-bit, four samples a pixel, the fourth
// alpha or skipped) with the EXIF orientation (1 to 8) that turns it upright.
struct DrawnThumbnail {
    Bitmap image;
    int orientation = 1;
};
using ThumbnailMaker =
    std::function<std::optional<DrawnThumbnail>(std::uint32_t side, ErrorRef* error)>;

// thumbnailForFile with another way of drawing the picture: the cached entry when current,
// else `make` for the bucket's side, turned upright and stored before it is returned.
std::optional<Bitmap> cachedThumbnailForFile(const std::string& cacheRoot,
                                             const std::string& absolutePath, std::uint32_t maxSide,
                                             const ThumbnailMaker& make, ErrorRef* error);

// The thumbnail of a movie: its frame at a tenth of its duration, but no later than one
// second in (so that a fade from black at the start is passed, and a long movie is not read
// far), drawn upright by its track's display matrix, through the same cache as the photos.
std::optional<Bitmap> thumbnailForMovie(const std::string& cacheRoot,
                                        const std::string& absolutePath, std::uint32_t maxSide,
                                        ErrorRef* error);

// A JPEG decoded at the smallest DCT scale (1/1 .. 1/8) whose longer side is still at least
// `minSide`; RGB or grey, 8 bits, with the full size and the EXIF orientation (1 when absent)
// read in the same pass. None for other files, CMYK or damage.
struct ShrunkJpeg {
    Bitmap image;
    std::uint32_t pixelWidth = 0;  // of the full picture, as stored
    std::uint32_t pixelHeight = 0;
    int orientation = 1;
};
std::optional<ShrunkJpeg> decodeJpegShrunk(const std::string& path, std::uint32_t minSide);

}  // namespace platform::thumbnails
