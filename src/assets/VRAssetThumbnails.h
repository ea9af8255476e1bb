// Thumbnail files of photos and movies: the asset manager, the result store, the import and file
// assets make theirs with this one routine, so that every thumbnail of the program is drawn alike.
#pragma once

#include <optional>
#include <string>

#include "platform/Bitmap.h"
#include "platform/Geometry.h"

// How a picture meets a thumbnail's target size: whole inside it, or covering it.
enum PHImageContentMode : int {
    PHImageContentModeAspectFit = 0,
    PHImageContentModeAspectFill = 1,
};

// The size a picture of `source` displayed pixels gets for `target`: its own proportions,
// scaled to fit inside or to cover, never enlarged, rounded to whole pixels and at least 1.
// (0, 0) for a source or target without area.
CGSize VRThumbnailSizeForSize(CGSize source, CGSize target, PHImageContentMode contentMode);

// createThumbnailForURL:thumbnailURL:targetSize:contentMode:synchronously:. Draws the photo at
// `url` upright (its EXIF orientation applied), or a movie's frame a tenth into it, at
// VRThumbnailSizeForSize, with medium quality, and writes it as a JPEG at `thumbnailURL`, replacing
// an older thumbnail there; the file appears whole or not at all. `synchronously` false returns the
// image at once and writes the file on a background queue. Nothing for a file that isn't a readable
// picture or movie.
std::optional<platform::Bitmap> VRCreateThumbnailForURL(const std::string& url,
                                                        const std::string& thumbnailURL,
                                                        CGSize targetSize,
                                                        PHImageContentMode contentMode,
                                                        bool synchronously);
// The same without a file: the drawn thumbnail only.
std::optional<platform::Bitmap> VRThumbnailForURL(const std::string& url, CGSize targetSize,
                                                  PHImageContentMode contentMode);
