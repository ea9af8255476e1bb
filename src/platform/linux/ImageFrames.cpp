#include "platform/ImageFrames.h"

#include "platform/linux/ImageCodecs.h"

namespace platform {

std::size_t imageFrameCount(const std::vector<std::uint8_t>& bytes, std::size_t stopAt) {
    const auto* codec =
        codecs::imageCodecForType(typeIdentifierForData(bytes.data(), bytes.size()));
    if (!codec || !codec->frameCount) return 1;
    return codec->frameCount(bytes.data(), bytes.size(), stopAt);
}

}  // namespace platform
