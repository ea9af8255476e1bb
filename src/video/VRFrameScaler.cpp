#include "video/VRFrameScaler.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "platform/AVVideoSettings.h"
#include "platform/CMFormatDescription.h"
#include "platform/CMSampleBuffer.h"
#include "platform/CVPixelBuffer.h"

namespace {

using Form = VRFrameScaler::Form;

// The calls and constants that differ between the two forms.
struct Form8 {
    using Sample = std::uint8_t;
    static constexpr Form form = Form::eightBit;
    static constexpr auto scaleARGB = vImageScale_ARGB8888;
    static constexpr auto scaleLuma = vImageScale_Planar8;
    static constexpr auto scaleChroma = vImageScale_CbCr8;
    static vImage_Error fillARGB(const vImage_Buffer* d, const std::array<std::uint16_t, 4>& c) {
        const std::uint8_t color[4] = {Sample(c[0]), Sample(c[1]), Sample(c[2]), Sample(c[3])};
        return vImageBufferFill_ARGB8888(d, color, kvImageNoFlags);
    }
    static vImage_Error fillLuma(const vImage_Buffer* d, std::uint16_t y) {
        return vImageOverwriteChannelsWithScalar_Planar8(Sample(y), d, kvImageNoFlags);
    }
    static vImage_Error fillChroma(const vImage_Buffer* d, std::uint16_t cb, std::uint16_t cr) {
        const std::uint8_t color[2] = {Sample(cb), Sample(cr)};
        return vImageBufferFill_CbCr8(d, color, kvImageNoFlags);
    }
};

struct Form16 {
    using Sample = std::uint16_t;
    static constexpr Form form = Form::sixteenBit;
    static constexpr auto scaleARGB = vImageScale_ARGB16U;
    static constexpr auto scaleLuma = vImageScale_Planar16U;
    static constexpr auto scaleChroma = vImageScale_CbCr16U;
    static vImage_Error fillARGB(const vImage_Buffer* d, const std::array<std::uint16_t, 4>& c) {
        return vImageBufferFill_ARGB16U(d, c.data(), kvImageNoFlags);
    }
    static vImage_Error fillLuma(const vImage_Buffer* d, std::uint16_t y) {
        return vImageOverwriteChannelsWithScalar_Planar16U(y, d, kvImageNoFlags);
    }
    static vImage_Error fillChroma(const vImage_Buffer* d, std::uint16_t cb, std::uint16_t cr) {
        const std::uint16_t color[2] = {cb, cr};
        return vImageBufferFill_CbCr16U(d, color, kvImageNoFlags);
    }
};

double channelMaximum(Form form) {
    return form == Form::eightBit ? 255.0 : 65535.0;
}

// A colour value rounded half away from zero and kept inside the sample's range, so that a
// colour component outside 0...1 cannot wrap around.
std::uint16_t sampleValue(double value, Form form) {
    return static_cast<std::uint16_t>(std::clamp(std::round(value), 0.0, channelMaximum(form)));
}

vImage_Buffer wholeView(const CVPixelBufferRef& buffer) {
    return {CVPixelBufferGetBaseAddress(buffer), CVPixelBufferGetHeight(buffer),
            CVPixelBufferGetWidth(buffer), CVPixelBufferGetBytesPerRow(buffer)};
}

vImage_Buffer planeView(const CVPixelBufferRef& buffer, std::size_t plane) {
    return {CVPixelBufferGetBaseAddressOfPlane(buffer, plane),
            CVPixelBufferGetHeightOfPlane(buffer, plane),
            CVPixelBufferGetWidthOfPlane(buffer, plane),
            CVPixelBufferGetBytesPerRowOfPlane(buffer, plane)};
}

// The scale's temporary buffer, kept for the whole call and grown when a plane needs more.
class TempBuffer {
  public:
    template <class ScaleFunction>
    void reserveFor(ScaleFunction scale, const vImage_Buffer& src, const vImage_Buffer& dst) {
        const vImage_Error size =
            scale(&src, &dst, nullptr, kvImageHighQualityResampling | kvImageGetTempBufferSize);
        if (size > 0 && static_cast<std::size_t>(size) > _bytes.size()) {
            _bytes.resize(static_cast<std::size_t>(size));
        }
    }
    void* data() { return _bytes.empty() ? nullptr : _bytes.data(); }

