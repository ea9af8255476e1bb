#include <array>
#include <cstring>

extern "C" {
#include <libavutil/imgutils.h>
}

#include "platform/linux/FFmpegFrameConversion.h"
#include "platform/linux/PlaneInterleave.h"

using namespace ffmpeg_writer;

namespace {

// Biplanar 4:2:0 to three planes; 10-bit samples move from the high bits to the low ones.
void deinterleave(const CVPixelBuffer& src, AVFrame* dst, bool tenBit) {
    const auto& y = src.plane(0);
    const auto& c = src.plane(1);
    auto words = [](uint8_t* base, std::size_t r, std::size_t stride) {
        return reinterpret_cast<uint16_t*>(base + r * stride);
    };
    for (std::size_t r = 0; r < y.height; ++r) {
        if (tenBit) {
            platform::narrowLuma10(words(y.data, r, y.rowBytes),
                                   words(dst->data[0], r, dst->linesize[0]), y.width);
        } else {
            std::memcpy(dst->data[0] + r * dst->linesize[0], y.data + r * y.rowBytes, y.width);
        }
    }
    for (std::size_t r = 0; r < c.height; ++r) {
        if (tenBit) {
            platform::deinterleaveChroma10(words(c.data, r, c.rowBytes),
                                           words(dst->data[1], r, dst->linesize[1]),
                                           words(dst->data[2], r, dst->linesize[2]), c.width);
        } else {
            platform::deinterleaveChroma8(c.data + r * c.rowBytes,
                                          dst->data[1] + r * dst->linesize[1],
                                          dst->data[2] + r * dst->linesize[2], c.width);
        }
    }
}

// A, R, G, B words to FFmpeg's R, G, B, A.
void argbToRGBA64(const CVPixelBuffer& src, AVFrame* dst) {
    const auto& p = src.plane(0);
    for (std::size_t r = 0; r < p.height; ++r) {
        const auto* in = reinterpret_cast<const uint16_t*>(p.data + r * p.rowBytes);
        auto* out = reinterpret_cast<uint16_t*>(dst->data[0] + r * dst->linesize[0]);
        for (std::size_t x = 0; x < p.width; ++x) {
            out[4 * x] = in[4 * x + 1];
            out[4 * x + 1] = in[4 * x + 2];
            out[4 * x + 2] = in[4 * x + 3];
            out[4 * x + 3] = in[4 * x];
        }
    }
}

struct PlanePointers {
    std::array<const uint8_t*, 4> data{};
    std::array<int, 4> strides{};
};

PlanePointers planesOf(const CVPixelBuffer& buffer) {
    PlanePointers p;
    for (std::size_t i = 0; i < buffer.planeCount() && i < 4; ++i) {
        p.data[i] = static_cast<const uint8_t*>(buffer.baseAddressOfPlane(i));
        p.strides[i] = static_cast<int>(buffer.bytesPerRowOfPlane(i));
    }
    return p;
}

void releaseBuffer(void* opaque, uint8_t*) {
    delete static_cast<CVPixelBufferRef*>(opaque);
}

// The kept frame in the encoder's format, ready to be written: an encoder that still holds the
// last one (a frame-threaded one may) gets its own copy instead.
int convertedFrame(Encoder& e) {
    if (e.converted) return av_frame_make_writable(e.converted);
    e.converted = av_frame_alloc();
    if (!e.converted) return AVERROR(ENOMEM);
    e.converted->format = e.context->pix_fmt;
    e.converted->width = e.context->width;
    e.converted->height = e.context->height;
    return av_frame_get_buffer(e.converted, 0);
}

}  // namespace

