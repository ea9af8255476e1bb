// An immutable decoded picture: interleaved pixels with their depth, alpha layout and colour
// space. Decoders make them, drawing contexts snapshot them, encoders write them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/ColorSpace.h"

namespace platform {

// The alpha part of a bitmap's layout, with the platform's numbers.
enum CGImageAlphaInfo : std::uint32_t {
    kCGImageAlphaNone = 0,
    kCGImageAlphaPremultipliedLast = 1,
    kCGImageAlphaPremultipliedFirst = 2,
    kCGImageAlphaLast = 3,
    kCGImageAlphaFirst = 4,
    kCGImageAlphaNoneSkipLast = 5,
    kCGImageAlphaNoneSkipFirst = 6,
    kCGImageAlphaOnly = 7,
};

// Bitmap info = alpha part | byte order. Samples are stored in host order for 16 bits
// (kCGBitmapByteOrder16Little here) and in memory order R, G, B for 8 bits, which the
// platform calls kCGBitmapByteOrder32Big for four-sample pixels and the default otherwise.
inline constexpr std::uint32_t kCGBitmapAlphaInfoMask = 0x1F;
inline constexpr std::uint32_t kCGBitmapByteOrderMask = 0x7000;
inline constexpr std::uint32_t kCGBitmapByteOrderDefault = 0;
inline constexpr std::uint32_t kCGBitmapByteOrder16Little = 0x1000;
inline constexpr std::uint32_t kCGBitmapByteOrder32Little = 0x2000;
inline constexpr std::uint32_t kCGBitmapByteOrder16Big = 0x3000;
inline constexpr std::uint32_t kCGBitmapByteOrder32Big = 0x4000;

// Where the samples of one pixel sit. Colour samples come in the colour space's order (grey, or
// R G B); an alpha or skip sample comes first or last as the alpha part says.
struct PixelLayout {
    int bitsPerComponent = 8;  // 8 or 16
    int colorComponents = 3;   // 0 (alpha only), 1 or 3
    CGImageAlphaInfo alphaInfo = kCGImageAlphaNone;

    bool hasAlpha() const;  // parts 1, 2, 3, 4 and 7
    bool isPremultiplied() const;
    bool hasExtraSample() const;  // alpha or skip
    int samplesPerPixel() const { return colorComponents + (hasExtraSample() ? 1 : 0); }
    int bytesPerSample() const { return bitsPerComponent / 8; }
    int bytesPerPixel() const { return samplesPerPixel() * bytesPerSample(); }
    // Index of the first colour sample and of the alpha sample (-1 without alpha).
    int colorOffset() const;
    int alphaOffset() const;
    friend bool operator==(const PixelLayout&, const PixelLayout&) = default;
};

class Bitmap {
  public:
    Bitmap() = default;
    // Takes over `pixels` (rows of `bytesPerRow`, at least width * bytesPerPixel, top row first).
    // An empty vector allocates zeroed pixels.
    Bitmap(std::size_t width, std::size_t height, PixelLayout layout, ColorSpace colorSpace,
           std::vector<std::uint8_t> pixels = {}, std::size_t bytesPerRow = 0);

    // A strip of a taller picture, for pixels that stream through in bands of rows: the
    // picture is width x height, and only rows [firstRow, firstRow + rowCount) are held, in
    // `pixels` (shared, rows of `bytesPerRow`). row(y) counts rows of the whole picture.
    static Bitmap strip(std::size_t width, std::size_t height, PixelLayout layout,
                        std::shared_ptr<const ColorSpace> colorSpace, std::size_t firstRow,
                        std::size_t rowCount, std::shared_ptr<std::vector<std::uint8_t>> pixels,
                        std::size_t bytesPerRow);

    bool isNull() const { return _width == 0 || _height == 0; }
    std::size_t width() const { return _width; }
    std::size_t height() const { return _height; }
    const PixelLayout& layout() const { return _layout; }
    std::size_t bitsPerComponent() const { return _layout.bitsPerComponent; }
    std::size_t bitsPerPixel() const { return _layout.bytesPerPixel() * 8; }
    std::size_t bytesPerRow() const { return _bytesPerRow; }
    CGImageAlphaInfo alphaInfo() const { return _layout.alphaInfo; }
    std::uint32_t bitmapInfo() const;
    const ColorSpace& colorSpace() const { return *_colorSpace; }
    const std::uint8_t* data() const { return _pixels ? _pixels->data() : nullptr; }
    // Row y of the picture; of a strip, only its own rows may be asked for.
    const std::uint8_t* row(std::size_t y) const { return data() + (y - _firstRow) * _bytesPerRow; }
    // The rows held: all of them, except in a strip.
    std::size_t firstRow() const { return _firstRow; }
    std::size_t rowCount() const { return _rowCount; }
    std::shared_ptr<const ColorSpace> sharedColorSpace() const { return _colorSpace; }

    // Helpers for tests and encoders: one pixel as 16-bit samples scaled to 0..65535, in the
    // order R, G, B, A (grey repeated; A = 65535 when the layout has no alpha). Premultiplied
    // layouts are returned as stored.
    struct Pixel16 {
        std::uint16_t r, g, b, a;
    };
    Pixel16 pixelAt(std::size_t x, std::size_t y) const;

    // The bitmap info of a layout, as `bitmapInfo()` gives it.
    static std::uint32_t bitmapInfoForLayout(const PixelLayout& layout);

  private:
    friend class BitmapContext;
    std::size_t _width = 0;
    std::size_t _height = 0;
    PixelLayout _layout;
    std::size_t _bytesPerRow = 0;
    std::size_t _firstRow = 0;
    std::size_t _rowCount = 0;
    std::shared_ptr<const ColorSpace> _colorSpace = std::make_shared<ColorSpace>();
    std::shared_ptr<std::vector<std::uint8_t>> _pixels;
};

}  // namespace platform
