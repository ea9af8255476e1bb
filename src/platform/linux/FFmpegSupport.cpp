#include "platform/linux/FFmpegSupport.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
}

#include <cerrno>
#include <cstdio>
#include <mutex>

#include "platform/AVError.h"
#include "platform/AVMediaFormat.h"
#include "platform/AVVideoSettings.h"
#include "platform/Log.h"

CMFormatDescription::Backing::~Backing() {
    avcodec_parameters_free(&parameters);
}

CMSampleBuffer::Backing::~Backing() {
    av_packet_free(&packet);
}

namespace ffmpeg_support {

namespace {

constexpr unsigned kMaxStreams = 64;

// Demuxers of movie and audio files; playlists and concatenation lists, which would open other
// files, are not among them.
constexpr const char* kFormatWhitelist =
    "mov,mp4,m4a,3gp,3g2,mj2,matroska,webm,avi,mpegts,mpeg,mp3,aac,wav,flac,ogg,mjpeg";

void logCallback(void*, int level, const char* format, va_list args) {
    if (level > AV_LOG_ERROR) return;
    char line[1024];
    std::vsnprintf(line, sizeof line, format, args);
    std::string text(line);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    if (!text.empty()) platform::log("~~ ffmpeg: " + text);
}

}  // namespace

void installLogging() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_callback(logCallback); });
}

std::string errorText(int averror) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {0};
    av_strerror(averror, text, sizeof text);
    return std::string(text) + " (" + std::to_string(averror) + ")";
}

platform::ErrorRef openError(int averror, const std::string& path) {
    if (averror == AVERROR(ENOENT) || averror == AVERROR(EACCES) || averror == AVERROR(EISDIR)) {
        return platform::Error::posixError(AVUNERROR(averror), "open", path);
    }
    if (averror == AVERROR_INVALIDDATA) {
        return platform::avError(AVErrorFileFormatNotRecognized,
                                 "The file is not a movie this platform can open: " + path);
    }
    return platform::avError(AVErrorFileFailedToParse,
                             "The movie could not be read: " + errorText(averror));
}

bool isDiskFull(int averror) {
    return averror == AVERROR(ENOSPC) || averror == AVERROR(EFBIG) || averror == AVERROR(EDQUOT);
}

AVFormatContext* openInput(const std::string& path, bool findStreamInfo,
                           platform::ErrorRef* error) {
    installLogging();
    AVFormatContext* context = avformat_alloc_context();
    if (!context) {
        if (error) *error = platform::avError(AVErrorUnknown, "Out of memory");
        return nullptr;
    }
    AVDictionary* options = nullptr;
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    av_dict_set(&options, "format_whitelist", kFormatWhitelist, 0);
    int ret = avformat_open_input(&context, path.c_str(), nullptr, &options);
    av_dict_free(&options);
    if (ret < 0) {
        if (error) *error = openError(ret, path);
        return nullptr;
    }
    if (context->nb_streams > kMaxStreams) {
        if (error) {
            *error = platform::avError(
                AVErrorFileFailedToParse,
                "A movie may not have more than " + std::to_string(kMaxStreams) +
                    " tracks, but this one has " + std::to_string(context->nb_streams) +
                    ". Possibly a corrupt file?");
        }
        avformat_close_input(&context);
        return nullptr;
    }
    if (findStreamInfo) {
        ret = avformat_find_stream_info(context, nullptr);
        if (ret < 0) {
            if (error) *error = openError(ret, path);
            avformat_close_input(&context);
            return nullptr;
        }
    }
    return context;
}

void closeInput(AVFormatContext** context) {
    avformat_close_input(context);
}

std::vector<std::int32_t> trackIDsOf(const AVFormatContext* context) {
    std::vector<std::int32_t> ids;
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        const AVStream* st = context->streams[i];
        if (mediaTypeOf(context, st).empty()) {
            ids.push_back(0);
            continue;
        }
        std::int32_t id = st->id > 0 ? st->id : static_cast<std::int32_t>(i + 1);
        for (std::int32_t used : ids) {
            if (used == id) id = static_cast<std::int32_t>(1000 + i);
        }
        ids.push_back(id);
    }
    return ids;
}