int fillEncoderFrame(Encoder& e, AVFrame* frame, const CVPixelBufferRef& buffer) {
    AVCodecContext* ctx = e.context;
    const OSType code = buffer->pixelFormatType();
    int ret = 0;
    const bool threePlanes = ctx->pix_fmt == AV_PIX_FMT_YUV420P ||
                             (ctx->pix_fmt == AV_PIX_FMT_YUVJ420P && isFullRange(code));
    const bool handOver = isBiplanar(code) && !isTenBit(code) &&
                          ((ctx->pix_fmt == AV_PIX_FMT_NV12 && !buffer->hasSeparateChroma()) ||
                           (threePlanes && buffer->hasSeparateChroma()));
    if (handOver) {
        // The pixel buffer itself, kept alive by the frame.
        frame->buf[0] = av_buffer_create(static_cast<uint8_t*>(buffer->baseAddressOfPlane(0)), 1,
                                         releaseBuffer, new CVPixelBufferRef(buffer), 0);
        if (!frame->buf[0]) ret = AVERROR(ENOMEM);
        for (std::size_t p = 0; p < buffer->planeCount(); ++p) {
            frame->data[p] = static_cast<uint8_t*>(buffer->baseAddressOfPlane(p));
            frame->linesize[p] = static_cast<int>(buffer->bytesPerRowOfPlane(p));
        }
    } else if ((ret = convertedFrame(e)) >= 0 && (ret = av_frame_ref(frame, e.converted)) >= 0) {
        bool direct = isBiplanar(code) &&
                      (ctx->pix_fmt == AV_PIX_FMT_YUV420P || ctx->pix_fmt == AV_PIX_FMT_YUVJ420P ||
                       ctx->pix_fmt == AV_PIX_FMT_YUV420P10LE) &&
                      isTenBit(code) == (ctx->pix_fmt == AV_PIX_FMT_YUV420P10LE);
        if (direct && buffer->hasSeparateChroma()) {
            PlanePointers source = planesOf(*buffer);
            av_image_copy(frame->data, frame->linesize, source.data.data(), source.strides.data(),
                          AV_PIX_FMT_YUV420P, ctx->width, ctx->height);
        } else if (direct) {
            deinterleave(*buffer, frame, isTenBit(code));
        } else {
            // Colour conversion (RGB sources, ProRes 4:4:4, JPEG from 10-bit) through swscale.
            AVPixelFormat srcFormat;
            const uint8_t* srcData[4] = {nullptr};
            int srcStride[4] = {0};
            if (code == kCVPixelFormatType_64ARGB) {
                if (!e.rgba) {
                    e.rgba = av_frame_alloc();
                    e.rgba->format = AV_PIX_FMT_RGBA64LE;
                    e.rgba->width = ctx->width;
                    e.rgba->height = ctx->height;
                    if (!e.rgba || av_frame_get_buffer(e.rgba, 0) < 0) ret = AVERROR(ENOMEM);
                }
                if (ret >= 0) argbToRGBA64(*buffer, e.rgba);
                srcFormat = AV_PIX_FMT_RGBA64LE;
                srcData[0] = e.rgba->data[0];
                srcStride[0] = e.rgba->linesize[0];
            } else if (code == kCVPixelFormatType_32BGRA) {
                srcFormat = AV_PIX_FMT_BGRA;
                srcData[0] = static_cast<const uint8_t*>(buffer->baseAddress());
                srcStride[0] = static_cast<int>(buffer->bytesPerRow());
            } else {
                srcFormat = isTenBit(code)                ? AV_PIX_FMT_P010LE
                            : buffer->hasSeparateChroma() ? AV_PIX_FMT_YUV420P
                                                          : AV_PIX_FMT_NV12;
                for (std::size_t p = 0; p < buffer->planeCount(); ++p) {
                    srcData[p] = static_cast<const uint8_t*>(buffer->baseAddressOfPlane(p));
                    srcStride[p] = static_cast<int>(buffer->bytesPerRowOfPlane(p));
                }
            }
            e.sws = sws_getCachedContext(
                e.sws, ctx->width, ctx->height, srcFormat, ctx->width, ctx->height, ctx->pix_fmt,
                SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr, nullptr, nullptr);
            if (!e.sws) ret = AVERROR(EINVAL);
            if (ret >= 0) {
                int space =
                    ctx->colorspace == AVCOL_SPC_UNSPECIFIED ? SWS_CS_ITU709 : ctx->colorspace;
                bool srcFull = !isBiplanar(code) || isFullRange(code);
                sws_setColorspaceDetails(
                    e.sws, sws_getCoefficients(space), srcFull ? 1 : 0, sws_getCoefficients(space),
                    ctx->color_range == AVCOL_RANGE_JPEG ? 1 : 0, 0, 1 << 16, 1 << 16);
                sws_scale(e.sws, srcData, srcStride, 0, ctx->height, frame->data, frame->linesize);
            }
        }
    }
    return ret;
}
