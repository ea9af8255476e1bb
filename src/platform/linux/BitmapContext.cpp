#include "platform/BitmapContext.h"

#include "platform/Log.h"
#include "platform/linux/PixelMemory.h"

#include <lcms2.h>
#include <zimg.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <system_error>
#include <thread>

namespace platform {
namespace {

constexpr double kEpsilon = 1e-9;

ErrorRef contextError(const std::string& text) {
    return Error::errorWithDomain(
        NSCocoaErrorDomain, NSFileWriteUnknownError,
        {{NSLocalizedDescriptionKey, text}, {NSDebugDescriptionErrorKey, text}});
}

CGAffineTransform concat(const CGAffineTransform& t, const CGAffineTransform& m) {
    // Apply t first, then m (CGAffineTransformConcat(t, m)).
    return {t.a * m.a + t.b * m.c, t.a * m.b + t.b * m.d,          t.c * m.a + t.d * m.c,
            t.c * m.b + t.d * m.d, t.tx * m.a + t.ty * m.c + m.tx, t.tx * m.b + t.ty * m.d + m.ty};
}

CGPoint apply(const CGAffineTransform& t, CGPoint p) {
    return {t.a * p.x + t.c * p.y + t.tx, t.b * p.x + t.d * p.y + t.ty};
}

struct Box {
    double x0, y0, x1, y1;
    bool empty() const { return !(x1 > x0 && y1 > y0); }
    Box intersect(const Box& o) const {
        return {std::max(x0, o.x0), std::max(y0, o.y0), std::min(x1, o.x1), std::min(y1, o.y1)};
    }
};

// The bounding box of a user rectangle under a transform, in bottom-left device space.
Box deviceBox(const CGAffineTransform& t, const CGRect& r) {
    CGPoint p[4] = {apply(t, {r.origin.x, r.origin.y}),
                    apply(t, {r.origin.x + r.size.width, r.origin.y}),
                    apply(t, {r.origin.x, r.origin.y + r.size.height}),
                    apply(t, {r.origin.x + r.size.width, r.origin.y + r.size.height})};
    Box b{p[0].x, p[0].y, p[0].x, p[0].y};
    for (const auto& q : p) {
        b.x0 = std::min(b.x0, q.x), b.x1 = std::max(b.x1, q.x);
        b.y0 = std::min(b.y0, q.y), b.y1 = std::max(b.y1, q.y);
    }
    return b;
}

CGRect standardized(CGRect r) {
    if (r.size.width < 0) r.origin.x += r.size.width, r.size.width = -r.size.width;
    if (r.size.height < 0) r.origin.y += r.size.height, r.size.height = -r.size.height;
    return r;
}

bool isAxisAligned(const CGAffineTransform& t) {
    double scale = std::max({std::fabs(t.a), std::fabs(t.b), std::fabs(t.c), std::fabs(t.d)});
    return (std::fabs(t.b) <= kEpsilon * scale && std::fabs(t.c) <= kEpsilon * scale) ||
           (std::fabs(t.a) <= kEpsilon * scale && std::fabs(t.d) <= kEpsilon * scale);
}

// Covered fraction of the unit interval [p, p+1) by [lo, hi).
double coverage(double p, double lo, double hi) {
    return std::clamp(std::min(p + 1, hi) - std::max(p, lo), 0.0, 1.0);
}

// Samples of the destination pixel layout.
struct DestAccess {
    std::uint8_t* base;
    std::size_t stride;
    PixelLayout layout;
    int bpp, c0, a;
    bool deep;
    int skip;  // index of the skip sample of an opaque layout, or -1

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

DestAccess destAccess(std::uint8_t* base, const Bitmap& b) {
    const PixelLayout& l = b.layout();
    int skip =
        !l.hasAlpha() && l.hasExtraSample() ? (l.colorOffset() == 1 ? 0 : l.colorComponents) : -1;
    return {base,
            b.bytesPerRow(),
            l,
            l.bytesPerPixel(),
            l.colorOffset(),
            l.alphaOffset(),
            l.bitsPerComponent == 16,
            skip};
}

// Copies one pixel's bytes over `count` pixels from `dst` on.
void fillPixels(std::uint8_t* dst, const std::uint8_t* pixel, int bpp, std::size_t count) {
    if (bpp == 4) {
        std::uint32_t v;
        std::memcpy(&v, pixel, 4);
        for (std::size_t i = 0; i < count; ++i) std::memcpy(dst + i * 4, &v, 4);
    } else if (bpp == 8) {
        std::uint64_t v;
        std::memcpy(&v, pixel, 8);
        for (std::size_t i = 0; i < count; ++i) std::memcpy(dst + i * 8, &v, 8);
    } else {
        for (std::size_t i = 0; i < count; ++i)
            std::memcpy(dst + i * static_cast<std::size_t>(bpp), pixel,
                        static_cast<std::size_t>(bpp));
    }
}

// Splits `count` four-byte pixels, colour at bytes c0..c0+2 of each, into three planes.
void splitPixels(const std::uint8_t* px, int c0, std::uint8_t* r, std::uint8_t* g, std::uint8_t* b,
                 std::size_t count) {
    std::size_t i = 0;
#if defined(__SSE2__)
    const __m128i low = _mm_set1_epi32(0xFF);
    const __m128i shifts[3] = {_mm_cvtsi32_si128(8 * c0), _mm_cvtsi32_si128(8 * c0 + 8),
                               _mm_cvtsi32_si128(8 * c0 + 16)};
    std::uint8_t* planes[3] = {r, g, b};
    for (; i + 16 <= count; i += 16) {
        __m128i v[4];
        for (int k = 0; k < 4; ++k)
            v[k] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(px + 4 * i + 16 * k));
        for (int c = 0; c < 3; ++c) {
            __m128i w[4];
            for (int k = 0; k < 4; ++k) w[k] = _mm_and_si128(_mm_srl_epi32(v[k], shifts[c]), low);
            __m128i bytes =
                _mm_packus_epi16(_mm_packs_epi32(w[0], w[1]), _mm_packs_epi32(w[2], w[3]));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(planes[c] + i), bytes);
        }
    }
#endif
    for (; i < count; ++i) {
        const std::uint8_t* p = px + 4 * i + c0;
        r[i] = p[0], g[i] = p[1], b[i] = p[2];
    }
}

// Joins three planes into four-byte pixels: colour at bytes c0..c0+2 (c0 is 0 or 1), 255 in
// the byte left over.
void joinPixels(const std::uint8_t* r, const std::uint8_t* g, const std::uint8_t* b, int c0,
                std::uint8_t* px, std::size_t count) {
    std::size_t i = 0;
#if defined(__SSE2__)
    const __m128i full = _mm_set1_epi8(static_cast<char>(0xFF));
    for (; i + 16 <= count; i += 16) {
        __m128i R = _mm_loadu_si128(reinterpret_cast<const __m128i*>(r + i));
        __m128i G = _mm_loadu_si128(reinterpret_cast<const __m128i*>(g + i));
        __m128i B = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + i));
        __m128i s[4] = {R, G, B, full};
        if (c0 == 1) s[0] = full, s[1] = R, s[2] = G, s[3] = B;
        __m128i lo01 = _mm_unpacklo_epi8(s[0], s[1]), hi01 = _mm_unpackhi_epi8(s[0], s[1]);
        __m128i lo23 = _mm_unpacklo_epi8(s[2], s[3]), hi23 = _mm_unpackhi_epi8(s[2], s[3]);
        auto* out = reinterpret_cast<__m128i*>(px + 4 * i);
        _mm_storeu_si128(out, _mm_unpacklo_epi16(lo01, lo23));
        _mm_storeu_si128(out + 1, _mm_unpackhi_epi16(lo01, lo23));
        _mm_storeu_si128(out + 2, _mm_unpacklo_epi16(hi01, hi23));
        _mm_storeu_si128(out + 3, _mm_unpackhi_epi16(hi01, hi23));
    }
