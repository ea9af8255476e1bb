#include "model/ImageRendering.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "model/VROrientation.h"
#include "model/VXHelperSize.h"
#include "platform/Log.h"

using namespace platform;

namespace {

constexpr double kQuarter = std::numbers::pi / 2;

CGPoint rotatedPoint(CGPoint p, double angle) {
    const double c = std::cos(angle), s = std::sin(angle);
    return {p.x * c - p.y * s, p.x * s + p.y * c};
}

// Where the drawing starts from: the part of the source shown (extent), the stored point that
// lands on the output's centre (pivot) and the output size.
struct Placement {
    CGSize extent;
    CGPoint pivot;
    CGSize target;
};

Placement placementWithoutCrop(CGSize stored, CGSize target, bool odd, bool oriented) {
    Placement p;
    p.extent = stored;
    p.pivot = {stored.width / 2, stored.height / 2};
    if (odd && oriented) p.extent = VXHelper::rotated(stored);
    const bool targetGiven = target.width != 0 && target.height != 0;
    p.target = targetGiven ? target : p.extent;
    if (odd && !oriented && targetGiven) p.target = VXHelper::rotated(p.target);
    return p;
}

// The crop's centre is taken back through the orientation into the stored frame, so that it
// lands on the output's centre once the drawing turns the image.
Placement placementWithCrop(CGSize stored, CGRect crop, CGSize target, double k,
                            const VROrientation& o, bool sized, bool oriented) {
    crop = {{crop.origin.x * k, crop.origin.y * k}, {crop.size.width * k, crop.size.height * k}};
    const bool odd = o.isRotated();
    const CGSize shown = odd && oriented ? VXHelper::rotated(stored) : stored;
    // Centre of the crop relative to the centre of the shown frame, y upwards.
    CGPoint c = {crop.origin.x + crop.size.width / 2 - shown.width / 2,
                 shown.height / 2 - (crop.origin.y + crop.size.height / 2)};
    if (oriented) {
        const double fx = o.isFlipped() ? -1 : 1;
        c.x *= fx;
        c = rotatedPoint(c, fx * o.rotation() * kQuarter);
    }
    Placement p;
    p.pivot = {stored.width / 2 + c.x, stored.height / 2 + c.y};
    p.extent = sized ? crop.size : VXHelper::rotated(crop.size);
    const bool targetGiven = target.width != 0 && target.height != 0;
    p.target = targetGiven ? target : p.extent;
    if (!sized && targetGiven) p.target = VXHelper::rotated(p.target);
    return p;
}

struct Scale {
    double s = 1;
    double xs = 1;
};

Scale scaleFor(const Placement& p, VRImageArrangementBits arrangement) {
    const double rx = p.target.width / p.extent.width, ry = p.target.height / p.extent.height;
    Scale scale;
    if (!(arrangement & VRImageArrangementNoScale)) scale = {ry, rx / ry};
    if (arrangement & VRImageArrangementFit) scale = {std::min(rx, ry), 1};
    if (arrangement & VRImageArrangementFill) scale = {std::max(rx, ry), 1};
    return scale;
}

const char* yesNo(bool v) {
    return v ? "YES" : "NO";
}

}  // namespace

CGImageAlphaInfo VRSourceAlphaInfo(CGImageAlphaInfo source, bool translucent) {
    switch (source) {
        case kCGImageAlphaNone:
            return translucent ? kCGImageAlphaPremultipliedLast : kCGImageAlphaNone;
        case kCGImageAlphaPremultipliedLast:
        case kCGImageAlphaLast:
            return kCGImageAlphaPremultipliedLast;
        case kCGImageAlphaPremultipliedFirst:
        case kCGImageAlphaFirst:
            return kCGImageAlphaPremultipliedFirst;
        case kCGImageAlphaNoneSkipLast:
        case kCGImageAlphaNoneSkipFirst:
            return translucent ? kCGImageAlphaPremultipliedLast : source;
        case kCGImageAlphaOnly:
            return kCGImageAlphaOnly;
    }
    return kCGImageAlphaPremultipliedLast;
}

CGImageAlphaInfo VRDeviceAlphaInfo(CGImageAlphaInfo source, bool translucent) {
    if (translucent) return kCGImageAlphaPremultipliedLast;
    switch (source) {
        case kCGImageAlphaPremultipliedLast:
        case kCGImageAlphaPremultipliedFirst:
        case kCGImageAlphaLast:
        case kCGImageAlphaFirst:
        case kCGImageAlphaOnly:
            return kCGImageAlphaPremultipliedLast;
        default:
            return kCGImageAlphaNoneSkipLast;
    }
}

