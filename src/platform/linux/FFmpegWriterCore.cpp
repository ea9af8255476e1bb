#include <cstring>

extern "C" {
#include <libavutil/display.h>
}

#include "platform/AVError.h"
#include "platform/AVVideoSettings.h"
#include "platform/linux/FFmpegMetadataMapping.h"
#include "platform/linux/FFmpegSupport.h"
#include "platform/linux/FFmpegWriterCore.h"

using platform::ErrorRef;
using namespace ffmpeg_writer;

namespace {

// The encoder's private options (speed preset, profile, extra parameters) and the settings
// that only one codec takes.
AVDictionary* encoderOptions(const AVVideoEncoderSettings& c, AVCodecContext* ctx) {
    AVDictionary* options = nullptr;
    switch (c.codec) {
        case AVVideoCodec::h264: {
            av_dict_set(&options, "preset",
                        c.speedPreset.empty() ? "medium" : c.speedPreset.c_str(), 0);
            const char* profile = "high";
            if (ctx->pix_fmt == AV_PIX_FMT_YUV444P) {
                profile = "high444";
            } else if (c.profile == AVVideoProfileLevelH264MainAutoLevel) {
                profile = "main";
            }
            av_dict_set(&options, "profile", profile, 0);
            if (!c.parameters.empty()) {
                av_dict_set(&options, "x264-params", c.parameters.c_str(), 0);
            }
            break;
        }
        case AVVideoCodec::hevc: {
            av_dict_set(&options, "preset",
                        c.speedPreset.empty() ? "medium" : c.speedPreset.c_str(), 0);
            std::string params = "log-level=error";
            if (!c.parameters.empty()) params += ":" + c.parameters;
            av_dict_set(&options, "x265-params", params.c_str(), 0);
            ctx->codec_tag = MKTAG('h', 'v', 'c', '1');
            break;
        }
        case AVVideoCodec::proRes4444:
            av_dict_set(&options, "profile", "4444", 0);
            av_dict_set(&options, "alpha_bits", "16", 0);
            break;
        case AVVideoCodec::jpeg: {
            double q = c.quality >= 0 ? std::clamp(c.quality, 0.0, 1.0) : 0.8;
            ctx->flags |= AV_CODEC_FLAG_QSCALE;
            ctx->global_quality = static_cast<int>(FF_QP2LAMBDA * (1.0 + (1.0 - q) * 30.0));
            break;
        }
        case AVVideoCodec::hevcWithAlpha:
            break;
    }
    return options;
}

}  // namespace

bool WriterCore::openEncoderLocked(AVAssetWriterInput::Impl& in, int timescale, ErrorRef* err) {
    const AVVideoEncoderSettings& c = *in.video;
    const Encoding& encoding = encodingOf(c.codec);
    const AVCodec* codec =
        encoding.encoder ? avcodec_find_encoder_by_name(encoding.encoder) : nullptr;
    if (!codec) {
        *err = platform::avError(AVErrorEncoderNotFound,
                                 std::string("No encoder for ") + videoCodecInfo(c.codec).name);
        return false;
    }
    auto encoder = std::make_unique<Encoder>();
    encoder->input =
        in.adaptorFormat ? in.adaptorFormat : kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;
    encoder->format = encoderFormatFor(c.codec, encoder->input, c.width % 2 || c.height % 2);
    AVCodecContext* ctx = avcodec_alloc_context3(codec);
    encoder->context = ctx;
    if (!ctx) {
        *err = platform::avError(AVErrorUnknown, "Out of memory");
        return false;
    }
    ctx->width = c.width;
    ctx->height = c.height;
    ctx->pix_fmt = encoder->format;
    ctx->time_base = AVRational{1, timescale};
    if (c.frameRate > 0) ctx->framerate = av_d2q(c.frameRate, 1000000);
    ctx->sample_aspect_ratio = AVRational{std::max(1, c.sarNum), std::max(1, c.sarDen)};
    if (c.bitRate > 0 && videoCodecInfo(c.codec).takesBitRate) {
        ctx->bit_rate = static_cast<int64_t>(c.bitRate);
    }
    if (c.keyFrameInterval > 0) ctx->gop_size = c.keyFrameInterval;
    if (!c.allowReordering) ctx->max_b_frames = 0;
    ctx->thread_count = 0;
    bool full = isFullRange(encoder->input) || encoding.fullRange;
    ctx->color_range = full ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    int pri = c.primaries ? ffmpeg_support::primariesValue(*c.primaries) : -1;
    int trc = c.transfer ? ffmpeg_support::transferValue(*c.transfer) : -1;
    int spc = c.matrix ? ffmpeg_support::matrixValue(*c.matrix) : -1;
    if (pri >= 0) ctx->color_primaries = static_cast<AVColorPrimaries>(pri);
    if (trc >= 0) ctx->color_trc = static_cast<AVColorTransferCharacteristic>(trc);
    if (spc >= 0) ctx->colorspace = static_cast<AVColorSpace>(spc);
    if (output->oformat->flags & AVFMT_GLOBALHEADER) ctx->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;

    AVDictionary* options = encoderOptions(c, ctx);
    int ret = avcodec_open2(ctx, codec, &options);
    av_dict_free(&options);
    if (ret < 0) {
        *err = platform::avError(AVErrorUnknown,
                                 "The encoder could not open: " + ffmpeg_support::errorText(ret));
        return false;
    }
    if (ctx->framerate.num > 0 && ctx->framerate.den > 0) {
        encoder->frameDuration = av_rescale_q(1, av_inv_q(ctx->framerate), ctx->time_base);
    }
    in.encoder = std::move(encoder);
    return true;
}