  private:
    std::vector<std::uint8_t> _bytes;
};

// What the first frame of a call tells about the destination.
struct Destination {
    bool fullRange = false;
    std::optional<std::string> matrix;
};

Destination describeDestination(const CVPixelBufferRef& buffer) {
    Destination destination;
    CMFormatDescriptionRef description =
        buffer ? CMVideoFormatDescriptionCreateForImageBuffer(buffer) : nullptr;
    if (!description) return destination;
    auto pixel = CVPixelFormatDescriptionCreateWithPixelFormatType(
        CMFormatDescriptionGetMediaSubType(description));
    destination.fullRange =
        !(pixel && pixel->componentRange == CVPixelFormatComponentRange::videoRange);
    destination.matrix = description->yCbCrMatrix;
    return destination;
}

// The displacement in pixels of a plane `planeWidth` wide: the job gives it in pixels of the
// output frame's width.
std::pair<double, double> planeShift(const VRFrameScaler::Arguments& a, std::size_t planeWidth) {
    if (a.width > 0 && static_cast<double>(planeWidth) != a.width) {
        const double factor = static_cast<double>(planeWidth) / a.width;
        return {a.x * factor, a.y * factor};
    }
    return {a.x, a.y};
}

template <class F>
class FrameLoop {
  public:
    explicit FrameLoop(const VRFrameScaler::Arguments& a) : _a(a) {}

    bool run() {
        if (_a.cancelled()) return false;
        for (;;) {
            if (!_a.writerInput->isReadyForMoreMediaData()) return false;
            CMSampleBufferRef sample = _a.readerOutput->copyNextSampleBuffer();
            if (!sample) return true;
            const bool failed = !drawAndAppend(sample);
            sample.reset();
            const bool cancelled = _a.cancelled();
            if (failed) return true;
            if (cancelled) return false;
        }
    }

  private:
    bool drawAndAppend(const CMSampleBufferRef& sample) {
        CVPixelBufferRef source = CMSampleBufferGetImageBuffer(sample);
        const CMTime time = CMSampleBufferGetPresentationTimeStamp(sample);
        const auto& pool = _a.adaptor->pixelBufferPool();
        // Drawing would copy the frame as it is: the source itself goes to the writer, which
        // saves a frame of memory and a pass over it.
        if (source && pool && VRFrameScaler::drawsUnchanged(*source, *pool, _a)) {
            return append(source, time);
        }
        CVPixelBufferRef destination;
        const CVReturn created =
            CVPixelBufferPoolCreatePixelBuffer(_a.adaptor->pixelBufferPool(), &destination);
        if (_firstFrame) {
            _destination = describeDestination(destination);
            _firstFrame = false;
        }
        if (created != kCVReturnSuccess || !destination) return false;
        // The reader and the pool are set up for one format; another one cannot be drawn.
        if (!source || CVPixelBufferGetPixelFormatType(source) !=
                           CVPixelBufferGetPixelFormatType(destination)) {
            return false;
        }
        // Chroma in pairs on one side and in two planes on the other (a decoder that gives
        // pairs): brought to the destination's layout first.
        if (source->hasSeparateChroma() != destination->hasSeparateChroma()) {
            source = CVPixelBufferCopyWithChromaLayout(source, destination->hasSeparateChroma());
            if (!source) return false;
        }
        source->lockBaseAddress(1);
        destination->lockBaseAddress(0);
        bool drawn = true;
        if (CVPixelBufferIsPlanar(source)) {
            drawPlanar(source, destination);
        } else {
            drawn = drawNonPlanar(source, destination);
        }
        destination->unlockBaseAddress(0);
        source->unlockBaseAddress(1);
        if (!drawn) return false;
        return append(std::move(destination), time);
    }

    bool append(CVPixelBufferRef buffer, CMTime time) {
        if (!_a.adaptor->appendPixelBuffer(buffer, time)) return false;
        buffer.reset();
        if (CMTIME_IS_VALID(time) && _a.progress) _a.progress(CMTimeGetSeconds(time));
        return true;
    }

    bool drawNonPlanar(const CVPixelBufferRef& source, const CVPixelBufferRef& destination) {
        vImage_Buffer s = wholeView(source);
        vImage_Buffer d = wholeView(destination);
        if (_a.arrangement == VRImageArrangement::fit) {
            if (!_argb) _argb = VRFrameScaler::nonPlanarFillColor(_a.fillColor, F::form);
            F::fillARGB(&d, *_argb);
        }
        VRFrameScaler::placeViews(s, d, _a.arrangement, false, _a.x, _a.y,
                                  4 * sizeof(typename F::Sample));
        if (!_sizedNonPlanar) {
            _temp.reserveFor(F::scaleARGB, s, d);
            _sizedNonPlanar = true;
        }
        return F::scaleARGB(&s, &d, _temp.data(), kvImageHighQualityResampling) == kvImageNoError;
    }

