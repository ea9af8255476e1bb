// Helpers shared by the asset manager's source files; not for other users.
#pragma once

#include <optional>
#include <string>

#include "assets/VRAsset.h"
#include "assets/VRAssetThumbnails.h"
#include "model/VRImageArrangement.h"
#include "platform/AVAsset.h"
#include "platform/Bitmap.h"
#include "platform/Geometry.h"

class VRLibraryAsset;
class VRURLAsset;

namespace vr_asset_manager {

const VRLibraryAsset* libraryAssetOf(const VRAssetRef& asset);
const VRURLAsset* urlAssetOf(const VRAssetRef& asset);

// A picture in memory, upright or with its orientation number (0 up ... 7).
struct Picture {
    platform::Bitmap image;
    std::int64_t orientation = 0;
    // Its sides as displayed; the bitmap's own when empty.
    CGSize displayed = {0, 0};
    CGSize displayedSize() const;
};

// A frame a tenth into the movie, upright; nothing (logged) without a decodable video track.
std::optional<platform::Bitmap> frameOfMovie(const AVAssetRef& movie);
// The photo at `path` decoded, or a frame of the movie at `path` (a tenth into it, upright).
std::optional<Picture> pictureAtPath(const std::string& path, bool isMovie);
// The picture drawn into the size VRThumbnailSizeForSize gives, upright, medium quality, with
// `arrangement` plus the rounding; or at `exactSize` when given.
std::optional<platform::Bitmap> drawPicture(const Picture& picture, CGSize target,
                                            PHImageContentMode contentMode,
                                            VRImageArrangementBits arrangement);

}  // namespace vr_asset_manager