#endif
    for (; i < count; ++i) {
        std::uint8_t* p = px + 4 * i;
        p[c0 == 0 ? 3 : 0] = 255;
        p[c0] = r[i], p[c0 + 1] = g[i], p[c0 + 2] = b[i];
    }
}

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

struct TransformDeleter {
    void operator()(void* t) const {
        if (t) cmsDeleteTransform(t);
    }
};

// A colour transform between two RGB spaces whose profiles differ; none otherwise.
std::unique_ptr<void, TransformDeleter> makeTransform(const ColorSpace& from,
                                                      const ColorSpace& to) {
    if (from.model() != ColorSpace::Model::RGB || to.model() != ColorSpace::Model::RGB ||
        from.iccProfile() == to.iccProfile())
        return nullptr;
    auto open = [](const ColorSpace& s) -> cmsHPROFILE {
        if (s.isDevice()) return cmsCreate_sRGBProfile();
        return cmsOpenProfileFromMem(s.iccProfile().data(),
                                     static_cast<cmsUInt32Number>(s.iccProfile().size()));
    };
    cmsHPROFILE in = open(from), out = open(to);
    cmsHTRANSFORM t = nullptr;
    if (in && out && cmsGetColorSpace(in) == cmsSigRgbData &&
        cmsGetColorSpace(out) == cmsSigRgbData)
        t = cmsCreateTransform(in, TYPE_RGBA_16, out, TYPE_RGBA_16, INTENT_PERCEPTUAL,
                               cmsFLAGS_COPY_ALPHA);
    if (in) cmsCloseProfile(in);
    if (out) cmsCloseProfile(out);
    return std::unique_ptr<void, TransformDeleter>(t);
}

struct AlignedFree {
    void operator()(void* p) const { std::free(p); }
};
using AlignedBuffer = std::unique_ptr<std::uint8_t, AlignedFree>;

AlignedBuffer alignedAlloc(std::size_t size) {
    size = (size + 63) / 64 * 64;
    return AlignedBuffer(static_cast<std::uint8_t*>(std::aligned_alloc(64, size ? size : 64)));
}

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

inline std::uint16_t load16(const std::uint8_t* px) {
    std::uint16_t v;
    std::memcpy(&v, px, 2);
    return v;
}

// The output rows [Y0, Y1) of a draw through a zimg graph of their own, so that bands can run
// on separate threads. Rows reach zimg and leave it through the callbacks, a few at a time:
// no planar copy of the source or of the output is ever whole in memory.
struct Band {
    Band(const AlignedDraw& draw, std::size_t top, std::size_t bottom)
        : d(&draw), Y0(top), Y1(bottom) {}

    const AlignedDraw* d;
    std::size_t Y0, Y1;
    // The part of O that zimg sees as its whole source (see `sourceWindow`).
    struct {
        std::size_t left = 0, top = 0, width = 0, height = 0;
    } window;
    zimg_image_buffer_const in{};
    zimg_image_buffer out{};
    std::vector<std::uint16_t> scratch;

    void* inRow(int k, unsigned i) const {
        return static_cast<std::uint8_t*>(const_cast<void*>(in.plane[k].data)) +
               static_cast<std::ptrdiff_t>(i & in.plane[k].mask) * in.plane[k].stride;
    }
    const void* outRow(int k, unsigned i) const {
        return static_cast<const std::uint8_t*>(out.plane[k].data) +
               static_cast<std::ptrdiff_t>(i & out.plane[k].mask) * out.plane[k].stride;
    }