std::unique_ptr<BitmapContext> VRCreateBitmapContext(const Bitmap& source, bool useSource,
                                                     bool translucent, std::size_t width,
                                                     std::size_t height, std::size_t firstRow,
                                                     std::size_t rowCount) {
    if (rowCount == 0) firstRow = 0, rowCount = height;
    if (useSource && source.colorSpace().supportsOutput()) {
        const CGImageAlphaInfo alpha = VRSourceAlphaInfo(source.alphaInfo(), translucent);
        const std::uint32_t info = (source.bitmapInfo() & ~kCGBitmapAlphaInfoMask) | alpha;
        auto context = BitmapContext::createStrip(width, height, source.bitsPerComponent(),
                                                  source.colorSpace(), info, firstRow, rowCount);
        logf("VRKIT: using source Color Space: %s, alpha %d", yesNo(context != nullptr),
             static_cast<int>(alpha));
        if (context) return context;
    }
    const CGImageAlphaInfo alpha = VRDeviceAlphaInfo(source.alphaInfo(), translucent);
    auto context = BitmapContext::createStrip(width, height, 8, ColorSpace::deviceRGB(),
                                              kCGBitmapByteOrder32Big | alpha, firstRow, rowCount);
    logf("VRKIT: using device Color Space: %s, alpha %d", yesNo(context != nullptr),
         static_cast<int>(alpha));
    return context;
}

namespace {

// Everything VRRenderCGImage works out before it touches a pixel.
struct RenderPlan {
    Placement placement;
    Scale scale;
    CGPoint displacement;
    CGSize stored;
    std::int64_t rotation = 0;
    bool flip = false, oriented = false, translucent = false;
    std::size_t width = 0, height = 0;
};

std::optional<RenderPlan> planRender(const Bitmap& image, std::int64_t orientation,
                                     const std::optional<VRColor>& fillColor,
                                     VRImageArrangementBits arrangement, double k, CGRect crop,
                                     CGSize target, CGPoint displacement) {
    if (image.isNull()) return std::nullopt;
    RenderPlan plan;
    const VROrientation o = VROrientation::orientationWithImageOrientation(orientation);
    plan.rotation = o.rotation();
    const bool odd = o.isRotated();
    plan.flip = o.isFlipped();
    plan.oriented = (arrangement & VRImageArrangementOriented) != 0;
    const bool sized = !odd || plan.oriented;
    plan.stored = {double(image.width()), double(image.height())};

    const bool cropGiven = crop.size.width != 0 && crop.size.height != 0;
    Placement p = cropGiven
                      ? placementWithCrop(plan.stored, crop, target, k, o, sized, plan.oriented)
                      : placementWithoutCrop(plan.stored, target, odd, plan.oriented);

    CGPoint d = displacement;
    if (d.x != 0 || d.y != 0) {
        if (!plan.oriented) {
            d = rotatedPoint(d, -plan.rotation * kQuarter);
            if (plan.flip) d.x = -d.x;
        }
        d.y = -d.y;  // the drawing space grows upwards
    }
    if (arrangement & VRImageArrangementIntegral) {
        p.target = VXHelper::rounded(p.target);
        p.extent = VXHelper::rounded(p.extent);
        d = {VXHelper::rounded(d.x), VXHelper::rounded(d.y)};
    }
    if (p.extent.width <= 0 || p.extent.height <= 0) return std::nullopt;
    plan.scale = scaleFor(p, arrangement);
    if (!std::isfinite(plan.scale.s) || !std::isfinite(plan.scale.xs) || plan.scale.s <= 0)
        return std::nullopt;
    plan.translucent = fillColor && fillColor->alpha < 0.999;
    if (!(p.target.width >= 1 && p.target.height >= 1)) return std::nullopt;
    plan.width = static_cast<std::size_t>(p.target.width);
    plan.height = static_cast<std::size_t>(p.target.height);
    plan.placement = p;
    plan.displacement = d;
    return plan;
}

// Fills the context's rows and sets up transform and clip; returns the rectangle that the
// image is drawn into. The caller restores the drawing state after the draw.
CGRect prepareDrawing(BitmapContext& context, const RenderPlan& plan,
                      CGInterpolationQuality quality, const std::optional<VRColor>& fillColor,
                      double angle) {
    const Placement& p = plan.placement;
    const CGPoint d = plan.displacement;
    context.saveGState();
    context.setInterpolationQuality(quality);
    const CGRect all{{0, 0}, {double(plan.width), double(plan.height)}};
    if (!fillColor || *fillColor == VRColor::clearColor()) {
        context.clearRect(all);
    } else {
        context.setFillColor({fillColor->red, fillColor->green, fillColor->blue, fillColor->alpha});
        context.fillRect(all);
    }
    context.translateCTM(d.x + p.target.width / 2, d.y + p.target.height / 2);
    if (plan.scale.xs != 1) context.scaleCTM(plan.scale.xs, 1);
    const double cw = p.extent.width * plan.scale.s, ch = p.extent.height * plan.scale.s;
    context.clipToRect({{-cw / 2, -ch / 2}, {cw, ch}});
    const double fx = plan.flip ? -1 : 1;
    if (plan.oriented) {
        context.scaleCTM(fx, 1);
        context.rotateCTM(fx * (-plan.rotation * kQuarter) - fx * angle);
    } else {
        context.rotateCTM(-fx * angle);
    }
    return {{-p.pivot.x * plan.scale.s, -p.pivot.y * plan.scale.s},
            {plan.stored.width * plan.scale.s, plan.stored.height * plan.scale.s}};
}

}  // namespace

