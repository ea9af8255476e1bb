// The attributes a file-backed asset reads lazily from its file: the displayed pixel size (a
// movie's first video track turned by its transform, a photo's size turned by its EXIF
// orientation) and a movie's duration. URL, local and file assets share this one reading.
#pragma once

#include <optional>
#include <string>

#include "model/VRFormatMediaType.h"
#include "platform/Geometry.h"

struct VRMediaAttributes {
    // Present only when the file could be read; the callers keep their defaults otherwise.
    std::optional<CGSize> pixelSize;
    std::optional<double> duration;  // movies only
};

VRMediaAttributes VRLoadMediaAttributes(const std::string& path, VRFormatMediaType mediaType);
