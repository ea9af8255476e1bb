#include "platform/BitmapContext.h"

#include "platform/Log.h"
#include "platform/linux/BitmapPixels.h"
#include "platform/linux/PixelMemory.h"

#include <lcms2.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace platform {
namespace {

using namespace bitmap_pixels;

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
            skip,
            b.firstRow()};
}

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

}  // namespace

std::unique_ptr<BitmapContext> BitmapContext::create(std::size_t width, std::size_t height,
                                                     std::size_t bitsPerComponent,
                                                     const ColorSpace& colorSpace,
                                                     std::uint32_t bitmapInfo, ErrorRef* error) {
    return createStrip(width, height, bitsPerComponent, colorSpace, bitmapInfo, 0, height, error);
}

std::unique_ptr<BitmapContext> BitmapContext::createStrip(std::size_t width, std::size_t height,
                                                          std::size_t bitsPerComponent,
                                                          const ColorSpace& colorSpace,
                                                          std::uint32_t bitmapInfo,
                                                          std::size_t firstRow,
                                                          std::size_t rowCount, ErrorRef* error) {
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
    if (firstRow >= height || rowCount == 0) return refuse("no rows of the picture in the strip");
    std::unique_ptr<BitmapContext> context(new BitmapContext());
    // No pixels until moveToRows gives the strip its own: a strip context never holds the
    // whole picture, not even for a moment.
    context->_bitmap = Bitmap::strip(
        width, height, layout, std::make_shared<const ColorSpace>(colorSpace), 0, 0, nullptr, 0);
    context->_state.clip = {{0, 0}, {static_cast<double>(width), static_cast<double>(height)}};
    context->moveToRows(firstRow, rowCount);
    return context;
}

void BitmapContext::moveToRows(std::size_t firstRow, std::size_t rowCount) {
    const std::size_t first = std::min(firstRow, _bitmap._height - 1);
    const std::size_t rows = std::clamp<std::size_t>(rowCount, 1, _bitmap._height - first);
    const PixelLayout layout = _bitmap.layout();
    const std::size_t stride = _bitmap._width * layout.bytesPerPixel();
    if (!_buffers) _buffers = PixelBufferPool::make();
    bool fresh = false;
    auto pixels = _buffers->take(stride * rows, fresh);
    _bitmap = Bitmap::strip(_bitmap._width, _bitmap._height, layout, _bitmap._colorSpace, first,
                            rows, std::move(pixels), stride);
    // New rows read as cleared, skip samples full so that an untouched opaque context is
    // opaque black. They are written when something first needs them: mostly a fill or a
    // draw writes them all anyway.
    std::array<std::uint8_t, 8> cleared{};
    const DestAccess dest = destAccess(nullptr, _bitmap);
    dest.clear(cleared.data());
    _pendingFill.reset();
    if (!fresh || dest.skip >= 0) _pendingFill = cleared;
}