std::optional<Bitmap> VRRenderCGImage(const Bitmap& image, std::int64_t orientation,
                                      CGInterpolationQuality quality,
                                      const std::optional<VRColor>& fillColor,
                                      VRImageArrangementBits arrangement, double k, double angle,
                                      CGRect crop, CGSize target, CGPoint displacement,
                                      ErrorRef* error) {
    const auto plan =
        planRender(image, orientation, fillColor, arrangement, k, crop, target, displacement);
    if (!plan) return std::nullopt;
    auto context = VRCreateBitmapContext(image, arrangement & VRImageArrangementSourceColorSpace,
                                         plan->translucent, plan->width, plan->height);
    if (!context) return std::nullopt;
    const CGRect rect = prepareDrawing(*context, *plan, quality, fillColor, angle);
    if (!context->drawImage(rect, image, error)) return std::nullopt;
    context->restoreGState();
    return context->createImage();
}

struct VRStripRendering::Plan : RenderPlan {
    CGInterpolationQuality quality = kCGInterpolationDefault;
    std::optional<VRColor> fillColor;
    CGRect rect{};
};

VRStripRendering::VRStripRendering() = default;
VRStripRendering::~VRStripRendering() = default;

std::unique_ptr<VRStripRendering> VRStripRendering::make(
    const Bitmap& shape, std::int64_t orientation, CGInterpolationQuality quality,
    const std::optional<VRColor>& fillColor, VRImageArrangementBits arrangement, double k,
    CGRect crop, CGSize target, CGPoint displacement) {
    // Upright or mirrored side to side: the source's rows come in the order of the output's.
    const VROrientation o = VROrientation::orientationWithImageOrientation(orientation);
    if (o.rotation() != 0) return nullptr;
    auto plan =
        planRender(shape, orientation, fillColor, arrangement, k, crop, target, displacement);
    if (!plan) return nullptr;
    std::unique_ptr<VRStripRendering> r(new VRStripRendering());
    r->_plan = std::make_unique<Plan>();
    static_cast<RenderPlan&>(*r->_plan) = *plan;
    r->_plan->quality = quality;
    r->_plan->fillColor = fillColor;
    r->_shape = shape;
    r->_context = VRCreateBitmapContext(shape, arrangement & VRImageArrangementSourceColorSpace,
                                        plan->translucent, plan->width, plan->height, 0, 1);
    if (!r->_context) return nullptr;
    return r;
}

std::size_t VRStripRendering::width() const {
    return _plan->width;
}

std::size_t VRStripRendering::height() const {
    return _plan->height;
}

std::pair<std::size_t, std::size_t> VRStripRendering::beginRows(std::size_t y0, std::size_t y1) {
    _context->moveToRows(y0, y1 > y0 ? y1 - y0 : 1);
    _plan->rect = prepareDrawing(*_context, *_plan, _plan->quality, _plan->fillColor, 0);
    return _context->sourceRowsForDraw(_plan->rect, _shape);
}

std::optional<Bitmap> VRStripRendering::drawRows(const Bitmap& source, ErrorRef* error) {
    const bool drawn = _context->drawImage(_plan->rect, source, error);
    _context->restoreGState();
    if (!drawn) return std::nullopt;
    return _context->createImage();
}
