#include "platform/BitmapContext.h"

#include "platform/Log.h"

#include <lcms2.h>
#include <zimg.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>

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
struct AlignedDraw {
    const Bitmap* image;
    SourceReader reader;
    bool transpose, flipX, flipY;
    std::size_t oWidth, oHeight;
    double ox, oy, kx, ky;
    Box cover;  // top-left device space
    std::size_t X0, Y0, X1, Y1;
    int planes;       // colour planes through zimg: 1 or 3
    bool alpha;       // an alpha plane goes through zimg
    bool bytePlanes;  // 8-bit source read straight into 8-bit planes
    DestAccess dest;
    zimg_image_buffer_const in{};
    zimg_image_buffer out{};
    std::vector<std::uint16_t> scratch;

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

    int unpack(unsigned i, unsigned left, unsigned right) {
        std::ptrdiff_t step = 0;
        const std::uint8_t* px = pixel(left, i, step);
        auto planeRow = [&](int k) {
            return static_cast<std::uint8_t*>(const_cast<void*>(in.plane[k].data)) +
                   static_cast<std::ptrdiff_t>(i & in.plane[k].mask) * in.plane[k].stride;
        };
        if (bytePlanes) {
            const PixelLayout& l = image->layout();
            int c0 = l.colorOffset(), a = l.alphaOffset();
            bool straight = alpha && !l.isPremultiplied();
            std::uint8_t* dst[4] = {planeRow(0), planes == 3 ? planeRow(1) : nullptr,
                                    planes == 3 ? planeRow(2) : nullptr,
                                    alpha ? planeRow(3) : nullptr};
            for (unsigned p = left; p < right; ++p, px += step) {
                unsigned av = alpha ? px[a] : 255;
                for (int k = 0; k < planes; ++k) {
                    unsigned c = px[c0 + k];
                    dst[k][p] = static_cast<std::uint8_t>(straight ? (c * av + 127) / 255 : c);
                }
                if (alpha) dst[3][p] = static_cast<std::uint8_t>(av);
            }
            return 0;
        }
        std::size_t count = right - left;
        scratch.resize(count * 4);
        for (std::size_t n = 0; n < count; ++n, px += step) reader.read(px, &scratch[n * 4]);
        if (reader.transform)
            cmsDoTransform(reader.transform, scratch.data(), scratch.data(),
                           static_cast<cmsUInt32Number>(count));
        std::uint16_t* dst[4];
        for (int k = 0; k < 4; ++k)
            dst[k] = (k < planes || (k == 3 && alpha))
                         ? reinterpret_cast<std::uint16_t*>(planeRow(k))
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
        return 0;
    }

