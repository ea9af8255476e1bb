// A drawing surface over one bitmap, with the platform's drawing model: fill, clear, transform,
// clip and draw an image into a rectangle, then snapshot. The photo pipeline and thumbnails
// draw through it.
//
// Coordinates are pixels with the origin at the bottom-left corner and y growing upwards;
// drawImage puts the image's top row at the rectangle's top (its largest y). Pixel (x, y) of
// the snapshot, counted from the top-left, covers user space [x, x+1) x [H-y-1, H-y) under the
// identity transform.
//
// Placement is exact: the image is resampled at the true, possibly fractional, position of the
// rectangle, and a pixel that the rectangle (after the clip) covers only in part receives the
// image scaled by the covered fraction of its area, as an antialiased edge. A transform that
// keeps axes parallel (translations, scales, quarter-turn rotations, flips) draws through zimg
// in one pass, with no scaled copy of the source. Any other rotation is drawn by bilinear
// inverse mapping with hard edges, and clips are taken as the bounding box of their rectangle.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "platform/Bitmap.h"
#include "platform/Error.h"
#include "platform/Geometry.h"

namespace platform {

namespace bitmap_pixels {
class ResizeGraphs;
}
class PixelBufferPool;

enum CGInterpolationQuality : std::int32_t {
    kCGInterpolationDefault = 0,  // medium
    kCGInterpolationNone = 1,     // nearest sample
    kCGInterpolationLow = 2,      // bilinear
    kCGInterpolationHigh = 3,     // Lanczos, 3 lobes
    kCGInterpolationMedium = 4,   // bicubic (Catmull-Rom)
};

// Colour components from 0 to 1, in the context's colour space; grey contexts take the
// Rec. 709 luma of red, green and blue.
struct RGBAColor {
    double red = 0, green = 0, blue = 0, alpha = 1;
    friend bool operator==(const RGBAColor&, const RGBAColor&) = default;
};

class BitmapContext {
  public:
    // CGBitmapContextCreate. Accepted: grey 8/16 bits with alpha part None; RGB 8/16 bits with
    // PremultipliedLast/First or NoneSkipLast/First; alpha only, 8/16 bits. Byte order bits
    // must be the default or the one `Bitmap::bitmapInfoForLayout` gives. Anything else (RGB
    // without a fourth sample, straight alpha, CMYK, other depths) is refused with an error
    // and null, as the platform refuses such layouts. Pixels start cleared to zero.
    static std::unique_ptr<BitmapContext> create(std::size_t width, std::size_t height,
                                                 std::size_t bitsPerComponent,
                                                 const ColorSpace& colorSpace,
                                                 std::uint32_t bitmapInfo,
                                                 ErrorRef* error = nullptr);

    // A context over rows [firstRow, firstRow + rowCount) of a width x height picture: the
    // drawing model is the whole picture's, and the pixels of its own rows come out exactly as
    // a context of the whole picture would draw them. Streamed drawing uses it, strip by strip.
    static std::unique_ptr<BitmapContext> createStrip(std::size_t width, std::size_t height,
                                                      std::size_t bitsPerComponent,
                                                      const ColorSpace& colorSpace,
                                                      std::uint32_t bitmapInfo,
                                                      std::size_t firstRow, std::size_t rowCount,
                                                      ErrorRef* error = nullptr);
    // Moves a context to other rows of its picture (clamped to it), all cleared as a new
    // context's are; the drawing state stays. An earlier snapshot keeps its own pixels.
    void moveToRows(std::size_t firstRow, std::size_t rowCount);
    // The rows held: [firstRow, firstRow + rowCount) of the picture's height().
    std::size_t firstRow() const { return _bitmap.firstRow(); }
    std::size_t rowCount() const { return _bitmap.rowCount(); }

    // The source rows [first, end) that drawImage(rect, image) reads to draw this context's
    // rows under the current state: {0, 0} when it would draw none of them, and all rows of
    // the image for a draw that doesn't run with the rows (a turn or an upside-down draw).
    // The image may then be a strip holding those rows only (Bitmap::strip).
    std::pair<std::size_t, std::size_t> sourceRowsForDraw(CGRect rect, const Bitmap& image) const;

