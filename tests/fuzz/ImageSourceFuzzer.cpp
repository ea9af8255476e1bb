// Feeds arbitrary bytes through the image source: open, properties, decode, and a small draw
// of whatever decodes.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/BitmapContext.h"
#include "platform/DecoderLimits.h"
#include "platform/ImageSource.h"

// Decoders without threads of their own, and no part of a HEIF picture longer than 4096 a
// side (the pictures taken here hold 4M pixels at most), so that every run over the same
// inputs takes the same memory.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    platform::DecoderLimits limits;
    limits.singleThreaded = true;
    limits.heifMaxSide = 4096;
    platform::setDecoderLimits(limits);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    platform::ImageSourceLimits limits;
    limits.maxPixels = 4u << 20;
    limits.maxSide = 8192;
    platform::ErrorRef error;
    auto source = platform::ImageSource::createWithData(
        std::vector<std::uint8_t>(data, data + size), &error, limits);
    if (!source) return 0;
    source->copyPropertiesAtIndex(0);
    auto bitmap = source->createImageAtIndex(0, &error);
    if (!bitmap) return 0;
    auto context = platform::BitmapContext::create(7, 5, bitmap->bitsPerComponent(),
                                                   platform::ColorSpace::deviceRGB(),
                                                   platform::kCGImageAlphaPremultipliedLast);
    if (context) {
        context->setInterpolationQuality(platform::kCGInterpolationHigh);
        context->drawImage({{0.5, 0.25}, {6, 4.5}}, *bitmap);
        context->createImage();
    }
    return 0;
}