    void unpackBytes(const std::uint8_t* px, std::ptrdiff_t step, unsigned i, unsigned left,
                     unsigned right) {
        const PixelLayout& l = d->image->layout();
        const int c0 = l.colorOffset(), a = l.alphaOffset(), planes = d->planes;
        const bool alpha = d->alpha;
        std::uint8_t* dst[4] = {static_cast<std::uint8_t*>(inRow(0, i)),
                                planes == 3 ? static_cast<std::uint8_t*>(inRow(1, i)) : nullptr,
                                planes == 3 ? static_cast<std::uint8_t*>(inRow(2, i)) : nullptr,
                                alpha ? static_cast<std::uint8_t*>(inRow(3, i)) : nullptr};
        if (!alpha && planes == 3 && step == 4 && c0 <= 1) {
            // An upright opaque RGB source: the common photograph.
            splitPixels(px, c0, dst[0] + left, dst[1] + left, dst[2] + left, right - left);
            return;
        }
        const bool straight = alpha && !l.isPremultiplied();
        for (unsigned p = left; p < right; ++p, px += step) {
            unsigned av = alpha ? px[a] : 255;
            for (int k = 0; k < planes; ++k) {
                unsigned c = px[c0 + k];
                dst[k][p] = static_cast<std::uint8_t>(straight ? (c * av + 127) / 255 : c);
            }
            if (alpha) dst[3][p] = static_cast<std::uint8_t>(av);
        }
    }

    void unpackWords(const std::uint8_t* px, std::ptrdiff_t step, unsigned i, unsigned left,
                     unsigned right) {
        const PixelLayout& l = d->image->layout();
        const int c0 = 2 * l.colorOffset(), a = 2 * l.alphaOffset(), planes = d->planes;
        const bool alpha = d->alpha;
        const bool straight = alpha && !l.isPremultiplied();
        std::uint16_t* dst[4];
        for (int k = 0; k < 4; ++k)
            dst[k] = (k < planes || (k == 3 && alpha)) ? static_cast<std::uint16_t*>(inRow(k, i))
                                                       : nullptr;
        for (unsigned p = left; p < right; ++p, px += step) {
            std::uint32_t av = alpha ? load16(px + a) : 65535;
            for (int k = 0; k < planes; ++k) {
                std::uint32_t c = load16(px + c0 + 2 * k);
                dst[k][p] = static_cast<std::uint16_t>(straight ? (c * av + 32767) / 65535 : c);
            }
            if (alpha) dst[3][p] = static_cast<std::uint16_t>(av);
        }
    }

    void unpackConverted(const std::uint8_t* px, std::ptrdiff_t step, unsigned i, unsigned left,
                         unsigned right) {
        const SourceReader& reader = d->reader;
        std::size_t count = right - left;
        scratch.resize(count * 4);
        for (std::size_t n = 0; n < count; ++n, px += step) reader.read(px, &scratch[n * 4]);
        if (reader.transform)
            cmsDoTransform(reader.transform, scratch.data(), scratch.data(),
                           static_cast<cmsUInt32Number>(count));
        const int planes = d->planes;
        const bool alpha = d->alpha;
        std::uint16_t* dst[4];
        for (int k = 0; k < 4; ++k)
            dst[k] = (k < planes || (k == 3 && alpha)) ? static_cast<std::uint16_t*>(inRow(k, i))
                                                       : nullptr;
        for (std::size_t n = 0; n < count; ++n) {
            const std::uint16_t* s = &scratch[n * 4];
            std::uint32_t av = alpha ? s[3] : 65535;
            auto pm = [&](std::uint32_t c) {
                return static_cast<std::uint16_t>((c * av + 32767) / 65535);
            };
            std::size_t p = left + n;
            if (planes == 3) {
                dst[0][p] = pm(s[0]), dst[1][p] = pm(s[1]), dst[2][p] = pm(s[2]);
            } else {
                std::uint32_t luma = (s[0] * 2126u + s[1] * 7152u + s[2] * 722u + 5000) / 10000;
                dst[0][p] = pm(luma);
            }
            if (alpha) dst[3][p] = static_cast<std::uint16_t>(av);
        }
    }

    int unpack(unsigned i, unsigned left, unsigned right) {
        std::ptrdiff_t step = 0;
        const std::uint8_t* px = d->pixel(left + window.left, i + window.top, step);
        switch (d->input) {
            case AlignedDraw::Input::Bytes:
                unpackBytes(px, step, i, left, right);
                break;
            case AlignedDraw::Input::Words:
                unpackWords(px, step, i, left, right);
                break;
            case AlignedDraw::Input::Converted:
                unpackConverted(px, step, i, left, right);
                break;
        }
        return 0;
    }

    // Interior pixels of a fully covered row of an opaque source replace the destination.
    template <class Sample>
    void replaceRgb(std::uint8_t* row, const Sample* r, const Sample* g, const Sample* b,
                    unsigned left, unsigned right) const {
        const DestAccess& dest = d->dest;
        const int extra = dest.a >= 0 ? dest.a : dest.skip;
        if constexpr (sizeof(Sample) == 1) {
            if (dest.bpp == 4 && extra == (dest.c0 == 0 ? 3 : 0)) {
                joinPixels(r + left, g + left, b + left, dest.c0, row + (d->X0 + left) * 4,
                           right - left);
                return;
            }
        }
        for (unsigned p = left; p < right; ++p) {
            std::uint8_t* px = row + (d->X0 + p) * dest.bpp;
            if constexpr (sizeof(Sample) == 1) {
                px[dest.c0] = r[p], px[dest.c0 + 1] = g[p], px[dest.c0 + 2] = b[p];
                if (extra >= 0) px[extra] = 255;
            } else {
                dest.put(px, dest.c0, r[p]);
                dest.put(px, dest.c0 + 1, g[p]);
                dest.put(px, dest.c0 + 2, b[p]);
                if (extra >= 0) dest.put(px, extra, 65535);
            }
        }
    }

