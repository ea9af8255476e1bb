#include <cstdint>
#include <vector>

extern "C" {
#include <libswscale/swscale.h>
}

#include "platform/linux/FFmpegSupport.h"
#include "platform/linux/FramePicture.h"

namespace platform::media {

std::optional<Bitmap> pictureOfYCbCrFrame(const CVPixelBuffer& frame) {
    const OSType code = frame.pixelFormatType();
    const bool tenBit = code == kCVPixelFormatType_420YpCbCr10BiPlanarFullRange ||
                        code == kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange;
    const bool fullRange = code == kCVPixelFormatType_420YpCbCr8BiPlanarFullRange ||
                           code == kCVPixelFormatType_420YpCbCr10BiPlanarFullRange;
    if (!tenBit && !fullRange && code != kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange)
        return std::nullopt;
    const AVPixelFormat source = tenBit                      ? AV_PIX_FMT_P010LE
                                 : frame.hasSeparateChroma() ? AV_PIX_FMT_YUV420P
                                                             : AV_PIX_FMT_NV12;
    const int w = static_cast<int>(frame.width()), h = static_cast<int>(frame.height());
    // The flags and colour details of the reader's own conversion to BGRA.
    SwsContext* sws = sws_getContext(w, h, source, w, h, AV_PIX_FMT_RGBA,
                                     SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr,
                                     nullptr, nullptr);
    if (!sws) return std::nullopt;
    int space = frame.yCbCrMatrix() ? ffmpeg_support::matrixValue(*frame.yCbCrMatrix()) : -1;
    if (space <= 0 || space > SWS_CS_BT2020) space = SWS_CS_ITU709;
    sws_setColorspaceDetails(sws, sws_getCoefficients(space), fullRange ? 1 : 0,
                             sws_getCoefficients(space), 1, 0, 1 << 16, 1 << 16);
    const std::uint8_t* from[4] = {nullptr};
    int fromStrides[4] = {0};
    for (std::size_t p = 0; p < frame.planeCount() && p < 3; ++p) {
        from[p] = static_cast<const std::uint8_t*>(frame.baseAddressOfPlane(p));
        fromStrides[p] = static_cast<int>(frame.bytesPerRowOfPlane(p));
    }
    std::vector<std::uint8_t> pixels(frame.width() * frame.height() * 4);
    std::uint8_t* to[4] = {pixels.data(), nullptr, nullptr, nullptr};
    int toStrides[4] = {w * 4, 0, 0, 0};
    sws_scale(sws, from, fromStrides, 0, h, to, toStrides);
    sws_freeContext(sws);
    PixelLayout layout;
    layout.alphaInfo = kCGImageAlphaNoneSkipLast;
    return Bitmap(frame.width(), frame.height(), layout, ColorSpace::deviceRGB(),
                  std::move(pixels));
}

}  // namespace platform::media
