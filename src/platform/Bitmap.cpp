#include "platform/Bitmap.h"

#include <algorithm>
#include <cstring>

namespace platform {

bool PixelLayout::hasAlpha() const {
    switch (alphaInfo) {
        case kCGImageAlphaPremultipliedLast:
        case kCGImageAlphaPremultipliedFirst:
        case kCGImageAlphaLast:
        case kCGImageAlphaFirst:
        case kCGImageAlphaOnly:
            return true;
        default:
            return false;
    }
}

bool PixelLayout::isPremultiplied() const {
    return alphaInfo == kCGImageAlphaPremultipliedLast ||
           alphaInfo == kCGImageAlphaPremultipliedFirst;
}

bool PixelLayout::hasExtraSample() const {
    return alphaInfo != kCGImageAlphaNone;
}

int PixelLayout::colorOffset() const {
    bool first = alphaInfo == kCGImageAlphaPremultipliedFirst || alphaInfo == kCGImageAlphaFirst ||
                 alphaInfo == kCGImageAlphaNoneSkipFirst;
    return first ? 1 : 0;
}

int PixelLayout::alphaOffset() const {
    switch (alphaInfo) {
        case kCGImageAlphaPremultipliedFirst:
        case kCGImageAlphaFirst:
            return 0;
        case kCGImageAlphaPremultipliedLast:
        case kCGImageAlphaLast:
            return colorComponents;
        case kCGImageAlphaOnly:
            return colorComponents;
        default:
            return -1;
    }
}

Bitmap::Bitmap(std::size_t width, std::size_t height, PixelLayout layout, ColorSpace colorSpace,
               std::vector<std::uint8_t> pixels, std::size_t bytesPerRow)
    : _width(width),
      _height(height),
      _layout(layout),
      _rowCount(height),
      _colorSpace(std::make_shared<const ColorSpace>(std::move(colorSpace))) {
    std::size_t minimum = width * static_cast<std::size_t>(layout.bytesPerPixel());
    _bytesPerRow = bytesPerRow >= minimum ? bytesPerRow : minimum;
    if (pixels.size() < _bytesPerRow * height) pixels.resize(_bytesPerRow * height, 0);
    _pixels = std::make_shared<std::vector<std::uint8_t>>(std::move(pixels));
}

Bitmap Bitmap::strip(std::size_t width, std::size_t height, PixelLayout layout,
                     std::shared_ptr<const ColorSpace> colorSpace, std::size_t firstRow,
                     std::size_t rowCount, std::shared_ptr<std::vector<std::uint8_t>> pixels,
                     std::size_t bytesPerRow) {
    Bitmap b;
    b._width = width;
    b._height = height;
    b._layout = layout;
    b._bytesPerRow =
        std::max(bytesPerRow, width * static_cast<std::size_t>(layout.bytesPerPixel()));
    b._firstRow = std::min(firstRow, height);
    b._rowCount = std::min(rowCount, height - b._firstRow);
    if (colorSpace) b._colorSpace = std::move(colorSpace);
    b._pixels = pixels ? std::move(pixels) : std::make_shared<std::vector<std::uint8_t>>();
    if (b._pixels->size() < b._bytesPerRow * b._rowCount)
        b._pixels->resize(b._bytesPerRow * b._rowCount, 0);
    return b;
}

std::uint32_t Bitmap::bitmapInfoForLayout(const PixelLayout& layout) {
    std::uint32_t order = kCGBitmapByteOrderDefault;
    if (layout.bitsPerComponent == 16) {
        order = kCGBitmapByteOrder16Little;
    } else if (layout.samplesPerPixel() == 4) {
        order = kCGBitmapByteOrder32Big;
    }
    return static_cast<std::uint32_t>(layout.alphaInfo) | order;
}

std::uint32_t Bitmap::bitmapInfo() const {
    return bitmapInfoForLayout(_layout);
}

Bitmap::Pixel16 Bitmap::pixelAt(std::size_t x, std::size_t y) const {
    Pixel16 p{0, 0, 0, 65535};
    if (x >= _width || y >= _height || !data()) return p;
    const std::uint8_t* px = row(y) + x * _layout.bytesPerPixel();
    auto sample = [&](int index) -> std::uint16_t {
        if (_layout.bitsPerComponent == 16) {
            std::uint16_t v;
            std::memcpy(&v, px + index * 2, 2);
            return v;
        }
        return static_cast<std::uint16_t>(px[index] * 257);
    };
    int c = _layout.colorOffset();
    if (_layout.colorComponents == 3) {
        p.r = sample(c), p.g = sample(c + 1), p.b = sample(c + 2);
    } else if (_layout.colorComponents == 1) {
        p.r = p.g = p.b = sample(c);
    }
    if (_layout.hasAlpha()) p.a = sample(_layout.alphaOffset());
    return p;
}

}  // namespace platform