    template <class Sample>
    void packRow(unsigned i, unsigned left, unsigned right) {
        const AlignedDraw& draw = *d;
        const DestAccess& dest = draw.dest;
        std::size_t y = Y0 + i;
        double wy = coverage(static_cast<double>(y), draw.cover.y0, draw.cover.y1);
        std::uint8_t* row = dest.base + y * dest.stride;
        const auto* r = static_cast<const Sample*>(outRow(0, i));
        const auto* g = draw.planes == 3 ? static_cast<const Sample*>(outRow(1, i)) : r;
        const auto* b = draw.planes == 3 ? static_cast<const Sample*>(outRow(2, i)) : r;
        const auto* a = draw.alpha ? static_cast<const Sample*>(outRow(3, i)) : nullptr;
        constexpr std::uint32_t widen = sizeof(Sample) == 1 ? 257 : 1;
        const unsigned last = static_cast<unsigned>(draw.X1 - draw.X0 - 1);
        if (wy >= 1 && !a && dest.layout.colorComponents == 3) {
            // The first and last columns may be covered in part; the others are whole.
            unsigned lo = std::max(left, 1u), hi = std::min(right, last);
            if (lo < hi) {
                replaceRgb(row, r, g, b, lo, hi);
                if (left < lo) blendRun(row, wy, r, g, b, a, left, lo, widen);
                if (hi < right) blendRun(row, wy, r, g, b, a, hi, right, widen);
                return;
            }
        }
        blendRun(row, wy, r, g, b, a, left, right, widen);
    }

    // Source-over of output pixels [left, right) of one row, each scaled by its coverage.
    template <class Sample>
    void blendRun(std::uint8_t* row, double wy, const Sample* r, const Sample* g, const Sample* b,
                  const Sample* a, unsigned left, unsigned right, std::uint32_t widen) const {
        const AlignedDraw& draw = *d;
        const DestAccess& dest = draw.dest;
        for (unsigned p = left; p < right; ++p) {
            std::size_t x = draw.X0 + p;
            bool edge = x == draw.X0 || x + 1 == draw.X1;
            double w =
                wy * (edge ? coverage(static_cast<double>(x), draw.cover.x0, draw.cover.x1) : 1.0);
            if (w <= 0) continue;
            std::uint32_t sa = a ? a[p] * widen : 65535;
            std::uint32_t sr = std::min<std::uint32_t>(r[p] * widen, sa);
            std::uint32_t sg = std::min<std::uint32_t>(g[p] * widen, sa);
            std::uint32_t sb = std::min<std::uint32_t>(b[p] * widen, sa);
            if (w < 1) {
                auto k = [&](std::uint32_t v) {
                    return static_cast<std::uint32_t>(std::lround(v * w));
                };
                sr = k(sr), sg = k(sg), sb = k(sb), sa = k(sa);
            }
            dest.blend(row + x * dest.bpp, sr, sg, sb, sa);
        }
    }

    int pack(unsigned i, unsigned left, unsigned right) {
        if (d->byteOutput)
            packRow<std::uint8_t>(i, left, right);
        else
            packRow<std::uint16_t>(i, left, right);
        return 0;
    }

    bool run(std::string& why) noexcept;

    // zimg buffers its input from the first row of its source, so a band whose rows begin
    // halfway down would hold half the picture. Its source is cut to the rows and columns
    // that its filter taps reach, with a margin: taps still read real neighbours everywhere
    // but at the picture's own edges, and the result is that of the whole source.
    void sourceWindow() {
        const AlignedDraw& draw = *d;
        double reach = draw.quality == kCGInterpolationNone   ? 1
                       : draw.quality == kCGInterpolationLow  ? 1
                       : draw.quality == kCGInterpolationHigh ? 3
                                                              : 2;
        auto cut = [&](double first, double last, double k, std::size_t size, std::size_t& from,
                       std::size_t& count) {
            double margin = std::ceil(reach * std::max(1.0, 1.0 / k)) + 2;
            double lo = std::clamp(std::floor(first - margin), 0.0, static_cast<double>(size));
            double hi = std::clamp(std::ceil(last + margin), lo, static_cast<double>(size));
            from = static_cast<std::size_t>(lo);
            count = std::max<std::size_t>(1, static_cast<std::size_t>(hi - lo));
            if (from + count > size) from = size - count;
        };
        cut((static_cast<double>(draw.X0) - draw.ox) / draw.kx,
            (static_cast<double>(draw.X1) - draw.ox) / draw.kx, draw.kx, draw.oWidth, window.left,
            window.width);
        cut((static_cast<double>(Y0) - draw.oy) / draw.ky,
            (static_cast<double>(Y1) - draw.oy) / draw.ky, draw.ky, draw.oHeight, window.top,
            window.height);
    }
};

zimg_resample_filter_e filterFor(CGInterpolationQuality quality, double& a, double& b) {
    a = b = NAN;
    switch (quality) {
        case kCGInterpolationNone:
            return ZIMG_RESIZE_POINT;
        case kCGInterpolationLow:
            return ZIMG_RESIZE_BILINEAR;
        case kCGInterpolationHigh:
            a = 3;
            return ZIMG_RESIZE_LANCZOS;
        default:
            a = 0, b = 0.5;  // Catmull-Rom
            return ZIMG_RESIZE_BICUBIC;
    }
}

