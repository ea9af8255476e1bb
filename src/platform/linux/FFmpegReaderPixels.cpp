#include "platform/linux/FFmpegReaderPixels.h"

#include <algorithm>
#include <cstring>

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "platform/AVError.h"
#include "platform/AVVideoSettings.h"
#include "platform/linux/FFmpegSupport.h"
#include "platform/linux/PlaneInterleave.h"

using platform::ErrorRef;
using platform::PlistDictionary;

namespace ffmpeg_reader {

namespace {

const OSType kSixCodes[] = {kCVPixelFormatType_32BGRA,
                            kCVPixelFormatType_420YpCbCr8BiPlanarFullRange,
                            kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange,
                            kCVPixelFormatType_420YpCbCr10BiPlanarFullRange,
                            kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange,
                            kCVPixelFormatType_64ARGB};

bool isSixCode(OSType code) {
    return std::find(std::begin(kSixCodes), std::end(kSixCodes), code) != std::end(kSixCodes);
}

}  // namespace

std::vector<OSType> requestedCodes(const std::optional<PlistDictionary>& settings, bool* valid) {
    *valid = true;
    std::vector<OSType> codes;
    if (!settings) return codes;
    auto it = settings->find(kCVPixelBufferPixelFormatTypeKey);
    if (it == settings->end()) {
        *valid = false;
        return codes;
    }
    auto take = [&](const platform::PlistValue& v) {
        if (!v.isNumber() || !isSixCode(static_cast<OSType>(v.integerValue()))) {
            *valid = false;
            return;
        }
        codes.push_back(static_cast<OSType>(v.integerValue()));
    };
    if (const auto* list = it->second.array()) {
        for (const auto& v : *list) take(v);
    } else {
        take(it->second);
    }
    if (codes.empty()) *valid = false;
    return codes;
}

namespace {

bool contains(const std::vector<OSType>& codes, OSType code) {
    return std::find(codes.begin(), codes.end(), code) != codes.end();
}

}  // namespace

OSType chooseCode(const std::vector<OSType>& requested, int pixelFormat, bool fullRange) {
    OSType native = ffmpeg_support::nativeCodeOf(pixelFormat, fullRange);
    if (native && contains(requested, native)) return native;
    const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(pixelFormat));
    bool alpha = desc && (desc->flags & AV_PIX_FMT_FLAG_ALPHA);
    bool deep = desc && desc->comp[0].depth > 8;
    std::vector<OSType> preference;
    if (alpha) {
        preference =
            deep ? std::vector<OSType>{kCVPixelFormatType_64ARGB, kCVPixelFormatType_32BGRA}
                 : std::vector<OSType>{kCVPixelFormatType_32BGRA, kCVPixelFormatType_64ARGB};
    }
    OSType deepFull = kCVPixelFormatType_420YpCbCr10BiPlanarFullRange;
    OSType deepVideo = kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange;
    OSType eightFull = kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
    OSType eightVideo = kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;
    if (deep) {
        for (OSType c : fullRange ? std::vector<OSType>{deepFull, deepVideo}
                                  : std::vector<OSType>{deepVideo, deepFull}) {
            preference.push_back(c);
        }
    }
    for (OSType c : fullRange ? std::vector<OSType>{eightFull, eightVideo}
                              : std::vector<OSType>{eightVideo, eightFull}) {
        preference.push_back(c);
    }
    for (OSType c : preference) {
        if (contains(requested, c)) return c;
    }
    return requested.front();
}

namespace {

AVPixelFormat swsTargetOf(OSType code) {
    switch (code) {
        case kCVPixelFormatType_32BGRA:
            return AV_PIX_FMT_BGRA;
        case kCVPixelFormatType_64ARGB:
            return AV_PIX_FMT_RGBA64LE;
        case kCVPixelFormatType_420YpCbCr10BiPlanarFullRange:
        case kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange:
            return AV_PIX_FMT_P010LE;
        default:
            return AV_PIX_FMT_YUV420P;
    }
}

bool isFullRangeCode(OSType code) {
    return code == kCVPixelFormatType_420YpCbCr8BiPlanarFullRange ||
           code == kCVPixelFormatType_420YpCbCr10BiPlanarFullRange ||
           code == kCVPixelFormatType_32BGRA || code == kCVPixelFormatType_64ARGB;
}

void interleave10(const AVFrame* f, const CVPixelBuffer& dst) {
    auto row = [](uint8_t* base, std::size_t r, std::size_t stride) {
        return reinterpret_cast<uint16_t*>(base + r * stride);
    };
    const auto& y = dst.plane(0);
    for (std::size_t r = 0; r < y.height; ++r) {
        platform::widenLuma10(row(f->data[0], r, f->linesize[0]), row(y.data, r, y.rowBytes),
                              y.width);
    }
    const auto& c = dst.plane(1);
    for (std::size_t r = 0; r < c.height; ++r) {
        platform::interleaveChroma10(row(f->data[1], r, f->linesize[1]),
                                     row(f->data[2], r, f->linesize[2]), row(c.data, r, c.rowBytes),
                                     c.width);
    }
}

// RGBA 16-bit (either byte order) to A, R, G, B in machine order.
void reorderRGBA64(const uint8_t* data, int linesize, bool bigEndian, const CVPixelBuffer& dst) {
    const auto& p = dst.plane(0);
    for (std::size_t r = 0; r < p.height; ++r) {
        const auto* in = reinterpret_cast<const uint16_t*>(data + r * linesize);
        auto* out = reinterpret_cast<uint16_t*>(p.data + r * p.rowBytes);
        for (std::size_t x = 0; x < p.width; ++x) {
            uint16_t s[4];
            for (int k = 0; k < 4; ++k) {
                uint16_t v = in[4 * x + k];
                s[k] = bigEndian ? static_cast<uint16_t>((v >> 8) | (v << 8)) : v;
            }
            out[4 * x] = s[3];
            out[4 * x + 1] = s[0];
            out[4 * x + 2] = s[1];
            out[4 * x + 3] = s[2];
        }
    }
}

}  // namespace

