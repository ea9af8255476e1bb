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
    {AVFileTypeQuickTimeMovie, "mov", true, false}, {AVFileTypeMPEG4, "mp4", false, false},
    {AVFileTypeAppleM4V, "ipod", false, false},     {AVFileType3GPP, "3gp", false, true},
    {AVFileType3GPP2, "3g2", false, true},
};

}  // namespace

const Container* containerFor(const std::string& fileType) {
    for (const Container& c : kContainers) {
        if (fileType == c.fileType) return &c;
    }
    return nullptr;
}

std::optional<VideoConfig> videoConfigOf(const PlistDictionary& settings) {
    VideoConfig c;
    const PlistValue& codec =
        settings.count(AVVideoCodecKey) ? settings.at(AVVideoCodecKey) : PlistValue();
    if (!codec.string()) return std::nullopt;
    c.codec = *codec.string();
    auto number = [](const PlistDictionary& d, const char* key, double fallback) {
        auto it = d.find(key);
        return it != d.end() && it->second.isNumber() ? it->second.doubleValue() : fallback;
    };
    c.width = static_cast<int>(number(settings, AVVideoWidthKey, 0));
    c.height = static_cast<int>(number(settings, AVVideoHeightKey, 0));
    if (auto it = settings.find(AVVideoColorPropertiesKey);
        it != settings.end() && it->second.dictionary()) {
        const PlistDictionary& color = *it->second.dictionary();
        auto text = [&](const char* key) -> std::optional<std::string> {
            auto found = color.find(key);
            if (found == color.end() || !found->second.string()) return std::nullopt;
            return *found->second.string();
        };
        c.primaries = text(AVVideoColorPrimariesKey);
        c.transfer = text(AVVideoTransferFunctionKey);
        c.matrix = text(AVVideoYCbCrMatrixKey);
    }
    if (auto it = settings.find(AVVideoCompressionPropertiesKey);
        it != settings.end() && it->second.dictionary()) {
        const PlistDictionary& p = *it->second.dictionary();
        c.bitRate = number(p, AVVideoAverageBitRateKey, 0);
        c.frameRate = number(p, AVVideoExpectedSourceFrameRateKey, 0);
        c.keyFrameInterval = static_cast<int>(number(p, AVVideoMaxKeyFrameIntervalKey, 0));
        c.quality = number(p, AVVideoQualityKey, -1);
        if (auto r = p.find(AVVideoAllowFrameReorderingKey); r != p.end() && r->second.isNumber()) {
            c.allowReordering = r->second.boolValue();
        }
        if (auto s = p.find(AVVideoPixelAspectRatioKey); s != p.end() && s->second.dictionary()) {
            const PlistDictionary& sar = *s->second.dictionary();
            c.sarNum =
                static_cast<int>(number(sar, AVVideoPixelAspectRatioHorizontalSpacingKey, 1));
            c.sarDen = static_cast<int>(number(sar, AVVideoPixelAspectRatioVerticalSpacingKey, 1));
        }
        auto text = [&](const char* key) {
            auto found = p.find(key);
            return found != p.end() && found->second.string() ? *found->second.string()
                                                              : std::string();
        };
        c.speedPreset = text(UWVideoEncoderSpeedPresetKey);
        c.parameters = text(UWVideoEncoderParametersKey);
        c.profile = text(AVVideoProfileLevelKey);
    }
    return c;
}

const char* encoderNameFor(const std::string& codec) {
    if (codec == AVVideoCodecTypeH264) return "libx264";
    if (codec == AVVideoCodecTypeHEVC) return "libx265";
    if (codec == AVVideoCodecTypeAppleProRes4444) return "prores_ks";
    if (codec == AVVideoCodecTypeJPEG) return "mjpeg";
    return nullptr;
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

AVPixelFormat encoderFormatFor(const std::string& codec, OSType input, bool oddSide) {
    if (codec == AVVideoCodecTypeAppleProRes4444) return AV_PIX_FMT_YUVA444P10LE;
    if (codec == AVVideoCodecTypeJPEG) return AV_PIX_FMT_YUVJ420P;
    const bool tenBit = isTenBit(input) && codec != AVVideoCodecTypeH264;
    if (oddSide) return tenBit ? AV_PIX_FMT_YUV444P10LE : AV_PIX_FMT_YUV444P;
    if (tenBit) return AV_PIX_FMT_YUV420P10LE;
    if (codec == AVVideoCodecTypeH264 && isBiplanar(input) && !isTenBit(input)) {
        return AV_PIX_FMT_NV12;
    }
    return AV_PIX_FMT_YUV420P;
}

bool takesOddSides(const std::string& codec) {
    return codec == AVVideoCodecTypeAppleProRes4444 || codec == AVVideoCodecTypeH264 ||
           codec == AVVideoCodecTypeHEVC;
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