bool Band::run(std::string& why) noexcept try {
    const AlignedDraw& draw = *d;
    const bool byteInput = draw.input == AlignedDraw::Input::Bytes;
    zimg_image_format src, dst;
    zimg_image_format_default(&src, ZIMG_API_VERSION);
    zimg_image_format_default(&dst, ZIMG_API_VERSION);
    sourceWindow();
    src.width = static_cast<unsigned>(window.width);
    src.height = static_cast<unsigned>(window.height);
    src.pixel_type = byteInput ? ZIMG_PIXEL_BYTE : ZIMG_PIXEL_WORD;
    src.depth = byteInput ? 8 : 16;
    dst.width = static_cast<unsigned>(draw.X1 - draw.X0);
    dst.height = static_cast<unsigned>(Y1 - Y0);
    dst.pixel_type = draw.byteOutput ? ZIMG_PIXEL_BYTE : ZIMG_PIXEL_WORD;
    dst.depth = draw.byteOutput ? 8 : 16;
    for (zimg_image_format* f : {&src, &dst}) {
        f->color_family = draw.planes == 3 ? ZIMG_COLOR_RGB : ZIMG_COLOR_GREY;
        f->matrix_coefficients = draw.planes == 3 ? ZIMG_MATRIX_RGB : ZIMG_MATRIX_UNSPECIFIED;
        f->pixel_range = ZIMG_RANGE_FULL;
        f->alpha = draw.alpha ? ZIMG_ALPHA_PREMULTIPLIED : ZIMG_ALPHA_NONE;
    }
    src.active_region.left =
        (static_cast<double>(draw.X0) - draw.ox) / draw.kx - static_cast<double>(window.left);
    src.active_region.top =
        (static_cast<double>(Y0) - draw.oy) / draw.ky - static_cast<double>(window.top);
    src.active_region.width = static_cast<double>(draw.X1 - draw.X0) / draw.kx;
    src.active_region.height = static_cast<double>(Y1 - Y0) / draw.ky;
    zimg_graph_builder_params params;
    zimg_graph_builder_params_default(&params, ZIMG_API_VERSION);
    params.resample_filter = filterFor(draw.quality, params.filter_param_a, params.filter_param_b);
    params.dither_type = ZIMG_DITHER_NONE;
    std::unique_ptr<zimg_filter_graph, void (*)(zimg_filter_graph*)> graph(
        zimg_filter_graph_build(&src, &dst, &params), zimg_filter_graph_free);
    char message[256] = {0};
    if (!graph) {
        zimg_get_last_error(message, sizeof message);
        why = message;
        return false;
    }
    std::size_t tmpSize = 0;
    unsigned inRows = 0, outRows = 0;
    zimg_filter_graph_get_tmp_size(graph.get(), &tmpSize);
    zimg_filter_graph_get_input_buffering(graph.get(), &inRows);
    zimg_filter_graph_get_output_buffering(graph.get(), &outRows);
    unsigned inMask = zimg_select_buffer_mask(inRows);
    unsigned outMask = zimg_select_buffer_mask(outRows);
    std::size_t inLines = inMask == ZIMG_BUFFER_MAX ? window.height : inMask + 1;
    std::size_t outLines = outMask == ZIMG_BUFFER_MAX ? (Y1 - Y0) : outMask + 1;
    std::size_t inStride = (window.width * (byteInput ? 1 : 2) + 63) / 64 * 64;
    std::size_t outStride = ((draw.X1 - draw.X0) * (draw.byteOutput ? 1 : 2) + 63) / 64 * 64;
    AlignedBuffer tmp = alignedAlloc(tmpSize);
    AlignedBuffer inBuffer = alignedAlloc(inStride * inLines * 4);
    AlignedBuffer outBuffer = alignedAlloc(outStride * outLines * 4);
    if (!tmp || !inBuffer || !outBuffer) return why = "out of memory", false;
    in.version = ZIMG_API_VERSION;
    out.version = ZIMG_API_VERSION;
    for (int k = 0; k < 4; ++k) {
        in.plane[k].data = inBuffer.get() + k * inStride * inLines;
        in.plane[k].stride = static_cast<std::ptrdiff_t>(inStride);
        in.plane[k].mask = inMask;
        out.plane[k].data = outBuffer.get() + k * outStride * outLines;
        out.plane[k].stride = static_cast<std::ptrdiff_t>(outStride);
        out.plane[k].mask = outMask;
    }
    auto unpack = [](void* user, unsigned i, unsigned left, unsigned right) {
        return static_cast<Band*>(user)->unpack(i, left, right);
    };
    auto pack = [](void* user, unsigned i, unsigned left, unsigned right) {
        return static_cast<Band*>(user)->pack(i, left, right);
    };
    if (zimg_filter_graph_process(graph.get(), &in, &out, tmp.get(), unpack, this, pack, this) !=
        ZIMG_ERROR_SUCCESS) {
        zimg_get_last_error(message, sizeof message);
        why = message;
        return false;
    }
    return true;
} catch (const std::exception& e) {
    why = e.what();
    return false;
}

// Large draws are cut into two bands of output rows drawn at once on two threads; their
// filters sample the source at the same positions as one graph over all rows would.
bool drawAligned(const AlignedDraw& d, std::string& why) {
    constexpr std::size_t kMinimumSplitPixels = 1u << 18;
    std::size_t rows = d.Y1 - d.Y0, columns = d.X1 - d.X0;
    bool split = rows >= 64 && rows * columns >= kMinimumSplitPixels &&
                 std::thread::hardware_concurrency() >= 2;
    if (!split) return Band(d, d.Y0, d.Y1).run(why);
    std::size_t middle = d.Y0 + rows / 2;
    Band top(d, d.Y0, middle), bottom(d, middle, d.Y1);
    std::string bottomWhy;
    bool bottomDone = false;
    std::thread worker;
    try {
        worker = std::thread([&] { bottomDone = bottom.run(bottomWhy); });
    } catch (const std::system_error&) {
        bottomDone = bottom.run(bottomWhy);
    }
    bool topDone = top.run(why);
    if (worker.joinable()) worker.join();
    if (topDone && !bottomDone) why = bottomWhy;
    return topDone && bottomDone;
}

}  // namespace

