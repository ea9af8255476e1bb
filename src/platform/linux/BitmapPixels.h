// The pixel access shared by the bitmap context and its scaled draws: device boxes, the
// destination's samples, the source read as 16-bit straight RGBA, and one axis-aligned draw
// cut into bands of output rows. Internal to the Linux platform layer.
#pragma once

#include <lcms2.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "platform/Bitmap.h"
#include "platform/BitmapContext.h"

namespace platform::bitmap_pixels {

struct Box {
    double x0, y0, x1, y1;
    bool empty() const { return !(x1 > x0 && y1 > y0); }
    Box intersect(const Box& o) const {
        return {std::max(x0, o.x0), std::max(y0, o.y0), std::min(x1, o.x1), std::min(y1, o.y1)};
    }
};

// Covered fraction of the unit interval [p, p+1) by [lo, hi).
inline double coverage(double p, double lo, double hi) {
    return std::clamp(std::min(p + 1, hi) - std::max(p, lo), 0.0, 1.0);
}

// Samples of the destination pixel layout.
struct DestAccess {
    std::uint8_t* base;
    std::size_t stride;
    PixelLayout layout;
    int bpp, c0, a;
    bool deep;
    int skip;                  // index of the skip sample of an opaque layout, or -1
    std::size_t firstRow = 0;  // the picture's row that `base` holds (a strip's first)

    std::uint8_t* row(std::size_t y) const { return base + (y - firstRow) * stride; }

    std::uint32_t get(const std::uint8_t* px, int index) const {
        if (deep) {
            std::uint16_t v;
            std::memcpy(&v, px + index * 2, 2);
            return v;
        }
        return px[index] * 257u;
    }
    void put(std::uint8_t* px, int index, std::uint32_t v16) const {
        if (deep) {
            std::uint16_t v = static_cast<std::uint16_t>(v16);
            std::memcpy(px + index * 2, &v, 2);
        } else {
            px[index] = static_cast<std::uint8_t>((v16 * 255 + 32767) / 65535);
        }
    }
    // Source-over of one premultiplied 16-bit colour (r, g, b, alpha) into pixel px.
    void blend(std::uint8_t* px, std::uint32_t r, std::uint32_t g, std::uint32_t b,
               std::uint32_t alpha) const {
        std::uint32_t keep = 65535 - alpha;
        auto mix = [&](int index, std::uint32_t s) {
            std::uint32_t d = keep ? get(px, index) : 0;
            put(px, index, std::min<std::uint32_t>(65535, s + (d * keep + 32767) / 65535));
        };
        if (layout.colorComponents == 3) {
            mix(c0, r), mix(c0 + 1, g), mix(c0 + 2, b);
        } else if (layout.colorComponents == 1) {
            mix(c0, (r * 2126 + g * 7152 + b * 722 + 5000) / 10000);
        }
        if (a >= 0) {
            mix(a, alpha);
        } else if (skip >= 0) {
            put(px, skip, 65535);
        }
    }
    // Sets a pixel to zero in every sample but the skip sample, which reads full.
    void clear(std::uint8_t* px) const {
        std::memset(px, 0, static_cast<std::size_t>(bpp));
        if (skip >= 0) put(px, skip, 65535);
    }
};

// Source pixels read as straight-alpha 16-bit RGBA, optionally through an ICC transform.
struct SourceReader {
    const Bitmap* image;
    PixelLayout layout;
    int bpp, c0, a;
    bool deep;
    cmsHTRANSFORM transform = nullptr;

    void read(const std::uint8_t* px, std::uint16_t out[4]) const {
        auto sample = [&](int index) -> std::uint16_t {
            if (deep) {
                std::uint16_t v;
                std::memcpy(&v, px + index * 2, 2);
                return v;
            }
            return static_cast<std::uint16_t>(px[index] * 257);
        };
        std::uint32_t r = 0, g = 0, b = 0;
        if (layout.colorComponents == 3) {
            r = sample(c0), g = sample(c0 + 1), b = sample(c0 + 2);
        } else if (layout.colorComponents == 1) {
            r = g = b = sample(c0);
        }
        std::uint32_t alpha = a >= 0 ? sample(a) : 65535;
        if (layout.isPremultiplied() && alpha > 0 && alpha < 65535) {
            auto un = [&](std::uint32_t v) {
                return std::min<std::uint32_t>(65535, (v * 65535 + alpha / 2) / alpha);
            };
            r = un(r), g = un(g), b = un(b);
        }
        out[0] = static_cast<std::uint16_t>(r), out[1] = static_cast<std::uint16_t>(g);
        out[2] = static_cast<std::uint16_t>(b), out[3] = static_cast<std::uint16_t>(alpha);
    }
};

// The resampling graphs that a strip context's draws built, kept for its next strips: the
// strips of one picture mostly repeat a handful of geometries, and building a graph (its
// filter taps) costs more than running it over a strip's rows. Safe to share between bands.
class ResizeGraphs;
std::shared_ptr<ResizeGraphs> makeResizeGraphs();

// One axis-aligned draw: the oriented source O (the image flipped and/or transposed so that its
// axes run with the device's) placed at (ox, oy) with scales (kx, ky) in top-left device space.
// Read only while its bands run.
struct AlignedDraw {
    // How source pixels reach zimg: 8-bit samples as they are, 16-bit samples as they are,
    // or through the 16-bit reader (other depth or colour model, or a colour transform).
    enum class Input { Bytes, Words, Converted };

    const Bitmap* image;
    SourceReader reader;
    bool transpose, flipX, flipY;
    std::size_t oWidth, oHeight;
    double ox, oy, kx, ky;
    Box cover;  // top-left device space
    std::size_t X0, Y0, X1, Y1;
    int planes;  // colour planes through zimg: 1 or 3
    bool alpha;  // an alpha plane goes through zimg
    Input input;
    bool byteOutput;  // zimg writes 8-bit samples for an 8-bit destination
    DestAccess dest;
    CGInterpolationQuality quality;
    ResizeGraphs* graphs = nullptr;  // where graphs are kept between draws, if anywhere

    // Address of O's pixel (p, q) and the step to O's pixel (p + 1, q).
    const std::uint8_t* pixel(std::size_t p, std::size_t q, std::ptrdiff_t& step) const {
        std::size_t W = image->width(), H = image->height();
        std::size_t u, v;
        std::ptrdiff_t bpp = image->layout().bytesPerPixel();
        std::ptrdiff_t row = static_cast<std::ptrdiff_t>(image->bytesPerRow());
        if (!transpose) {
            u = flipX ? W - 1 - p : p;
            v = flipY ? H - 1 - q : q;
            step = flipX ? -bpp : bpp;
        } else {
            v = flipX ? H - 1 - p : p;
            u = flipY ? W - 1 - q : q;
            step = flipX ? -row : row;
        }
        return image->row(v) + u * bpp;
    }
};

// Copies one pixel's bytes over `count` pixels from `dst` on.
void fillPixels(std::uint8_t* dst, const std::uint8_t* pixel, int bpp, std::size_t count);

// Draws the rows [Y0, Y1) of `d` through zimg; large draws run as bands of rows at once, one
// per core (see BitmapContext::setDrawingBands).
bool drawAligned(const AlignedDraw& d, std::string& why);
void setDrawingBands(std::size_t bands);

}  // namespace platform::bitmap_pixels
