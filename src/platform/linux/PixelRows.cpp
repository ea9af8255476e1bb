// Row conversion from any bitmap layout to the plain interleaved rows that encoders take.
#include <algorithm>
#include <cstring>

#include "platform/linux/ImageCodecs.h"

namespace platform::codecs {
namespace {

template <class Out>
void unpackRow(const Bitmap& image, std::size_t y, bool gray, bool alpha, Out* out) {
    const PixelLayout& l = image.layout();
    const std::uint8_t* row = image.row(y);
    const int bpp = l.bytesPerPixel();
    const int c0 = l.colorOffset();
    const int a = l.alphaOffset();
    const bool deep = l.bitsPerComponent == 16;
    constexpr bool outDeep = sizeof(Out) == 2;
    constexpr std::uint32_t outMax = outDeep ? 65535 : 255;
    const std::uint32_t inMax = deep ? 65535 : 255;
    auto sample = [&](const std::uint8_t* px, int index) -> std::uint32_t {
        if (deep) {
            std::uint16_t v;
            std::memcpy(&v, px + index * 2, 2);
            return v;
        }
        return px[index];
    };
    auto scale = [&](std::uint32_t v) -> Out {
        if (deep == outDeep) return static_cast<Out>(v);
        if (outDeep) return static_cast<Out>(v * 257);
        return static_cast<Out>((v * 255 + 32767) / 65535);
    };
    for (std::size_t x = 0; x < image.width(); ++x) {
        const std::uint8_t* px = row + x * bpp;
        std::uint32_t r = 0, g = 0, b = 0;
        if (l.colorComponents == 3) {
            r = sample(px, c0), g = sample(px, c0 + 1), b = sample(px, c0 + 2);
        } else if (l.colorComponents == 1) {
            r = g = b = sample(px, c0);
        }
        std::uint32_t av = a >= 0 ? sample(px, a) : inMax;
        if (l.isPremultiplied() && av > 0 && av < inMax) {
            auto un = [&](std::uint32_t v) { return std::min(inMax, (v * inMax + av / 2) / av); };
            r = un(r), g = un(g), b = un(b);
        }
        if (gray) {
            std::uint32_t luma = (r * 2126 + g * 7152 + b * 722 + 5000) / 10000;
            *out++ = scale(luma);
        } else {
            *out++ = scale(r), *out++ = scale(g), *out++ = scale(b);
        }
        if (alpha) *out++ = scale(av);
    }
    (void)outMax;
}

}  // namespace

const PlistValue& valueForKey(const PlistDictionary& dictionary, const std::string& key) {
    static const PlistValue null;
    auto it = dictionary.find(key);
    return it == dictionary.end() ? null : it->second;
}

void unpackRow8(const Bitmap& image, std::size_t y, bool gray, bool alpha, std::uint8_t* out) {
    unpackRow(image, y, gray, alpha, out);
}

void unpackRow16(const Bitmap& image, std::size_t y, bool gray, bool alpha, std::uint16_t* out) {
    unpackRow(image, y, gray, alpha, out);
}

}  // namespace platform::codecs