std::unique_ptr<BitmapContext> BitmapContext::create(std::size_t width, std::size_t height,
                                                     std::size_t bitsPerComponent,
                                                     const ColorSpace& colorSpace,
                                                     std::uint32_t bitmapInfo, ErrorRef* error) {
    auto refuse = [&](const std::string& why) -> std::unique_ptr<BitmapContext> {
        if (error) *error = contextError("Bitmap context refused: " + why);
        return nullptr;
    };
    if (width == 0 || height == 0) return refuse("a side is 0");
    if (width > 65535 * 4 || height > 65535 * 4 || width * height > (1ull << 31))
        return refuse(std::to_string(width) + " x " + std::to_string(height) + " is too large");
    if (bitsPerComponent != 8 && bitsPerComponent != 16)
        return refuse(std::to_string(bitsPerComponent) + " bits per component");
    auto alpha = static_cast<CGImageAlphaInfo>(bitmapInfo & kCGBitmapAlphaInfoMask);
    PixelLayout layout{static_cast<int>(bitsPerComponent), 0, alpha};
    switch (colorSpace.model()) {
        case ColorSpace::Model::Gray:
            layout.colorComponents = alpha == kCGImageAlphaOnly ? 0 : 1;
            if (alpha != kCGImageAlphaNone && alpha != kCGImageAlphaOnly)
                return refuse("grey with alpha part " + std::to_string(alpha));
            break;
        case ColorSpace::Model::RGB:
            layout.colorComponents = alpha == kCGImageAlphaOnly ? 0 : 3;
            if (alpha == kCGImageAlphaNone || alpha == kCGImageAlphaLast ||
                alpha == kCGImageAlphaFirst || alpha > kCGImageAlphaOnly)
                return refuse("RGB with alpha part " + std::to_string(alpha));
            break;
        case ColorSpace::Model::CMYK:
            return refuse("a CMYK colour space");
    }
    std::uint32_t order = bitmapInfo & kCGBitmapByteOrderMask;
    if (order != kCGBitmapByteOrderDefault &&
        order != (Bitmap::bitmapInfoForLayout(layout) & kCGBitmapByteOrderMask))
        return refuse("byte order " + std::to_string(order));
    std::unique_ptr<BitmapContext> context(new BitmapContext());
    context->_bitmap = Bitmap(width, height, layout, colorSpace,
                              pixelMemory(width * height * layout.bytesPerPixel()));
    context->_state.clip = {{0, 0}, {static_cast<double>(width), static_cast<double>(height)}};
    if (!layout.hasAlpha() && layout.hasExtraSample()) {
        // Skip samples read as full, so that an untouched opaque context is opaque black.
        DestAccess dest = destAccess(context->mutablePixels(), context->_bitmap);
        std::uint8_t black[8] = {};
        dest.clear(black);
        for (std::size_t y = 0; y < height; ++y)
            fillPixels(dest.base + y * dest.stride, black, dest.bpp, width);
    }
    return context;
}

BitmapContext::~BitmapContext() = default;

std::uint8_t* BitmapContext::mutablePixels() {
    auto& pixels = _bitmap._pixels;
    if (pixels.use_count() > 1) pixels = std::make_shared<std::vector<std::uint8_t>>(*pixels);
    return pixels->data();
}

void BitmapContext::saveGState() {
    _saved.push_back(_state);
}

void BitmapContext::restoreGState() {
    if (_saved.empty()) return;
    _state = _saved.back();
    _saved.pop_back();
}

void BitmapContext::translateCTM(double tx, double ty) {
    concatCTM({1, 0, 0, 1, tx, ty});
}

void BitmapContext::scaleCTM(double sx, double sy) {
    concatCTM({sx, 0, 0, sy, 0, 0});
}

void BitmapContext::rotateCTM(double angle) {
    double quarter = angle / (M_PI / 2);
    double turns = std::round(quarter);
    double c = std::cos(angle), s = std::sin(angle);
    if (std::fabs(quarter - turns) < kEpsilon) {
        static const double cosines[4] = {1, 0, -1, 0}, sines[4] = {0, 1, 0, -1};
        int k = static_cast<int>(((static_cast<long long>(turns) % 4) + 4) % 4);
        c = cosines[k], s = sines[k];
    }
    concatCTM({c, s, -s, c, 0, 0});
}

void BitmapContext::concatCTM(const CGAffineTransform& transform) {
    _state.ctm = concat(transform, _state.ctm);
}

void BitmapContext::clipToRect(CGRect rect) {
    Box b = deviceBox(_state.ctm, standardized(rect));
    Box c{_state.clip.origin.x, _state.clip.origin.y, _state.clip.origin.x + _state.clip.size.width,
          _state.clip.origin.y + _state.clip.size.height};
    Box r = c.intersect(b);
    if (r.empty()) r = {0, 0, 0, 0};
    _state.clip = {{r.x0, r.y0}, {r.x1 - r.x0, r.y1 - r.y0}};
}