std::string mediaTypeOf(const AVFormatContext* context, const AVStream* st) {
    const AVCodecParameters* par = st->codecpar;
    switch (par->codec_type) {
        case AVMEDIA_TYPE_VIDEO:
            if (st->disposition & AV_DISPOSITION_ATTACHED_PIC) return {};
            return AVMediaTypeVideo;
        case AVMEDIA_TYPE_AUDIO:
            return AVMediaTypeAudio;
        case AVMEDIA_TYPE_SUBTITLE:
            if (par->codec_id == AV_CODEC_ID_EIA_608) return AVMediaTypeClosedCaption;
            if (par->codec_tag == MKTAG('t', 'e', 'x', 't')) return AVMediaTypeText;
            if (par->codec_id == AV_CODEC_ID_MOV_TEXT && context->iformat &&
                std::string(context->iformat->name).find("mov") != std::string::npos &&
                par->codec_tag != MKTAG('t', 'x', '3', 'g')) {
                return AVMediaTypeText;
            }
            return AVMediaTypeSubtitle;
        case AVMEDIA_TYPE_DATA:
            if (par->codec_tag == MKTAG('t', 'm', 'c', 'd')) return AVMediaTypeTimecode;
            return AVMediaTypeMetadata;
        case AVMEDIA_TYPE_ATTACHMENT:
        default:
            return {};
    }
}

OSType nativeCodeOf(int avPixelFormat, bool fullRange) {
    switch (avPixelFormat) {
        case AV_PIX_FMT_NV12:
        case AV_PIX_FMT_YUV420P:
            return fullRange ? kCVPixelFormatType_420YpCbCr8BiPlanarFullRange
                             : kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;
        case AV_PIX_FMT_YUVJ420P:
            return kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
        case AV_PIX_FMT_P010LE:
        case AV_PIX_FMT_YUV420P10LE:
            return fullRange ? kCVPixelFormatType_420YpCbCr10BiPlanarFullRange
                             : kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange;
        case AV_PIX_FMT_BGRA:
            return kCVPixelFormatType_32BGRA;
        case AV_PIX_FMT_RGBA64LE:
        case AV_PIX_FMT_RGBA64BE:
            return kCVPixelFormatType_64ARGB;
        default:
            return 0;
    }
}

namespace {

struct Named {
    int value;
    const char* name;
};

// First match wins in both directions, so the preferred FFmpeg value of a name comes first.
constexpr Named kPrimaries[] = {
    {AVCOL_PRI_BT709, AVVideoColorPrimaries_ITU_R_709_2},
    {AVCOL_PRI_BT470BG, AVVideoColorPrimaries_EBU_3213},
    {AVCOL_PRI_SMPTE170M, AVVideoColorPrimaries_SMPTE_C},
    {AVCOL_PRI_SMPTE240M, AVVideoColorPrimaries_SMPTE_C},
    {AVCOL_PRI_SMPTE432, AVVideoColorPrimaries_P3_D65},
    {AVCOL_PRI_SMPTE431, AVVideoColorPrimaries_DCI_P3},
    {AVCOL_PRI_BT2020, AVVideoColorPrimaries_ITU_R_2020},
};
constexpr Named kTransfers[] = {
    {AVCOL_TRC_BT709, AVVideoTransferFunction_ITU_R_709_2},
    {AVCOL_TRC_SMPTE170M, AVVideoTransferFunction_ITU_R_709_2},
    {AVCOL_TRC_BT2020_10, AVVideoTransferFunction_ITU_R_709_2},
    {AVCOL_TRC_BT2020_12, AVVideoTransferFunction_ITU_R_709_2},
    {AVCOL_TRC_SMPTE240M, AVVideoTransferFunction_SMPTE_240M_1995},
    {AVCOL_TRC_SMPTE2084, AVVideoTransferFunction_SMPTE_ST_2084_PQ},
    {AVCOL_TRC_ARIB_STD_B67, AVVideoTransferFunction_ITU_R_2100_HLG},
    {AVCOL_TRC_LINEAR, AVVideoTransferFunction_Linear},
    {AVCOL_TRC_IEC61966_2_1, AVVideoTransferFunction_IEC_sRGB},
};
constexpr Named kMatrices[] = {
    {AVCOL_SPC_BT709, AVVideoYCbCrMatrix_ITU_R_709_2},
    {AVCOL_SPC_SMPTE170M, AVVideoYCbCrMatrix_ITU_R_601_4},
    {AVCOL_SPC_BT470BG, AVVideoYCbCrMatrix_ITU_R_601_4},
    {AVCOL_SPC_SMPTE240M, AVVideoYCbCrMatrix_SMPTE_240M_1995},
    {AVCOL_SPC_BT2020_NCL, AVVideoYCbCrMatrix_ITU_R_2020},
};

template <std::size_t N>
std::optional<std::string> nameOf(const Named (&table)[N], int value) {
    for (const Named& n : table) {
        if (n.value == value) return std::string(n.name);
    }
    return std::nullopt;
}

template <std::size_t N>
int valueOf(const Named (&table)[N], const std::string& name) {
    for (const Named& n : table) {
        if (name == n.name) return n.value;
    }
    return -1;
}

}  // namespace

