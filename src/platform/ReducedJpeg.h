// Shrink-on-load for thumbnails: a JPEG decoded at the smallest DCT scale (1/1, 1/2, 1/4, 1/8)
// whose longer side is still at least `minLongSide`, so that a small picture of a large photo
// costs a fraction of a full decode. The bitmap is as stored (not yet turned upright).
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/Bitmap.h"

namespace platform {

// None for a file that is no JPEG, a CMYK one, or damage; the caller then decodes in full.
std::optional<Bitmap> decodeReducedJpeg(const std::string& path, std::uint32_t minLongSide);

}  // namespace platform