    void drawPlanar(const CVPixelBufferRef& source, const CVPixelBufferRef& destination) {
        if (_a.arrangement == VRImageArrangement::fit && !_ycbcr) {
            _ycbcr = VRFrameScaler::biplanarFillColor(
                _a.fillColor,
                VRFrameScaler::coefficients(_destination.matrix, _destination.fullRange, F::form),
                F::form);
        }
        const std::size_t planes = CVPixelBufferGetPlaneCount(source);
        // Two planes of chroma (Cb, Cr) are drawn each as a plane of single samples.
        const bool separate = source->hasSeparateChroma();
        for (std::size_t p = 0; p < planes; ++p) {
            vImage_Buffer s = planeView(source, p);
            vImage_Buffer d = planeView(destination, p);
            const auto [dx, dy] = planeShift(_a, d.width);
            if (p > (separate ? 2 : 1)) continue;
            const bool luma = p == 0;
            const bool pairs = !luma && !separate;
            if (_a.arrangement == VRImageArrangement::fit) {
                if (luma) {
                    F::fillLuma(&d, _ycbcr->y);
                } else if (pairs) {
                    F::fillChroma(&d, _ycbcr->cb, _ycbcr->cr);
                } else {
                    F::fillLuma(&d, p == 1 ? _ycbcr->cb : _ycbcr->cr);
                }
            }
            VRFrameScaler::placeViews(s, d, _a.arrangement, luma, dx, dy,
                                      (pairs ? 2 : 1) * sizeof(typename F::Sample));
            auto scale = pairs ? F::scaleChroma : F::scaleLuma;
            if (_sizedPlanes <= p) {
                _temp.reserveFor(scale, s, d);
                _sizedPlanes = p + 1;
            }
            scale(&s, &d, _temp.data(), kvImageHighQualityResampling);
        }
    }

    const VRFrameScaler::Arguments& _a;
    bool _firstFrame = true;
    Destination _destination;
    std::optional<std::array<std::uint16_t, 4>> _argb;
    std::optional<VRYCbCrColor> _ycbcr;
    TempBuffer _temp;
    bool _sizedNonPlanar = false;
    std::size_t _sizedPlanes = 0;
};

// The rectangle of the container that the inner size takes, before the displacement.
struct Fitted {
    double width = 0, height = 0;
};

Fitted fitInside(double cw, double ch, double ratio) {
    if (ratio == 0) return {cw, ch};
    if (ch == 0) return {0, 0};
    if (cw / ch > ratio) return {ch * ratio, ch};
    return {cw, cw / ratio};
}

double clampBetween(double v, double a, double b) {
    return std::clamp(v, std::min(a, b), std::max(a, b));
}

std::size_t cut(double v) {
    return v > 0 && std::isfinite(v) ? static_cast<std::size_t>(v) : 0;
}

}  // namespace

bool VRFrameScaler::drawsUnchanged(const CVPixelBuffer& source, const CVPixelBufferPool& pool,
                                   const Arguments& arguments) {
    if (source.pixelFormatType() != pool.pixelFormatType() || source.width() != pool.width() ||
        source.height() != pool.height()) {
        return false;
    }
    const std::size_t planes =
        source.isPlanar() ? std::min<std::size_t>(source.planeCount(), 3) : 1;
    for (std::size_t p = 0; p < planes; ++p) {
        const CVPixelBuffer::Plane& plane = source.plane(p);
        // The destination's planes have the source's sizes; only the views' extents matter.
        const vImage_Buffer whole{plane.data, plane.height, plane.width, plane.rowBytes};
        vImage_Buffer s = whole, d = whole;
        const auto [dx, dy] = planeShift(arguments, plane.width);
        const std::size_t bytesPerPixel =
            !source.isPlanar() ? 4 : (p == 0 || source.hasSeparateChroma() ? 1 : 2);
        placeViews(s, d, arguments.arrangement, source.isPlanar() && p == 0, dx, dy, bytesPerPixel);
        auto same = [](const vImage_Buffer& a, const vImage_Buffer& b) {
            return a.data == b.data && a.width == b.width && a.height == b.height;
        };
        if (!same(s, whole) || !same(d, whole)) return false;
    }
    return true;
}

bool VRFrameScaler::appendFrames(Form form, const Arguments& arguments) {
    if (form == Form::sixteenBit) return FrameLoop<Form16>(arguments).run();
    return FrameLoop<Form8>(arguments).run();
}