void BitmapContext::fillDeviceRect(const CGRect& userRect,
                                   const std::vector<std::uint16_t>& premultiplied, bool replace) {
    CGRect rect = standardized(userRect);
    double H = static_cast<double>(height());
    Box clip{_state.clip.origin.x, _state.clip.origin.y,
             _state.clip.origin.x + _state.clip.size.width,
             _state.clip.origin.y + _state.clip.size.height};
    Box area = deviceBox(_state.ctm, rect)
                   .intersect(clip)
                   .intersect({0, 0, static_cast<double>(width()), H});
    if (area.empty()) return;
    bool aligned = isAxisAligned(_state.ctm);
    // Top-left device space.
    Box cover{area.x0, H - area.y1, area.x1, H - area.y0};
    std::size_t X0 = static_cast<std::size_t>(std::floor(cover.x0));
    std::size_t X1 = std::min(width(), static_cast<std::size_t>(std::ceil(cover.x1)));
    std::size_t Y0 = static_cast<std::size_t>(std::floor(cover.y0));
    std::size_t Y1 = std::min(height(), static_cast<std::size_t>(std::ceil(cover.y1)));
    CGAffineTransform inverse{};
    if (!aligned) {
        const auto& t = _state.ctm;
        double det = t.a * t.d - t.b * t.c;
        if (std::fabs(det) < 1e-12) return;
        inverse = {t.d / det,
                   -t.b / det,
                   -t.c / det,
                   t.a / det,
                   (t.c * t.ty - t.d * t.tx) / det,
                   (t.b * t.tx - t.a * t.ty) / det};
    }
    DestAccess dest = destAccess(mutablePixels(), _bitmap);
    // A wholly covered pixel gets the same bytes whatever it held, unless the colour is
    // translucent: those bytes are worked out once and copied over the rows' interiors.
    std::uint8_t solid[8] = {};
    bool solidKnown = aligned && (replace || premultiplied[3] == 65535);
    if (replace)
        dest.clear(solid);
    else if (solidKnown)
        dest.blend(solid, premultiplied[0], premultiplied[1], premultiplied[2], 65535);
    const std::size_t inner0 = std::max(X0, static_cast<std::size_t>(std::ceil(cover.x0)));
    const std::size_t inner1 =
        std::max(inner0, std::min(X1, static_cast<std::size_t>(std::floor(cover.x1))));
    for (std::size_t y = Y0; y < Y1; ++y) {
        std::uint8_t* row = dest.base + y * dest.stride;
        double wy = coverage(static_cast<double>(y), cover.y0, cover.y1);
        bool solidRow = solidKnown && wy >= 1;
        if (solidRow) fillPixels(row + inner0 * dest.bpp, solid, dest.bpp, inner1 - inner0);
        for (std::size_t x = X0; x < X1; ++x) {
            if (solidRow && x == inner0) x = inner1;
            if (x >= X1) break;
            double w = wy * coverage(static_cast<double>(x), cover.x0, cover.x1);
            if (!aligned) {
                CGPoint u = apply(inverse, {x + 0.5, H - (y + 0.5)});
                bool inside = u.x >= rect.origin.x && u.x < rect.origin.x + rect.size.width &&
                              u.y >= rect.origin.y && u.y < rect.origin.y + rect.size.height;
                w = inside ? 1 : 0;
            }
            if (w <= 0) continue;
            std::uint8_t* px = row + x * dest.bpp;
            if (replace && w >= 1) {
                dest.clear(px);
                continue;
            }
            if (replace) {
                // A partly covered pixel keeps the uncovered share of what it held.
                auto scale = [&](int index) {
                    dest.put(
                        px, index,
                        static_cast<std::uint32_t>(std::lround(dest.get(px, index) * (1 - w))));
                };
                if (_bitmap.layout().hasAlpha())
                    for (int k = 0; k < _bitmap.layout().samplesPerPixel(); ++k) scale(k);
                continue;
            }
            auto k = [&](std::uint16_t v) {
                return static_cast<std::uint32_t>(std::lround(v * w));
            };
            dest.blend(px, k(premultiplied[0]), k(premultiplied[1]), k(premultiplied[2]),
                       k(premultiplied[3]));
        }
    }
}

void BitmapContext::fillRect(CGRect rect) {
    auto q = [](double v) {
        return static_cast<std::uint16_t>(std::lround(std::clamp(v, 0.0, 1.0) * 65535));
    };
    double alpha = std::clamp(_state.fill.alpha, 0.0, 1.0);
    std::vector<std::uint16_t> color = {q(_state.fill.red * alpha), q(_state.fill.green * alpha),
                                        q(_state.fill.blue * alpha), q(alpha)};
    fillDeviceRect(rect, color, false);
}

void BitmapContext::clearRect(CGRect rect) {
    fillDeviceRect(rect, {0, 0, 0, 0}, true);
}