std::unique_ptr<FrameConverter> FrameConverter::create(std::vector<OSType> requested) {
    std::unique_ptr<FrameConverter> converter(new FrameConverter(std::move(requested)));
    converter->_scratch = av_frame_alloc();
    if (!converter->_scratch) return nullptr;
    return converter;
}

FrameConverter::~FrameConverter() {
    sws_freeContext(_sws);
    av_frame_free(&_scratch);
}

CVPixelBufferRef FrameConverter::convert(AVFrame* f, ErrorRef* error) {
    const bool fullRange = f->color_range == AVCOL_RANGE_JPEG || f->format == AV_PIX_FMT_YUVJ420P;
    const OSType native = ffmpeg_support::nativeCodeOf(f->format, fullRange);
    // The first frame says what the decoder gives; the header alone often does not.
    if (_code == 0) _code = chooseCode(_requested, f->format, fullRange);
    const auto w = static_cast<std::size_t>(f->width), h = static_cast<std::size_t>(f->height);
    const bool threePlanes = f->format == AV_PIX_FMT_YUV420P || f->format == AV_PIX_FMT_YUVJ420P;
    if (native == _code && (f->format == AV_PIX_FMT_NV12 || f->format == AV_PIX_FMT_P010LE ||
                            f->format == AV_PIX_FMT_BGRA || threePlanes)) {
        // The decoder's own memory, kept alive by a reference to its frame: no copy between
        // the decoder and the scaler.
        std::shared_ptr<AVFrame> owner(av_frame_clone(f), [](AVFrame* p) { av_frame_free(&p); });
        if (!owner) return nullptr;
        std::vector<CVPixelBuffer::Plane> planes;
        planes.push_back({f->data[0], w, h, static_cast<std::size_t>(f->linesize[0])});
        const int chromaPlanes = f->format == AV_PIX_FMT_BGRA ? 0 : threePlanes ? 2 : 1;
        for (int p = 1; p <= chromaPlanes; ++p) {
            planes.push_back(
                {f->data[p], (w + 1) / 2, (h + 1) / 2, static_cast<std::size_t>(f->linesize[p])});
        }
        return CVPixelBuffer::createWithPlanes(_code, w, h, std::move(planes), owner);
    }
    if (!_pool || _pool->width() != w || _pool->height() != h) {
        _pool = CVPixelBufferPool::create(_code, w, h);
        // Conversions write 8-bit 4:2:0 as three planes, the layout the encoders take.
        if (_pool) _pool->setSeparateChroma(true);
        if (!_pool) {
            *error = platform::avError(AVErrorDecodeFailed,
                                       "Frames of " + std::to_string(w) + "x" + std::to_string(h) +
                                           " exceed the limit of 16384 pixels on a side");
            return nullptr;
        }
    }
    CVPixelBufferRef out;
    if (_pool->createPixelBuffer(&out) != kCVReturnSuccess) return nullptr;
    if (native == _code && f->format == AV_PIX_FMT_YUV420P10LE) {
        interleave10(f, *out);
        return out;
    }
    if (native == _code && (f->format == AV_PIX_FMT_RGBA64LE || f->format == AV_PIX_FMT_RGBA64BE)) {
        reorderRGBA64(f->data[0], f->linesize[0], f->format == AV_PIX_FMT_RGBA64BE, *out);
        return out;
    }
    // Outside the table: converted as the platform's decoder would, to the code chosen.
    AVPixelFormat target = swsTargetOf(_code);
    _sws = sws_getCachedContext(
        _sws, f->width, f->height, static_cast<AVPixelFormat>(f->format), f->width, f->height,
        target, SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr, nullptr, nullptr);
    if (!_sws) {
        *error = platform::avError(AVErrorDecodeFailed, "No conversion from the frame format");
        return nullptr;
    }
    int space = f->colorspace == AVCOL_SPC_UNSPECIFIED ? SWS_CS_ITU709 : f->colorspace;
    if (space > SWS_CS_BT2020) space = SWS_CS_ITU709;
    sws_setColorspaceDetails(_sws, sws_getCoefficients(space), fullRange ? 1 : 0,
                             sws_getCoefficients(space), isFullRangeCode(_code) ? 1 : 0, 0, 1 << 16,
                             1 << 16);
    if (target == AV_PIX_FMT_RGBA64LE) {
        av_frame_unref(_scratch);
        _scratch->format = target;
        _scratch->width = f->width;
        _scratch->height = f->height;
        if (av_frame_get_buffer(_scratch, 0) < 0) return nullptr;
        sws_scale(_sws, f->data, f->linesize, 0, f->height, _scratch->data, _scratch->linesize);
        reorderRGBA64(_scratch->data[0], _scratch->linesize[0], false, *out);
        return out;
    }
    uint8_t* dst[4] = {nullptr};
    int strides[4] = {0};
    for (std::size_t p = 0; p < out->planeCount(); ++p) {
        dst[p] = static_cast<uint8_t*>(out->baseAddressOfPlane(p));
        strides[p] = static_cast<int>(out->bytesPerRowOfPlane(p));
    }
    if (!out->isPlanar()) {
        dst[0] = static_cast<uint8_t*>(out->baseAddress());
        strides[0] = static_cast<int>(out->bytesPerRow());
    }
    sws_scale(_sws, f->data, f->linesize, 0, f->height, dst, strides);
    return out;
}

}  // namespace ffmpeg_reader