std::optional<std::string> primariesName(int value) {
    return nameOf(kPrimaries, value);
}
std::optional<std::string> transferName(int value) {
    return nameOf(kTransfers, value);
}
std::optional<std::string> matrixName(int value) {
    return nameOf(kMatrices, value);
}
int primariesValue(const std::string& name) {
    return valueOf(kPrimaries, name);
}
int transferValue(const std::string& name) {
    return valueOf(kTransfers, name);
}
int matrixValue(const std::string& name) {
    return valueOf(kMatrices, name);
}

CMTime timeFromStream(std::int64_t timestamp, int num, int den) {
    if (timestamp == AV_NOPTS_VALUE || num <= 0 || den <= 0) return kCMTimeInvalid;
    if (num == 1) return CMTimeMake(timestamp, den);
    return CMTimeMake(av_rescale_q(timestamp, AVRational{num, den}, AVRational{1, 90000}), 90000);
}

CMFormatDescriptionRef formatDescriptionOf(const AVFormatContext* context, const AVStream* st) {
    const AVCodecParameters* par = st->codecpar;
    auto format = std::make_shared<CMFormatDescription>();
    format->mediaType = mediaTypeOf(context, st);
    format->codecName = avcodec_get_name(par->codec_id);
    switch (par->codec_id) {
        case AV_CODEC_ID_H264:
            format->mediaSubType = kCMVideoCodecType_H264;
            break;
        case AV_CODEC_ID_HEVC:
            format->mediaSubType = kCMVideoCodecType_HEVC;
            break;
        case AV_CODEC_ID_AAC:
            format->mediaSubType = kAudioFormatMPEG4AAC;
            break;
        default:
            format->mediaSubType = par->codec_tag ? ((par->codec_tag & 0xff) << 24) |
                                                        ((par->codec_tag >> 8 & 0xff) << 16) |
                                                        ((par->codec_tag >> 16 & 0xff) << 8) |
                                                        (par->codec_tag >> 24 & 0xff)
                                                  : 0;
    }
    if (par->codec_type == AVMEDIA_TYPE_VIDEO) {
        format->dimensions = {par->width, par->height};
        const AVPixFmtDescriptor* desc =
            av_pix_fmt_desc_get(static_cast<AVPixelFormat>(par->format));
        format->fullRangeVideo = par->color_range == AVCOL_RANGE_JPEG ||
                                 par->format == AV_PIX_FMT_YUVJ420P ||
                                 (desc && (desc->flags & AV_PIX_FMT_FLAG_RGB));
        format->pixelFormat = nativeCodeOf(par->format, format->fullRangeVideo);
        if (desc) {
            format->bitsPerComponent = desc->comp[0].depth;
            format->containsAlpha = (desc->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
        } else if (par->bits_per_raw_sample > 0) {
            format->bitsPerComponent = par->bits_per_raw_sample;
        }
        format->colorPrimaries = primariesName(par->color_primaries);
        format->transferFunction = transferName(par->color_trc);
        format->yCbCrMatrix = matrixName(par->color_space);
    } else if (par->codec_type == AVMEDIA_TYPE_AUDIO) {
        format->sampleRate = par->sample_rate;
        format->channelCount = par->ch_layout.nb_channels;
    }
    auto backing = std::make_shared<CMFormatDescription::Backing>();
    backing->parameters = avcodec_parameters_alloc();
    if (backing->parameters && avcodec_parameters_copy(backing->parameters, par) >= 0) {
        backing->timeBaseNum = st->time_base.num;
        backing->timeBaseDen = st->time_base.den;
        backing->frameRateNum = st->avg_frame_rate.num;
        backing->frameRateDen = st->avg_frame_rate.den;
        format->backing = std::move(backing);
    }
    return format;
}

}  // namespace ffmpeg_support