VRColorCoefficients VRFrameScaler::coefficients(const std::optional<std::string>& matrix,
                                                bool fullRange, Form form) {
    VRColorCoefficients c;
    c.Kr = 0.2126;
    c.Kg = 0.7152;
    if (matrix == AVVideoYCbCrMatrix_ITU_R_601_4) {
        c.Kr = 0.299;
        c.Kg = 0.5864;
    } else if (matrix == kCVImageBufferYCbCrMatrix_SMPTE_240M_1995) {
        c.Kr = 0.2124;
        c.Kg = 0.7011;
    } else if (matrix == AVVideoYCbCrMatrix_ITU_R_2020) {
        c.Kr = 0.2627;
        c.Kg = 0.678;
    }
    c.Kb = 1 - c.Kr - c.Kg;
    c.cbDivisor = 2 * (c.Kr + c.Kg);
    c.crDivisor = 2 * (1 - c.Kr);
    const double s = form == Form::eightBit ? 1.0 : 256.0;
    const double r = form == Form::eightBit ? 255.0 : 255.99609375;
    if (fullRange) {
        c.lumaOffset = 0;
        c.lumaScale = 1;
        c.chromaScale = 1;
    } else {
        c.lumaOffset = 16 * s;
        c.lumaScale = 219 / r;
        c.chromaScale = 224 / r;
    }
    c.chromaOffset = 128 * s;
    return c;
}

VRYCbCrColor VRFrameScaler::biplanarFillColor(const std::optional<VRColor>& color,
                                              const VRColorCoefficients& k, Form form) {
    if (!color) {
        return {sampleValue(k.lumaOffset, form), sampleValue(k.chromaOffset, form),
                sampleValue(k.chromaOffset, form)};
    }
    const double max = channelMaximum(form);
    const double r = std::round(color->red * max);
    const double g = std::round(color->green * max);
    const double b = std::round(color->blue * max);
    const double l = k.Kr * r + k.Kg * g + k.Kb * b;
    return {sampleValue(l * k.lumaScale + k.lumaOffset, form),
            sampleValue((b - l) / k.cbDivisor * k.chromaScale + k.chromaOffset, form),
            sampleValue((r - l) / k.crDivisor * k.chromaScale + k.chromaOffset, form)};
}

std::array<std::uint16_t, 4> VRFrameScaler::nonPlanarFillColor(const std::optional<VRColor>& color,
                                                               Form form) {
    if (form == Form::eightBit) {
        if (!color) return {0, 0, 0, 255};
        return {sampleValue(color->blue * 255.0, form), sampleValue(color->green * 255.0, form),
                sampleValue(color->red * 255.0, form), sampleValue(color->alpha * 255.0, form)};
    }
    if (!color) return {65535, 0, 0, 0};
    return {sampleValue(color->alpha * 65535.0, form), sampleValue(color->red * 65535.0, form),
            sampleValue(color->green * 65535.0, form), sampleValue(color->blue * 65535.0, form)};
}

void VRFrameScaler::placeViews(vImage_Buffer& source, vImage_Buffer& destination,
                               VRImageArrangement arrangement, bool lumaPlane, double dx, double dy,
                               std::size_t bytesPerPixel) {
    const bool fill = arrangement == VRImageArrangement::fill;
    if (!fill && arrangement != VRImageArrangement::fit) return;

    auto side = [&](std::size_t v) {
        return lumaPlane ? std::round(static_cast<double>(v) / 2) : static_cast<double>(v);
    };
    const double sw = side(source.width), sh = side(source.height);
    const double dw = side(destination.width), dh = side(destination.height);
    const double f = lumaPlane ? 2 : 1;
    const double cw = fill ? sw : dw, ch = fill ? sh : dh;
    const double iw = fill ? dw : sw, ih = fill ? dh : sh;
    const double ratio = iw == 0 || ih == 0 ? 0 : std::fabs(iw / ih);

    const Fitted fitted = fitInside(cw, ch, ratio);
    const double mx = std::round((cw - fitted.width) * 0.5);
    const double my = std::round((ch - fitted.height) * 0.5);

    double ox = dx, oy = dy;
    if (fill) {
        // The picture moving right means the crop window moving left, in source pixels.
        const double t = dw == 0 ? 0 : -fitted.width / dw / f;
        ox = std::round(dx * t);
        oy = std::round(dy * t);
    } else if (lumaPlane) {
        ox = std::round(dx / 2);
        oy = std::round(dy / 2);
    }
    double rw = cw - 2 * mx, rh = ch - 2 * my;
    double x = clampBetween(mx + ox, 0, cw - rw);
    double y = clampBetween(my + oy, 0, ch - rh);
    if (lumaPlane) {
        x *= 2;
        y *= 2;
        rw *= 2;
        rh *= 2;
    }

    vImage_Buffer& view = fill ? source : destination;
    if (view.width == 0) return;
    // A rounded half of an odd side doubles to one more than the side: keep inside the view.
    const std::size_t left = std::min(cut(x), view.width);
    const std::size_t top = std::min(cut(y), view.height);
    view.data = static_cast<std::uint8_t*>(view.data) + view.rowBytes * top + left * bytesPerPixel;
    view.width = std::min(cut(rw), view.width - left);
    view.height = std::min(cut(rh), view.height - top);
}