    // The bands of output rows that every scaled draw of the process runs as, each on a thread
    // of its own: 0 (the default) for one per core on large draws, 1 for one pass over the
    // whole picture. The pixels drawn are the same for any number.
    static void setDrawingBands(std::size_t bands);

    std::size_t width() const { return _bitmap._width; }
    std::size_t height() const { return _bitmap._height; }
    std::size_t bitsPerComponent() const { return _bitmap.bitsPerComponent(); }
    std::uint32_t bitmapInfo() const { return _bitmap.bitmapInfo(); }
    CGImageAlphaInfo alphaInfo() const { return _bitmap.alphaInfo(); }
    const ColorSpace& colorSpace() const { return _bitmap.colorSpace(); }

    void saveGState();
    // Without a matching save this does nothing.
    void restoreGState();
    void setInterpolationQuality(CGInterpolationQuality quality) { _state.quality = quality; }
    CGInterpolationQuality interpolationQuality() const { return _state.quality; }
    void setFillColor(const RGBAColor& color) { _state.fill = color; }

    // The current transform maps user space to the bitmap's bottom-left space.
    void translateCTM(double tx, double ty);
    void scaleCTM(double sx, double sy);
    // Radians, counter-clockwise. Multiples of a quarter turn are taken exactly (within 1e-9),
    // so that they keep the fast, exact path.
    void rotateCTM(double angle);
    void concatCTM(const CGAffineTransform& transform);
    CGAffineTransform getCTM() const { return _state.ctm; }
    // Intersects the clip with the rectangle in user space.
    void clipToRect(CGRect rect);

    // Source-over fill of the rectangle with the fill colour, under transform and clip.
    void fillRect(CGRect rect);
    // Sets the covered pixels to zero in every sample (transparent, or black in an opaque
    // layout, whose skip sample is set to full).
    void clearRect(CGRect rect);
    // Source-over draw of `image` scaled into `rect`, with the interpolation quality of the
    // state; premultiplied alpha throughout, colour converted to the context's space. False,
    // with the reason in `error`, when the resampler refuses the draw or runs out of memory;
    // nothing to draw (a null image, a rectangle outside the clip) is no failure.
    bool drawImage(CGRect rect, const Bitmap& image, ErrorRef* error = nullptr);

    // CGBitmapContextCreateImage: an image of the current pixels. It shares the pixels until
    // the context draws again, so a context released after its snapshot costs no copy.
    Bitmap createImage();

    ~BitmapContext();

  private:
    struct State {
        CGAffineTransform ctm;
        CGRect clip;  // bottom-left device space, axis-aligned
        CGInterpolationQuality quality = kCGInterpolationDefault;
        RGBAColor fill{0, 0, 0, 1};
    };
    BitmapContext() = default;
    std::uint8_t* mutablePixels();
    std::size_t rowsEnd() const { return _bitmap.firstRow() + _bitmap.rowCount(); }
    void fillDeviceRect(const CGRect& userRect, const std::vector<std::uint16_t>& premultiplied,
                        bool replace);
    // Writes the waiting fill (see _pendingFill) into every held pixel but those of the
    // columns [x0, x1) in the rows [y0, y1), which the caller writes whole itself.
    void settleFill(std::size_t x0 = 0, std::size_t x1 = 0, std::size_t y0 = 0, std::size_t y1 = 0);

    Bitmap _bitmap;
    // One pixel's bytes that every held pixel is to get and none has got yet: a fill of all
    // the rows waits here, so that a draw over it writes each pixel once and the fill goes only
    // where the picture leaves pixels uncovered.
    std::optional<std::array<std::uint8_t, 8>> _pendingFill;
    std::shared_ptr<PixelBufferPool> _buffers;  // where moveToRows takes a strip's pixels
    State _state;
    std::vector<State> _saved;
    std::shared_ptr<bitmap_pixels::ResizeGraphs> _graphs;  // a strip context's, see drawImage
};

}  // namespace platform