    int pack(unsigned i, unsigned left, unsigned right) {
        std::size_t y = Y0 + i;
        double wy = coverage(static_cast<double>(y), cover.y0, cover.y1);
        std::uint8_t* row = dest.base + y * dest.stride;
        auto planeRow = [&](int k) {
            return reinterpret_cast<const std::uint16_t*>(
                static_cast<const std::uint8_t*>(out.plane[k].data) +
                static_cast<std::ptrdiff_t>(i & out.plane[k].mask) * out.plane[k].stride);
        };
        const std::uint16_t* r = planeRow(0);
        const std::uint16_t* g = planes == 3 ? planeRow(1) : r;
        const std::uint16_t* b = planes == 3 ? planeRow(2) : r;
        const std::uint16_t* a = alpha ? planeRow(3) : nullptr;
        // Interior pixels of an opaque source replace the destination outright.
        bool fullRow = wy >= 1 && !a;
        const PixelLayout& l = dest.layout;
        bool plainRgb = l.colorComponents == 3;
        int skip = dest.skip;
        for (unsigned p = left; p < right; ++p) {
            std::size_t x = X0 + p;
            bool edge = x == X0 || x + 1 == X1;
            if (fullRow && plainRgb && !edge) {
                std::uint8_t* px = row + x * dest.bpp;
                dest.put(px, dest.c0, r[p]);
                dest.put(px, dest.c0 + 1, g[p]);
                dest.put(px, dest.c0 + 2, b[p]);
                if (dest.a >= 0) dest.put(px, dest.a, 65535);
                if (skip >= 0) dest.put(px, skip, 65535);
                continue;
            }
            double w = wy * (edge ? coverage(static_cast<double>(x), cover.x0, cover.x1) : 1.0);
            if (w <= 0) continue;
            std::uint32_t sa = a ? a[p] : 65535;
            std::uint32_t sr = std::min<std::uint32_t>(r[p], sa);
            std::uint32_t sg = std::min<std::uint32_t>(g[p], sa);
            std::uint32_t sb = std::min<std::uint32_t>(b[p], sa);
            if (w < 1) {
                auto k = [&](std::uint32_t v) {
                    return static_cast<std::uint32_t>(std::lround(v * w));
                };
                sr = k(sr), sg = k(sg), sb = k(sb), sa = k(sa);
            }
            dest.blend(row + x * dest.bpp, sr, sg, sb, sa);
        }
        return 0;
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

bool runZimg(AlignedDraw& d, CGInterpolationQuality quality, std::string& why) {
    zimg_image_format src, dst;
    zimg_image_format_default(&src, ZIMG_API_VERSION);
    zimg_image_format_default(&dst, ZIMG_API_VERSION);
    src.width = static_cast<unsigned>(d.oWidth);
    src.height = static_cast<unsigned>(d.oHeight);
    src.pixel_type = d.bytePlanes ? ZIMG_PIXEL_BYTE : ZIMG_PIXEL_WORD;
    src.depth = d.bytePlanes ? 8 : 16;
    dst.width = static_cast<unsigned>(d.X1 - d.X0);
    dst.height = static_cast<unsigned>(d.Y1 - d.Y0);
    dst.pixel_type = ZIMG_PIXEL_WORD;
    dst.depth = 16;
    for (zimg_image_format* f : {&src, &dst}) {
        f->color_family = d.planes == 3 ? ZIMG_COLOR_RGB : ZIMG_COLOR_GREY;
        f->matrix_coefficients = d.planes == 3 ? ZIMG_MATRIX_RGB : ZIMG_MATRIX_UNSPECIFIED;
        f->pixel_range = ZIMG_RANGE_FULL;
        f->alpha = d.alpha ? ZIMG_ALPHA_PREMULTIPLIED : ZIMG_ALPHA_NONE;
    }
    src.active_region.left = (static_cast<double>(d.X0) - d.ox) / d.kx;
    src.active_region.top = (static_cast<double>(d.Y0) - d.oy) / d.ky;
    src.active_region.width = static_cast<double>(d.X1 - d.X0) / d.kx;
    src.active_region.height = static_cast<double>(d.Y1 - d.Y0) / d.ky;
    zimg_graph_builder_params params;
    zimg_graph_builder_params_default(&params, ZIMG_API_VERSION);
    params.resample_filter = filterFor(quality, params.filter_param_a, params.filter_param_b);
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
    std::size_t inLines = inMask == ZIMG_BUFFER_MAX ? d.oHeight : inMask + 1;
    std::size_t outLines = outMask == ZIMG_BUFFER_MAX ? (d.Y1 - d.Y0) : outMask + 1;
    std::size_t inStride = (d.oWidth * (d.bytePlanes ? 1 : 2) + 63) / 64 * 64;
    std::size_t outStride = ((d.X1 - d.X0) * 2 + 63) / 64 * 64;
    AlignedBuffer tmp = alignedAlloc(tmpSize);
    AlignedBuffer inBuffer = alignedAlloc(inStride * inLines * 4);
    AlignedBuffer outBuffer = alignedAlloc(outStride * outLines * 4);
    if (!tmp || !inBuffer || !outBuffer) return why = "out of memory", false;
    d.in.version = ZIMG_API_VERSION;
    d.out.version = ZIMG_API_VERSION;
    for (int k = 0; k < 4; ++k) {
        d.in.plane[k].data = inBuffer.get() + k * inStride * inLines;
        d.in.plane[k].stride = static_cast<std::ptrdiff_t>(inStride);
        d.in.plane[k].mask = inMask;
        d.out.plane[k].data = outBuffer.get() + k * outStride * outLines;
        d.out.plane[k].stride = static_cast<std::ptrdiff_t>(outStride);
        d.out.plane[k].mask = outMask;
    }
    auto unpack = [](void* user, unsigned i, unsigned left, unsigned right) {
        return static_cast<AlignedDraw*>(user)->unpack(i, left, right);
    };
    auto pack = [](void* user, unsigned i, unsigned left, unsigned right) {
        return static_cast<AlignedDraw*>(user)->pack(i, left, right);
    };
    if (zimg_filter_graph_process(graph.get(), &d.in, &d.out, tmp.get(), unpack, &d, pack, &d) !=
        ZIMG_ERROR_SUCCESS) {
        zimg_get_last_error(message, sizeof message);
        why = message;
        return false;
    }
    return true;
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
    context->_bitmap = Bitmap(width, height, layout, colorSpace);
    context->_state.clip = {{0, 0}, {static_cast<double>(width), static_cast<double>(height)}};
    if (!layout.hasAlpha() && layout.hasExtraSample()) {
        // Skip samples read as full, so that an untouched opaque context is opaque black.
        DestAccess dest = destAccess(context->mutablePixels(), context->_bitmap);
        for (std::size_t y = 0; y < height; ++y)
            for (std::size_t x = 0; x < width; ++x)
                dest.put(dest.base + y * dest.stride + x * dest.bpp, dest.skip, 65535);
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
    for (std::size_t y = Y0; y < Y1; ++y) {
        std::uint8_t* row = dest.base + y * dest.stride;
        double wy = coverage(static_cast<double>(y), cover.y0, cover.y1);
        for (std::size_t x = X0; x < X1; ++x) {
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

void BitmapContext::drawImage(CGRect userRect, const Bitmap& image) {
    CGRect rect = standardized(userRect);
    if (image.isNull() || !(rect.size.width > 0) || !(rect.size.height > 0)) return;
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
    if (clip.empty()) return;

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
        if (std::fabs(det) < 1e-12) return;
        double i00 = m11 / det, i01 = -m01 / det, i10 = -m10 / det, i11 = m00 / det;
        double corners[4][2] = {{0, 0}, {W, 0}, {0, Hs}, {W, Hs}};
        Box box{1e300, 1e300, -1e300, -1e300};
        for (auto& c : corners) {
            double X = m00 * c[0] + m01 * c[1] + m02, Y = m10 * c[0] + m11 * c[1] + m12;
            box.x0 = std::min(box.x0, X), box.x1 = std::max(box.x1, X);
            box.y0 = std::min(box.y0, Y), box.y1 = std::max(box.y1, Y);
        }
        box = box.intersect(clip);
        if (box.empty()) return;
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
        return;
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
    if (d.cover.empty()) return;
    d.X0 = static_cast<std::size_t>(std::max(0.0, std::floor(d.cover.x0)));
    d.Y0 = static_cast<std::size_t>(std::max(0.0, std::floor(d.cover.y0)));
    d.X1 = std::min(width(), static_cast<std::size_t>(std::ceil(d.cover.x1)));
    d.Y1 = std::min(height(), static_cast<std::size_t>(std::ceil(d.cover.y1)));
    if (d.X1 <= d.X0 || d.Y1 <= d.Y0) return;
    const PixelLayout& src = image.layout();
    const PixelLayout& dst = _bitmap.layout();
    d.planes = src.colorComponents == 3 && dst.colorComponents == 3 ? 3 : 1;
    d.alpha = src.hasAlpha();
    d.bytePlanes =
        src.bitsPerComponent == 8 && !reader.transform && src.colorComponents == d.planes;
    d.dest = destAccess(mutablePixels(), _bitmap);
    std::string why;
    if (!runZimg(d, _state.quality, why)) logf("~~ IMAGE: drawing failed: %s", why.c_str());
}

Bitmap BitmapContext::createImage() {
    return _bitmap;
}

}  // namespace platform
