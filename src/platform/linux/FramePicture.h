// A decoded 4:2:0 frame ('420v', '420f', 'x420', 'xf20', two or three planes) as an 8-bit RGB
// picture, converted as the movie reader converts frames it hands out as BGRA, so that the
// picture is the one a BGRA reader would have given. The conversion lives in the media module
// (swscale); the program's definition calls it through the module's table.
#pragma once

#include <optional>

#include "platform/Bitmap.h"
#include "platform/CVPixelBuffer.h"

namespace platform::media {

// The picture with a skipped fourth byte; nothing for another format or when out of memory.
std::optional<Bitmap> pictureOfYCbCrFrame(const CVPixelBuffer& frame);

}  // namespace platform::media
