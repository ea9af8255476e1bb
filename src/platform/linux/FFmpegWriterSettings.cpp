#include "platform/linux/FFmpegWriterSettings.h"

extern "C" {
#include <libavutil/mathematics.h>
}

#include "platform/AVError.h"
#include "platform/AVVideoSettings.h"
#include "platform/linux/FFmpegSupport.h"

using platform::ErrorRef;
using platform::PlistDictionary;
using platform::PlistValue;

namespace ffmpeg_writer {

namespace {

constexpr Container kContainers[] = {
    {AVMovieContainer::quickTimeMovie, "mov"}, {AVMovieContainer::mpeg4, "mp4"},
    {AVMovieContainer::appleM4V, "ipod"},      {AVMovieContainer::threeGPP, "3gp"},
    {AVMovieContainer::threeGPP2, "3g2"},
};

// 8-bit 4:2:0 goes in as three planes, the layout the pipeline's buffers keep from the
// decoder on, so that the encoder takes the drawn frame itself; 4:4:4 for odd sides, which the
// encoder pads to whole blocks and crops back to the exact size in the header. ProRes 4444
// and JPEG take one format whatever the input.
constexpr Encoding kEncodings[] = {
    {AVVideoCodec::h264, "libx264", AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P,
     AV_PIX_FMT_YUV444P, AV_PIX_FMT_YUV444P, false},
    {AVVideoCodec::hevc, "libx265", AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P10LE,
     AV_PIX_FMT_YUV444P, AV_PIX_FMT_YUV444P10LE, false},
    {AVVideoCodec::hevcWithAlpha, nullptr, AV_PIX_FMT_NONE, AV_PIX_FMT_NONE, AV_PIX_FMT_NONE,
     AV_PIX_FMT_NONE, AV_PIX_FMT_NONE, false},
    {AVVideoCodec::proRes4444, "prores_ks", AV_PIX_FMT_YUVA444P10LE, AV_PIX_FMT_YUVA444P10LE,
     AV_PIX_FMT_YUVA444P10LE, AV_PIX_FMT_YUVA444P10LE, AV_PIX_FMT_YUVA444P10LE, false},
    {AVVideoCodec::jpeg, "mjpeg", AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUVJ420P,
     AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUVJ420P, true},
};

}  // namespace

const Container* containerFor(const std::string& fileType) {
    const AVMovieContainerInfo* info = movieContainerWithFileType(fileType);
    if (!info) return nullptr;
    for (const Container& c : kContainers) {
        if (c.container == info->container) return &c;
    }
    return nullptr;
}

const Encoding& encodingOf(AVVideoCodec codec) {
    return kEncodings[static_cast<std::size_t>(codec)];
}

bool isTenBit(OSType code) {
    return code == kCVPixelFormatType_420YpCbCr10BiPlanarFullRange ||
           code == kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange ||
           code == kCVPixelFormatType_64ARGB;
}
bool isBiplanar(OSType code) {
    return code != kCVPixelFormatType_32BGRA && code != kCVPixelFormatType_64ARGB;
}
bool isFullRange(OSType code) {
    return code == kCVPixelFormatType_420YpCbCr8BiPlanarFullRange ||
           code == kCVPixelFormatType_420YpCbCr10BiPlanarFullRange;
}

AVPixelFormat encoderFormatFor(AVVideoCodec codec, OSType input, bool oddSide) {
    const Encoding& e = encodingOf(codec);
    const bool deep = isTenBit(input) && videoCodecInfo(codec).bitDepth > 8;
    if (oddSide) return deep ? e.oddDeep : e.odd8;
    if (deep) return e.evenDeep;
    return isBiplanar(input) && !isTenBit(input) ? e.evenBiplanar8 : e.even8;
}

ErrorRef writeError(int averror, const std::string& what) {
    if (ffmpeg_support::isDiskFull(averror)) {
        return platform::avError(AVErrorDiskFull, "There is not enough space to write the movie",
                                 platform::Error::posixError(AVUNERROR(averror), what));
    }
    return platform::avError(AVErrorUnknown, what + ": " + ffmpeg_support::errorText(averror));
}

int64_t toTimeBase(CMTime t, AVRational tb) {
    if (!CMTIME_IS_NUMERIC(t) || t.timescale <= 0) return AV_NOPTS_VALUE;
    return av_rescale_q_rnd(t.value, AVRational{1, t.timescale}, tb,
                            static_cast<AVRounding>(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX));
}

}  // namespace ffmpeg_writer
