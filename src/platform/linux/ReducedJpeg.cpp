#include "platform/ReducedJpeg.h"

#include "platform/linux/Thumbnail.h"

namespace platform {

std::optional<Bitmap> decodeReducedJpeg(const std::string& path, std::uint32_t minLongSide) {
    auto shrunk = thumbnails::decodeJpegShrunk(path, minLongSide);
    if (!shrunk) return std::nullopt;
    return std::move(shrunk->image);
}

}  // namespace platform