void BitmapContext::settleFill(std::size_t x0, std::size_t x1, std::size_t y0, std::size_t y1) {
    if (!_pendingFill) return;
    const std::array<std::uint8_t, 8> pixel = *_pendingFill;
    _pendingFill.reset();
    const DestAccess dest = destAccess(mutablePixels(), _bitmap);
    const std::size_t W = width();
    x1 = std::min(x1, W);
    x0 = std::min(x0, x1);
    if (x0 == x1) y0 = y1 = 0;
    for (std::size_t y = _bitmap.firstRow(); y < rowsEnd(); ++y) {
        std::uint8_t* row = dest.row(y);
        if (y >= y0 && y < y1) {
            fillPixels(row, pixel.data(), dest.bpp, x0);
            fillPixels(row + x1 * dest.bpp, pixel.data(), dest.bpp, W - x1);
        } else {
            fillPixels(row, pixel.data(), dest.bpp, W);
        }
    }
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
    std::size_t Y0 = std::max(_bitmap.firstRow(), static_cast<std::size_t>(std::floor(cover.y0)));
    std::size_t Y1 = std::min(rowsEnd(), static_cast<std::size_t>(std::ceil(cover.y1)));
    if (Y1 <= Y0) return;
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
    DestAccess dest = destAccess(nullptr, _bitmap);
    // A wholly covered pixel gets the same bytes whatever it held, unless the colour is
    // translucent: those bytes are worked out once and copied over the rows' interiors.
    std::array<std::uint8_t, 8> solid{};
    bool solidKnown = aligned && (replace || premultiplied[3] == 65535);
    if (replace)
        dest.clear(solid.data());
    else if (solidKnown)
        dest.blend(solid.data(), premultiplied[0], premultiplied[1], premultiplied[2], 65535);
    if (solidKnown && cover.x0 <= 0 && cover.x1 >= static_cast<double>(width()) &&
        cover.y0 <= static_cast<double>(_bitmap.firstRow()) &&
        cover.y1 >= static_cast<double>(rowsEnd())) {
        // Every held pixel gets these bytes: they wait for what is drawn next.
        _pendingFill = solid;
        return;
    }
    settleFill();
    dest.base = mutablePixels();
    const std::size_t inner0 = std::max(X0, static_cast<std::size_t>(std::ceil(cover.x0)));
    const std::size_t inner1 =
        std::max(inner0, std::min(X1, static_cast<std::size_t>(std::floor(cover.x1))));
    for (std::size_t y = Y0; y < Y1; ++y) {
        std::uint8_t* row = dest.row(y);
        double wy = coverage(static_cast<double>(y), cover.y0, cover.y1);
        bool solidRow = solidKnown && wy >= 1;
        if (solidRow) fillPixels(row + inner0 * dest.bpp, solid.data(), dest.bpp, inner1 - inner0);
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
        settleFill();
        DestAccess dest = destAccess(mutablePixels(), _bitmap);
        std::size_t X0 = static_cast<std::size_t>(std::floor(box.x0));
        std::size_t X1 = std::min(width(), static_cast<std::size_t>(std::ceil(box.x1)));
        std::size_t Y0 = std::max(_bitmap.firstRow(), static_cast<std::size_t>(std::floor(box.y0)));
        std::size_t Y1 = std::min(rowsEnd(), static_cast<std::size_t>(std::ceil(box.y1)));
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
                dest.blend(dest.row(y) + x * dest.bpp, q(acc[0]), q(acc[1]), q(acc[2]), q(acc[3]));
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
    // A strip draws its own rows only; every row is drawn as the whole picture draws it.
    d.Y0 = std::max(d.Y0, _bitmap.firstRow());
    d.Y1 = std::min(d.Y1, rowsEnd());
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
    // An opaque picture gives the pixels it covers whole the same bytes whatever they held
    // (the bands replace them or blend at full weight): a waiting fill goes only around them.
    std::size_t kx0 = 0, kx1 = 0, ky0 = 0, ky1 = 0;
    if (!d.alpha) {
        kx0 = std::max(d.X0, static_cast<std::size_t>(std::ceil(d.cover.x0)));
        kx1 = std::max(kx0, std::min(d.X1, static_cast<std::size_t>(std::floor(d.cover.x1))));
        ky0 = std::max(d.Y0, static_cast<std::size_t>(std::ceil(d.cover.y0)));
        ky1 = std::max(ky0, std::min(d.Y1, static_cast<std::size_t>(std::floor(d.cover.y1))));
    }
    const auto waiting = _pendingFill;
    settleFill(kx0, kx1, ky0, ky1);
    d.dest = destAccess(mutablePixels(), _bitmap);
    d.quality = _state.quality;
    // A strip context draws the same geometry strip after strip: it keeps its graphs.
    if (rowsEnd() - _bitmap.firstRow() < height()) {
        if (!_graphs) _graphs = makeResizeGraphs();
        d.graphs = _graphs.get();
    }
    std::string why;
    if (drawAligned(d, why)) return true;
    if (waiting)  // the pixels left out above hold no fill yet
        for (std::size_t y = ky0; y < ky1; ++y)
            fillPixels(d.dest.row(y) + kx0 * d.dest.bpp, waiting->data(), d.dest.bpp, kx1 - kx0);
    logf("~~ IMAGE: drawing failed: %s", why.c_str());
    if (error) *error = contextError("The picture could not be drawn: " + why);
    return false;
}

std::pair<std::size_t, std::size_t> BitmapContext::sourceRowsForDraw(CGRect userRect,
                                                                     const Bitmap& image) const {
    const std::pair<std::size_t, std::size_t> all{0, image.height()};
    const CGRect rect = standardized(userRect);
    if (image.isNull() || !(rect.size.width > 0) || !(rect.size.height > 0)) return {0, 0};
    const double Hs = static_cast<double>(image.height()), Hc = static_cast<double>(height());
    const auto& t = _state.ctm;
    const double sx = rect.size.width / static_cast<double>(image.width());
    const double sy = rect.size.height / Hs;
    const double top = rect.origin.y + rect.size.height;
    const double m00 = t.a * sx, m01 = -t.c * sy, m10 = -t.b * sx, m11 = t.d * sy;
    const double m12 = Hc - (t.b * rect.origin.x + t.d * top + t.ty);
    // Only an upright draw reads its source rows in the order of its own rows.
    if (!isAxisAligned(CGAffineTransform{m00, m10, m01, m11, 0, 0}) ||
        std::fabs(m00) <= kEpsilon * std::max(std::fabs(m01), std::fabs(m10)) || m11 <= 0)
        return all;
    const double clipTop = std::max(0.0, Hc - (_state.clip.origin.y + _state.clip.size.height));
    const double clipBottom = std::min(Hc, Hc - _state.clip.origin.y);
    const double y0 = std::max({m12, clipTop, static_cast<double>(_bitmap.firstRow())});
    const double y1 = std::min({m12 + m11 * Hs, clipBottom, static_cast<double>(rowsEnd())});
    if (!(y1 > y0)) return {0, 0};
    // The filter's reach (three lobes at most) widened by the reduction, and a margin beyond
    // what each band of the draw cuts for itself.
    const double margin = std::ceil(3 * std::max(1.0, 1.0 / m11)) + 4;
    const double lo = std::clamp(std::floor((std::floor(y0) - m12) / m11 - margin), 0.0, Hs - 1);
    const double hi = std::clamp(std::ceil((std::ceil(y1) - m12) / m11 + margin), lo + 1, Hs);
    return {static_cast<std::size_t>(lo), static_cast<std::size_t>(hi)};
}

void BitmapContext::setDrawingBands(std::size_t bands) {
    bitmap_pixels::setDrawingBands(bands);
}

Bitmap BitmapContext::createImage() {
    settleFill();
    return _bitmap;
}

}  // namespace platform