bool WriterCore::addStreamsLocked(AVAssetWriterInput* trigger, int timescale, ErrorRef* err) {
    for (auto& inputRef : inputs) {
        AVAssetWriterInput::Impl& in = inputRef->impl();
        AVStream* st = avformat_new_stream(output, nullptr);
        if (!st) {
            *err = platform::avError(AVErrorUnknown, "Out of memory");
            return false;
        }
        in.streamIndex = st->index;
        if (in.video) {
            int scale = inputRef.get() == trigger ? timescale : 90000;
            if (!openEncoderLocked(in, scale, err)) return false;
            avcodec_parameters_from_context(st->codecpar, in.encoder->context);
            st->time_base = in.encoder->context->time_base;
            st->sample_aspect_ratio = in.encoder->context->sample_aspect_ratio;
        } else {
            const auto& backing = in.hint->backing;
            avcodec_parameters_copy(st->codecpar, backing->parameters);
            unsigned tag = st->codecpar->codec_tag;
            const AVOutputFormat* of = output->oformat;
            bool keepTag = tag == MKTAG('t', 'm', 'c', 'd') || !of->codec_tag ||
                           av_codec_get_id(of->codec_tag, tag) == st->codecpar->codec_id;
            if (!keepTag) st->codecpar->codec_tag = 0;
            st->time_base = AVRational{backing->timeBaseNum, backing->timeBaseDen};
            st->avg_frame_rate = AVRational{backing->frameRateNum, backing->frameRateDen};
        }
        in.streamTimeBase = st->time_base;
        const CGAffineTransform& t = in.transform;
        if (!(t == CGAffineTransformIdentity)) {
            auto* matrix = reinterpret_cast<int32_t*>(
                av_stream_new_side_data(st, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(int32_t)));
            if (matrix) {
                auto fixed = [](double v) {
                    return static_cast<int32_t>(std::lround(v * 65536.0));
                };
                int32_t m[9] = {fixed(t.a), fixed(t.b),  0,           fixed(t.c), fixed(t.d),
                                0,          fixed(t.tx), fixed(t.ty), 1 << 30};
                std::memcpy(matrix, m, sizeof m);
            }
        }
        MappedMetadata trackMeta = mapMetadata(in.metadata);
        st->metadata = trackMeta.dict;
    }
    return true;
}

bool WriterCore::ensureHeader(AVAssetWriterInput* trigger, int timescale) {
    std::lock_guard<std::mutex> lock(mutex);
    if (headerWritten) return true;
    if (status != AVAssetWriterStatusWriting) return false;
    ErrorRef err;
    if (!addStreamsLocked(trigger, timescale > 0 ? timescale : 90000, &err)) {
        failLocked(err);
        return false;
    }
    MappedMetadata movie = mapMetadata(metadata);
    output->metadata = movie.dict;
    AVDictionary* options = nullptr;
    if (movie.quickTimeKeys) av_dict_set(&options, "movflags", "use_metadata_tags", 0);
    // libavformat stamps its own name as the encoder when it sets up; ours goes on after.
    const AVDictionaryEntry* software = av_dict_get(movie.dict, "encoder", nullptr, 0);
    std::string softwareName = software ? software->value : "";
    int ret = avformat_init_output(output, &options);
    if (ret >= 0 && !softwareName.empty()) {
        av_dict_set(&output->metadata, "encoder", softwareName.c_str(), 0);
    }
    if (ret >= 0) ret = avformat_write_header(output, &options);
    av_dict_free(&options);
    if (ret < 0) {
        failLocked(writeError(ret, "Writing the movie header"));
        return false;
    }
    headerWritten = true;
    for (auto& input : inputs) {
        AVAssetWriterInput::Impl& in = input->impl();
        // The muxer may have chosen a finer time base for the stream.
        in.streamTimeBase = output->streams[in.streamIndex]->time_base;
        if (in.encoder) {
            in.encoder->thread = std::thread([this, &in] { encodeLoop(in); });
        }
    }
    return true;
}