bool BitmapContext::drawImage(CGRect userRect, const Bitmap& image, ErrorRef* error) {
    CGRect rect = standardized(userRect);
    if (image.isNull() || !(rect.size.width > 0) || !(rect.size.height > 0)) return true;
    const double W = static_cast<double>(image.width()), Hs = static_cast<double>(image.height());
    const double Hc = static_cast<double>(height());
    const auto& t = _state.ctm;
    const double sx = rect.size.width / W, sy = rect.size.height / Hs;
    const double top = rect.origin.y + rect.size.height;
    // Image pixel space (u right, v down) to top-left device space.
    const double m00 = t.a * sx, m01 = -t.c * sy, m02 = t.a * rect.origin.x + t.c * top + t.tx;
    const double m10 = -t.b * sx, m11 = t.d * sy,
                 m12 = Hc - (t.b * rect.origin.x + t.d * top + t.ty);
    Box clip{_state.clip.origin.x, Hc - (_state.clip.origin.y + _state.clip.size.height),
             _state.clip.origin.x + _state.clip.size.width, Hc - _state.clip.origin.y};
    clip = clip.intersect({0, 0, static_cast<double>(width()), Hc});
    if (clip.empty()) return true;

    SourceReader reader{&image,
                        image.layout(),
                        image.layout().bytesPerPixel(),
                        image.layout().colorOffset(),
                        image.layout().alphaOffset(),
                        image.bitsPerComponent() == 16};
    auto transform = makeTransform(image.colorSpace(), colorSpace());
    reader.transform = transform.get();

    if (!isAxisAligned(CGAffineTransform{m00, m10, m01, m11, 0, 0})) {
        // Any other angle: bilinear inverse mapping, pixel centres decide, hard edges.
        double det = m00 * m11 - m01 * m10;
        if (std::fabs(det) < 1e-12) return true;
        double i00 = m11 / det, i01 = -m01 / det, i10 = -m10 / det, i11 = m00 / det;
        double corners[4][2] = {{0, 0}, {W, 0}, {0, Hs}, {W, Hs}};
        Box box{1e300, 1e300, -1e300, -1e300};
        for (auto& c : corners) {
            double X = m00 * c[0] + m01 * c[1] + m02, Y = m10 * c[0] + m11 * c[1] + m12;
            box.x0 = std::min(box.x0, X), box.x1 = std::max(box.x1, X);
            box.y0 = std::min(box.y0, Y), box.y1 = std::max(box.y1, Y);
        }
        box = box.intersect(clip);
        if (box.empty()) return true;
        DestAccess dest = destAccess(mutablePixels(), _bitmap);
        std::size_t X0 = static_cast<std::size_t>(std::floor(box.x0));
        std::size_t X1 = std::min(width(), static_cast<std::size_t>(std::ceil(box.x1)));
        std::size_t Y0 = static_cast<std::size_t>(std::floor(box.y0));
        std::size_t Y1 = std::min(height(), static_cast<std::size_t>(std::ceil(box.y1)));
        std::uint16_t s[4][4];
        for (std::size_t y = Y0; y < Y1; ++y)
            for (std::size_t x = X0; x < X1; ++x) {
                double cx = x + 0.5, cy = y + 0.5;
                if (cx < clip.x0 || cx >= clip.x1 || cy < clip.y0 || cy >= clip.y1) continue;
                double u = i00 * (cx - m02) + i01 * (cy - m12);
                double v = i10 * (cx - m02) + i11 * (cy - m12);
                if (u < 0 || v < 0 || u >= W || v >= Hs) continue;
                double fu = std::clamp(u - 0.5, 0.0, W - 1), fv = std::clamp(v - 0.5, 0.0, Hs - 1);
                std::size_t u0 = static_cast<std::size_t>(fu), v0 = static_cast<std::size_t>(fv);
                std::size_t u1 = std::min(u0 + 1, image.width() - 1);
                std::size_t v1 = std::min(v0 + 1, image.height() - 1);
                double du = fu - u0, dv = fv - v0;
                std::size_t us[4] = {u0, u1, u0, u1}, vs[4] = {v0, v0, v1, v1};
                double ws[4] = {(1 - du) * (1 - dv), du * (1 - dv), (1 - du) * dv, du * dv};
                double acc[4] = {0, 0, 0, 0};
                for (int n = 0; n < 4; ++n) {
                    reader.read(image.row(vs[n]) + us[n] * reader.bpp, s[n]);
                    if (reader.transform) cmsDoTransform(reader.transform, s[n], s[n], 1);
                    double a = s[n][3] / 65535.0;
                    for (int k = 0; k < 3; ++k) acc[k] += ws[n] * s[n][k] * a;
                    acc[3] += ws[n] * s[n][3];
                }
                auto q = [](double v) {
                    return static_cast<std::uint32_t>(std::lround(std::clamp(v, 0.0, 65535.0)));
                };
                dest.blend(dest.base + y * dest.stride + x * dest.bpp, q(acc[0]), q(acc[1]),
                           q(acc[2]), q(acc[3]));
            }
        return true;
    }

    AlignedDraw d{};
    d.image = &image;
    d.reader = reader;
    d.transpose = std::fabs(m00) <= kEpsilon * std::max(std::fabs(m01), std::fabs(m10));
    double kx = d.transpose ? m01 : m00, ky = d.transpose ? m10 : m11;
    d.flipX = kx < 0;
    d.flipY = ky < 0;
    d.kx = std::fabs(kx);
    d.ky = std::fabs(ky);
    d.oWidth = d.transpose ? image.height() : image.width();
    d.oHeight = d.transpose ? image.width() : image.height();
    d.ox = d.flipX ? m02 + kx * static_cast<double>(d.oWidth) : m02;
    d.oy = d.flipY ? m12 + ky * static_cast<double>(d.oHeight) : m12;
    Box placed{d.ox, d.oy, d.ox + d.kx * d.oWidth, d.oy + d.ky * d.oHeight};
    d.cover = placed.intersect(clip);
    if (d.cover.empty()) return true;
    d.X0 = static_cast<std::size_t>(std::max(0.0, std::floor(d.cover.x0)));
    d.Y0 = static_cast<std::size_t>(std::max(0.0, std::floor(d.cover.y0)));
    d.X1 = std::min(width(), static_cast<std::size_t>(std::ceil(d.cover.x1)));
    d.Y1 = std::min(height(), static_cast<std::size_t>(std::ceil(d.cover.y1)));
    if (d.X1 <= d.X0 || d.Y1 <= d.Y0) return true;
    const PixelLayout& src = image.layout();
    const PixelLayout& dst = _bitmap.layout();
    d.planes = src.colorComponents == 3 && dst.colorComponents == 3 ? 3 : 1;
    d.alpha = src.hasAlpha();
    bool plain = !reader.transform && src.colorComponents == d.planes;
    d.input = !plain                      ? AlignedDraw::Input::Converted
              : src.bitsPerComponent == 8 ? AlignedDraw::Input::Bytes
                                          : AlignedDraw::Input::Words;
    d.byteOutput = dst.bitsPerComponent == 8;
    d.dest = destAccess(mutablePixels(), _bitmap);
    d.quality = _state.quality;
    std::string why;
    if (drawAligned(d, why)) return true;
    logf("~~ IMAGE: drawing failed: %s", why.c_str());
    if (error) *error = contextError("The picture could not be drawn: " + why);
    return false;
}

Bitmap BitmapContext::createImage() {
    return _bitmap;
}

}  // namespace platform
