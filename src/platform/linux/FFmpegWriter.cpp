// AVAssetWriter on libavformat with libx264, libx265, prores_ks and mjpeg. The file is opened at
// startWriting; the container header is written at the first sample, when the first video
// track's time scale is known. Each video input encodes on its own thread from a short queue,
// so that drawing the next frame and encoding this one overlap. An input that runs more than
// half a second ahead of another input being fed is not ready, so that tracks fed side by side
// reach the muxer in time order and lie interleaved in the file.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include "platform/AVAssetWriter.h"
#include "platform/AVAssetWriterInputPixelBufferAdaptor.h"
#include "platform/AVError.h"
#include "platform/AVMediaFormat.h"
#include "platform/AVVideoSettings.h"
#include "platform/Log.h"
#include "platform/linux/FFmpegSupport.h"
#include "platform/linux/PlaneInterleave.h"

using platform::ErrorRef;
using platform::PlistDictionary;
using platform::PlistValue;

namespace {

constexpr std::size_t kEncoderQueue = 2;
// Seconds an input may run ahead of the slowest input that is being fed, so that the tracks
// reach the muxer (which writes in time order) close together and the file is interleaved.
constexpr double kInterleaveWindow = 0.5;
constexpr int kMaxSide = 16384;

struct Container {
    const char* fileType;
    const char* muxer;
    bool quickTime;  // takes ProRes and timecode tracks
    bool threeGP;
};

constexpr Container kContainers[] = {
    {AVFileTypeQuickTimeMovie, "mov", true, false}, {AVFileTypeMPEG4, "mp4", false, false},
    {AVFileTypeAppleM4V, "ipod", false, false},     {AVFileType3GPP, "3gp", false, true},
    {AVFileType3GPP2, "3g2", false, true},
};

const Container* containerFor(const std::string& fileType) {
    for (const Container& c : kContainers) {
        if (fileType == c.fileType) return &c;
    }
    return nullptr;
}

// What a video input's output settings ask for.
struct VideoConfig {
    std::string codec;
    int width = 0, height = 0;
    double bitRate = 0;
    double frameRate = 0;
    int keyFrameInterval = 0;
    bool allowReordering = true;
    int sarNum = 1, sarDen = 1;
    double quality = -1;
    std::string speedPreset, parameters, profile;
    std::optional<std::string> primaries, transfer, matrix;
};

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

// H.264 is always 8-bit (High, or High 4:4:4 for odd sides), since most players cannot decode
// High 10; only HEVC keeps more than 8 bits. A 4:2:0 stream can only be cropped to even sides
// (the sequence header crops in steps of two luma samples), so an odd side is encoded in 4:4:4,
// which the encoder pads to whole blocks and crops back to the exact size in the header.
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

// Movie-level and track-level items as FFmpeg's metadata names. ID3 has no place here.
struct MappedMetadata {
    AVDictionary* dict = nullptr;
    bool quickTimeKeys = false;
};

const char* commonName(const std::string& key) {
    if (key == AVMetadataCommonKeyCreationDate) return "creation_time";
    if (key == AVMetadataCommonKeySoftware) return "encoder";
    if (key == AVMetadataCommonKeyTitle) return "title";
    if (key == AVMetadataCommonKeyDescription) return "comment";
    if (key == AVMetadataCommonKeyCopyrights) return "copyright";
    if (key == AVMetadataCommonKeyLocation) return "location";
    if (key == AVMetadataCommonKeyCreator) return "artist";
    return nullptr;
}

const char* userDataName(const std::string& key) {
    static const std::pair<const char*, const char*> table[] = {
        {"@day", "date"},   {"@swr", "encoder"}, {"@xyz", "location"},  {"@nam", "title"},
        {"@ART", "artist"}, {"@des", "comment"}, {"@cpy", "copyright"}, {"@alb", "album"},
        {"@gen", "genre"},  {"titl", "title"},   {"yrrc", "date"},      {"loci", "location"},
        {"perf", "artist"}, {"dscp", "comment"}, {"cprt", "copyright"}, {"@too", "encoder"},
    };
    for (const auto& [k, name] : table) {
        if (key == k) return name;
    }
    return nullptr;
}

MappedMetadata mapMetadata(const std::vector<AVMetadataItem>& items) {
    MappedMetadata m;
    for (const AVMetadataItem& item : items) {
        auto key = item.stringKey();
        if (!key) continue;
        std::optional<std::string> value;
        if (auto d = item.value().date()) {
            value = AVMetadataISO8601String(*d);
        } else {
            value = item.stringValue();
        }
        if (!value) continue;
        const std::string& space = item.keySpace();
        const char* name = nullptr;
        std::string mdtaName;
        if (space == AVMetadataKeySpaceCommon) {
            name = commonName(*key);
        } else if (space == AVMetadataKeySpaceQuickTimeMetadata) {
            mdtaName = *key;
            name = mdtaName.c_str();
            m.quickTimeKeys = true;
        } else if (space == AVMetadataKeySpaceQuickTimeUserData ||
                   space == AVMetadataKeySpaceISOUserData || space == AVMetadataKeySpaceiTunes) {
            name = userDataName(*key);
        }
        if (name) av_dict_set(&m.dict, name, value->c_str(), 0);
    }
    return m;
}

}  // namespace

struct WriterCore;

struct Encoder {
    AVCodecContext* context = nullptr;
    AVPixelFormat format = AV_PIX_FMT_NONE;
    OSType input = 0;
    SwsContext* sws = nullptr;
    AVFrame* rgba = nullptr;
    // The encoder's own pixel format, drawn into for every frame that cannot be handed over
    // as it is; kept, since a 1080p 10-bit frame is 6 MB of fresh pages each time otherwise.
    AVFrame* converted = nullptr;
    std::thread thread;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::pair<CVPixelBufferRef, int64_t>> queue;
    bool finishing = false;
    bool stopped = false;
    // In the encoder's time base: the frame rate's duration, else the last gap between frames,
    // given to packets that come without one so that the last frame keeps its length.
    int64_t frameDuration = 0;
    int64_t lastPts = AV_NOPTS_VALUE;

    ~Encoder() {
        sws_freeContext(sws);
        av_frame_free(&rgba);
        av_frame_free(&converted);
        avcodec_free_context(&context);
    }
};

// Calls the input's request block on its queue while the input is ready.
struct Pump : std::enable_shared_from_this<Pump> {
    std::mutex mutex;
    std::shared_ptr<platform::DispatchQueue> queue;
    std::function<void()> block;
    std::function<bool()> isReady;
    std::function<bool()> writerEnded;
    bool scheduled = false;
    bool waiting = false;
    std::uint64_t appends = 0;

    void scheduleLocked(bool later) {
        if (scheduled || !block || !queue) return;
        scheduled = true;
        waiting = false;
        std::weak_ptr<Pump> weak = weak_from_this();
        auto run = [weak] {
            if (auto self = weak.lock()) self->run();
        };
        if (later) {
            queue->after(std::chrono::milliseconds(2), run);
        } else {
            queue->async(run);
        }
    }
    void notifyReady() {
        std::lock_guard<std::mutex> lock(mutex);
        if (waiting) scheduleLocked(false);
    }
    void run() {
        std::function<void()> b;
        std::uint64_t before;
        {
            std::lock_guard<std::mutex> lock(mutex);
            scheduled = false;
            if (!block) return;
            b = block;
            before = appends;
        }
        b();
        std::lock_guard<std::mutex> lock(mutex);
        if (!block || writerEnded()) {
            block = nullptr;
            return;
        }
        if (isReady()) {
            scheduleLocked(appends == before);
        } else {
            waiting = true;
        }
    }
    void stop() {
        std::lock_guard<std::mutex> lock(mutex);
        block = nullptr;
        queue = nullptr;
    }
};

struct AVAssetWriterInput::Impl {
    std::string mediaType;
    std::optional<PlistDictionary> settings;
    std::optional<VideoConfig> video;
    CMFormatDescriptionRef hint;
    bool realTime = false;
    CGAffineTransform transform;
    std::vector<AVMetadataItem> metadata;

    std::weak_ptr<WriterCore> writer;
    bool added = false;
    bool finished = false;
    OSType adaptorFormat = 0;
    std::size_t adaptorWidth = 0, adaptorHeight = 0;
    std::shared_ptr<CVPixelBufferPool> pool;

    int streamIndex = -1;
    AVRational streamTimeBase{1, 1};
    std::unique_ptr<Encoder> encoder;
    std::shared_ptr<Pump> pump = std::make_shared<Pump>();

    // Under the writer's mutex: whether the input is being fed (a request block or a sample
    // came) and the time in seconds of its last sample, for the interleaving of the inputs.
    bool fed = false;
    bool ended = false;
    double lastSeconds = -INFINITY;
};

struct WriterCore : std::enable_shared_from_this<WriterCore> {
    std::string path, fileType;
    const Container* container = nullptr;
    std::vector<AVAssetWriterInputRef> inputs;
    std::vector<AVMetadataItem> metadata;

    std::mutex mutex;
    AVAssetWriterStatus status = AVAssetWriterStatusUnknown;
    ErrorRef error;
    AVFormatContext* output = nullptr;
    bool headerWritten = false;
    bool fileCreated = false;
    bool anySample = false;
    CMTime sessionStart = kCMTimeZero;

    ~WriterCore() {
        for (auto& input : inputs) stopEncoder(*input);
        closeOutputLocked(false);
    }

    AVAssetWriterStatus currentStatus() {
        std::lock_guard<std::mutex> lock(mutex);
        return status;
    }

    void closeOutputLocked(bool remove) {
        if (output) {
            if (output->pb) avio_closep(&output->pb);
            avformat_free_context(output);
            output = nullptr;
        }
        if (remove && fileCreated) {
            ::unlink(path.c_str());
            fileCreated = false;
        }
    }

    void failLocked(ErrorRef e) {
        if (status != AVAssetWriterStatusWriting) return;
        status = AVAssetWriterStatusFailed;
        error = std::move(e);
        platform::log("~~ writer failed: " + error->localizedDescription());
        closeOutputLocked(true);
    }

    void fail(ErrorRef e) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            failLocked(std::move(e));
        }
        for (auto& input : inputs) {
            if (input->impl().encoder) input->impl().encoder->changed.notify_all();
            input->impl().pump->notifyReady();
        }
    }

    // Whether `in` is more than the window ahead of another input that is fed and unfinished.
    bool isAheadLocked(const AVAssetWriterInput::Impl& in) const {
        for (const auto& other : inputs) {
            const AVAssetWriterInput::Impl& o = other->impl();
            if (&o == &in || !o.fed || o.ended) continue;
            if (in.lastSeconds > o.lastSeconds + kInterleaveWindow) return true;
        }
        return false;
    }

    // A passthrough input waits for the header, which the first picture writes with the video
    // track's own time scale, as long as a video input may still bring one.
    bool waitsForPicturesLocked(const AVAssetWriterInput::Impl& in) const {
        if (headerWritten || in.video) return false;
        for (const auto& other : inputs) {
            if (other->impl().video && !other->impl().ended) return true;
        }
        return false;
    }

    // An input has moved on or ended: the inputs that waited for it may go on.
    void noteProgress(AVAssetWriterInput::Impl& in, std::optional<double> seconds,
                      bool ended = false) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            in.fed = true;
            in.ended = in.ended || ended;
            if (seconds && std::isfinite(*seconds)) {
                in.lastSeconds = std::max(in.lastSeconds, *seconds);
            }
        }
        for (auto& other : inputs) {
            if (&other->impl() != &in) other->impl().pump->notifyReady();
        }
    }

    bool writePacket(AVPacket* packet) {
        std::lock_guard<std::mutex> lock(mutex);
        if (status != AVAssetWriterStatusWriting || !output) return false;
        int ret = av_interleaved_write_frame(output, packet);
        if (ret < 0) {
            failLocked(writeError(ret, "Writing a sample"));
            return false;
        }
        return true;
    }

    bool openEncoderLocked(AVAssetWriterInput::Impl& in, int timescale, ErrorRef* err);
    bool addStreamsLocked(AVAssetWriterInput* trigger, int timescale, ErrorRef* err);
    bool ensureHeader(AVAssetWriterInput* trigger, int timescale);
    void encodeLoop(AVAssetWriterInput::Impl& in);
    bool encodeFrame(AVAssetWriterInput::Impl& in, const CVPixelBufferRef& buffer, int64_t pts);
    bool drainEncoder(AVAssetWriterInput::Impl& in, bool flush);
    void stopEncoder(AVAssetWriterInput& input) {
        Encoder* e = input.impl().encoder.get();
        if (!e) return;
        {
            std::lock_guard<std::mutex> lock(e->mutex);
            e->stopped = true;
        }
        e->changed.notify_all();
        if (e->thread.joinable()) e->thread.join();
    }
};

bool WriterCore::openEncoderLocked(AVAssetWriterInput::Impl& in, int timescale, ErrorRef* err) {
    const VideoConfig& c = *in.video;
    const AVCodec* codec = avcodec_find_encoder_by_name(encoderNameFor(c.codec));
    if (!codec) {
        *err = platform::avError(AVErrorEncoderNotFound, "No encoder for " + c.codec);
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
    if (c.bitRate > 0 && c.codec != AVVideoCodecTypeAppleProRes4444) {
        ctx->bit_rate = static_cast<int64_t>(c.bitRate);
    }
    if (c.keyFrameInterval > 0) ctx->gop_size = c.keyFrameInterval;
    if (!c.allowReordering) ctx->max_b_frames = 0;
    ctx->thread_count = 0;
    bool full = isFullRange(encoder->input) || c.codec == AVVideoCodecTypeJPEG;
    ctx->color_range = full ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    int pri = c.primaries ? ffmpeg_support::primariesValue(*c.primaries) : -1;
    int trc = c.transfer ? ffmpeg_support::transferValue(*c.transfer) : -1;
    int spc = c.matrix ? ffmpeg_support::matrixValue(*c.matrix) : -1;
    if (pri >= 0) ctx->color_primaries = static_cast<AVColorPrimaries>(pri);
    if (trc >= 0) ctx->color_trc = static_cast<AVColorTransferCharacteristic>(trc);
    if (spc >= 0) ctx->colorspace = static_cast<AVColorSpace>(spc);
    if (output->oformat->flags & AVFMT_GLOBALHEADER) ctx->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;

    AVDictionary* options = nullptr;
    if (c.codec == AVVideoCodecTypeH264) {
        av_dict_set(&options, "preset", c.speedPreset.empty() ? "medium" : c.speedPreset.c_str(),
                    0);
        const char* profile = "high";
        if (ctx->pix_fmt == AV_PIX_FMT_YUV444P) {
            profile = "high444";
        } else if (c.profile == AVVideoProfileLevelH264MainAutoLevel) {
            profile = "main";
        }
        av_dict_set(&options, "profile", profile, 0);
        if (!c.parameters.empty()) av_dict_set(&options, "x264-params", c.parameters.c_str(), 0);
    } else if (c.codec == AVVideoCodecTypeHEVC) {
        av_dict_set(&options, "preset", c.speedPreset.empty() ? "medium" : c.speedPreset.c_str(),
                    0);
        std::string params = "log-level=error";
        if (!c.parameters.empty()) params += ":" + c.parameters;
        av_dict_set(&options, "x265-params", params.c_str(), 0);
        ctx->codec_tag = MKTAG('h', 'v', 'c', '1');
    } else if (c.codec == AVVideoCodecTypeAppleProRes4444) {
        av_dict_set(&options, "profile", "4444", 0);
        av_dict_set(&options, "alpha_bits", "16", 0);
    } else if (c.codec == AVVideoCodecTypeJPEG) {
        double q = c.quality >= 0 ? std::clamp(c.quality, 0.0, 1.0) : 0.8;
        ctx->flags |= AV_CODEC_FLAG_QSCALE;
        ctx->global_quality = static_cast<int>(FF_QP2LAMBDA * (1.0 + (1.0 - q) * 30.0));
    }
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

bool WriterCore::encodeFrame(AVAssetWriterInput::Impl& in, const CVPixelBufferRef& buffer,
                             int64_t pts) {
    Encoder& e = *in.encoder;
    AVCodecContext* ctx = e.context;
    if (e.lastPts != AV_NOPTS_VALUE && pts > e.lastPts) e.frameDuration = pts - e.lastPts;
    e.lastPts = pts;
    AVFrame* frame = av_frame_alloc();
    if (!frame) return false;
    frame->width = ctx->width;
    frame->height = ctx->height;
    frame->format = ctx->pix_fmt;
    const OSType code = buffer->pixelFormatType();
    int ret = 0;
    if (ctx->pix_fmt == AV_PIX_FMT_NV12 && isBiplanar(code) && !isTenBit(code)) {
        // The pixel buffer itself, kept alive by the frame.
        frame->buf[0] = av_buffer_create(static_cast<uint8_t*>(buffer->baseAddressOfPlane(0)), 1,
                                         releaseBuffer, new CVPixelBufferRef(buffer), 0);
        if (!frame->buf[0]) ret = AVERROR(ENOMEM);
        for (int p = 0; p < 2; ++p) {
            frame->data[p] = static_cast<uint8_t*>(buffer->baseAddressOfPlane(p));
            frame->linesize[p] = static_cast<int>(buffer->bytesPerRowOfPlane(p));
        }
    } else if ((ret = convertedFrame(e)) >= 0 && (ret = av_frame_ref(frame, e.converted)) >= 0) {
        bool direct = isBiplanar(code) &&
                      (ctx->pix_fmt == AV_PIX_FMT_YUV420P || ctx->pix_fmt == AV_PIX_FMT_YUVJ420P ||
                       ctx->pix_fmt == AV_PIX_FMT_YUV420P10LE) &&
                      isTenBit(code) == (ctx->pix_fmt == AV_PIX_FMT_YUV420P10LE);
        if (direct) {
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
                srcFormat = isTenBit(code) ? AV_PIX_FMT_P010LE : AV_PIX_FMT_NV12;
                for (int p = 0; p < 2; ++p) {
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
    frame->pts = pts;
    frame->color_range = ctx->color_range;
    frame->color_primaries = ctx->color_primaries;
    frame->color_trc = ctx->color_trc;
    frame->colorspace = ctx->colorspace;
    frame->sample_aspect_ratio = ctx->sample_aspect_ratio;
    if (ret >= 0) ret = avcodec_send_frame(ctx, frame);
    av_frame_free(&frame);
    if (ret < 0) {
        fail(platform::avError(AVErrorUnknown,
                               "Encoding a frame failed: " + ffmpeg_support::errorText(ret)));
        return false;
    }
    return drainEncoder(in, false);
}

bool WriterCore::drainEncoder(AVAssetWriterInput::Impl& in, bool flush) {
    AVCodecContext* ctx = in.encoder->context;
    if (flush) avcodec_send_frame(ctx, nullptr);
    AVPacket* packet = av_packet_alloc();
    if (!packet) return false;
    int ret;
    bool ok = true;
    while ((ret = avcodec_receive_packet(ctx, packet)) >= 0) {
        if (packet->duration <= 0) packet->duration = in.encoder->frameDuration;
        av_packet_rescale_ts(packet, ctx->time_base, in.streamTimeBase);
        packet->stream_index = in.streamIndex;
        if (!writePacket(packet)) ok = false;
        av_packet_unref(packet);
        if (!ok) break;
    }
    av_packet_free(&packet);
    if (ok && ret != AVERROR(EAGAIN) && ret != AVERROR_EOF) {
        fail(platform::avError(AVErrorUnknown,
                               "Encoding failed: " + ffmpeg_support::errorText(ret)));
        ok = false;
    }
    return ok;
}

void WriterCore::encodeLoop(AVAssetWriterInput::Impl& in) {
    Encoder& e = *in.encoder;
    for (;;) {
        std::pair<CVPixelBufferRef, int64_t> item;
        {
            std::unique_lock<std::mutex> lock(e.mutex);
            e.changed.wait(lock, [&] { return !e.queue.empty() || e.finishing || e.stopped; });
            if (e.stopped) return;
            if (e.queue.empty()) break;  // finishing
            item = std::move(e.queue.front());
            e.queue.pop_front();
        }
        e.changed.notify_all();
        in.pump->notifyReady();
        if (currentStatus() != AVAssetWriterStatusWriting) continue;
        encodeFrame(in, item.first, item.second);
    }
    if (currentStatus() == AVAssetWriterStatusWriting) drainEncoder(in, true);
}

// ---- AVAssetWriterInput ----

AVAssetWriterInput::AVAssetWriterInput() : _impl(std::make_unique<Impl>()) {}
AVAssetWriterInput::~AVAssetWriterInput() {
    _impl->pump->stop();
}

std::shared_ptr<AVAssetWriterInput> AVAssetWriterInput::assetWriterInputWithMediaType(
    const std::string& mediaType, std::optional<PlistDictionary> outputSettings,
    CMFormatDescriptionRef sourceFormatHint) {
    auto input = std::shared_ptr<AVAssetWriterInput>(new AVAssetWriterInput());
    Impl& in = *input->_impl;
    in.mediaType = mediaType;
    in.settings = std::move(outputSettings);
    in.hint = std::move(sourceFormatHint);
    if (in.settings && mediaType == AVMediaTypeVideo) in.video = videoConfigOf(*in.settings);
    AVAssetWriterInput* raw = input.get();
    in.pump->isReady = [raw] { return raw->isReadyForMoreMediaData(); };
    in.pump->writerEnded = [raw] {
        auto core = raw->_impl->writer.lock();
        if (!core) return true;
        auto s = core->currentStatus();
        return s == AVAssetWriterStatusCompleted || s == AVAssetWriterStatusCancelled;
    };
    return input;
}

const std::string& AVAssetWriterInput::mediaType() const {
    return _impl->mediaType;
}
const std::optional<PlistDictionary>& AVAssetWriterInput::outputSettings() const {
    return _impl->settings;
}
const CMFormatDescriptionRef& AVAssetWriterInput::sourceFormatHint() const {
    return _impl->hint;
}
void AVAssetWriterInput::setExpectsMediaDataInRealTime(bool value) {
    _impl->realTime = value;
}
bool AVAssetWriterInput::expectsMediaDataInRealTime() const {
    return _impl->realTime;
}
void AVAssetWriterInput::setTransform(CGAffineTransform transform) {
    _impl->transform = transform;
}
CGAffineTransform AVAssetWriterInput::transform() const {
    return _impl->transform;
}
void AVAssetWriterInput::setMetadata(std::vector<AVMetadataItem> items) {
    _impl->metadata = std::move(items);
}
const std::vector<AVMetadataItem>& AVAssetWriterInput::metadata() const {
    return _impl->metadata;
}

bool AVAssetWriterInput::isReadyForMoreMediaData() const {
    auto core = _impl->writer.lock();
    if (!core || _impl->finished) return false;
    AVAssetWriterStatus s = core->currentStatus();
    if (s == AVAssetWriterStatusFailed) return true;
    if (s != AVAssetWriterStatusWriting) return false;
    {
        std::lock_guard<std::mutex> lock(core->mutex);
        if (core->isAheadLocked(*_impl) || core->waitsForPicturesLocked(*_impl)) return false;
    }
    if (Encoder* e = _impl->encoder.get()) {
        std::lock_guard<std::mutex> lock(e->mutex);
        return e->queue.size() < kEncoderQueue;
    }
    return true;
}

void AVAssetWriterInput::requestMediaDataWhenReadyOnQueue(
    std::shared_ptr<platform::DispatchQueue> queue, std::function<void()> block) {
    Pump& pump = *_impl->pump;
    {
        std::lock_guard<std::mutex> lock(pump.mutex);
        if (_impl->finished) return;
        pump.queue = std::move(queue);
        pump.block = std::move(block);
        pump.scheduleLocked(false);
    }
    if (auto core = _impl->writer.lock()) core->noteProgress(*_impl, std::nullopt);
}

bool AVAssetWriterInput::appendSampleBuffer(const CMSampleBufferRef& sample) {
    Impl& in = *_impl;
    auto core = in.writer.lock();
    if (!core || !sample || in.finished || core->currentStatus() != AVAssetWriterStatusWriting) {
        return false;
    }
    {
        std::lock_guard<std::mutex> lock(in.pump->mutex);
        ++in.pump->appends;
    }
    if (in.video) {
        const CVPixelBufferRef& buffer = sample->imageBuffer();
        if (!buffer) return false;
        CMTime t = sample->presentationTimeStamp();
        if (!core->ensureHeader(this, t.timescale)) return false;
        if (buffer->pixelFormatType() != in.encoder->input ||
            buffer->width() != static_cast<std::size_t>(in.video->width) ||
            buffer->height() != static_cast<std::size_t>(in.video->height)) {
            return false;
        }
        CMTime start;
        {
            std::lock_guard<std::mutex> lock(core->mutex);
            core->anySample = true;
            start = core->sessionStart;
        }
        int64_t pts = toTimeBase(t, in.encoder->context->time_base) -
                      toTimeBase(start, in.encoder->context->time_base);
        core->noteProgress(in, CMTimeGetSeconds(t) - CMTimeGetSeconds(start));
        Encoder& e = *in.encoder;
        std::unique_lock<std::mutex> lock(e.mutex);
        // An append beyond readiness waits, as the platform's would block the caller.
        e.changed.wait(lock, [&] {
            return e.queue.size() < kEncoderQueue || e.stopped ||
                   core->currentStatus() != AVAssetWriterStatusWriting;
        });
        if (e.stopped || core->currentStatus() != AVAssetWriterStatusWriting) return false;
        e.queue.emplace_back(buffer, pts);
        lock.unlock();
        e.changed.notify_all();
        return true;
    }
    if (!sample->backing() || !in.hint) return false;
    if (!core->ensureHeader(this, 0)) return false;
    AVPacket* packet = av_packet_clone(sample->backing()->packet);
    if (!packet) return false;
    CMTime start;
    {
        std::lock_guard<std::mutex> lock(core->mutex);
        core->anySample = true;
        start = core->sessionStart;
    }
    int64_t offset = toTimeBase(start, in.streamTimeBase);
    auto shifted = [&](CMTime t) {
        int64_t v = toTimeBase(t, in.streamTimeBase);
        return v == AV_NOPTS_VALUE ? v : v - offset;
    };
    const CMTime dts = sample->decodeTimeStamp();
    core->noteProgress(
        in, CMTimeGetSeconds(CMTIME_IS_NUMERIC(dts) ? dts : sample->presentationTimeStamp()) -
                CMTimeGetSeconds(start));
    packet->pts = shifted(sample->presentationTimeStamp());
    packet->dts = shifted(sample->decodeTimeStamp());
    packet->duration = std::max<int64_t>(0, toTimeBase(sample->duration(), in.streamTimeBase));
    packet->stream_index = in.streamIndex;
    packet->pos = -1;
    bool ok = core->writePacket(packet);
    av_packet_free(&packet);
    return ok;
}

void AVAssetWriterInput::markAsFinished() {
    Impl& in = *_impl;
    {
        std::lock_guard<std::mutex> lock(in.pump->mutex);
        if (in.finished) return;
        in.finished = true;
        in.pump->block = nullptr;
    }
    if (auto core = in.writer.lock()) core->noteProgress(in, std::nullopt, true);
    if (Encoder* e = in.encoder.get()) {
        {
            std::lock_guard<std::mutex> lock(e->mutex);
            e->finishing = true;
        }
        e->changed.notify_all();
    }
}

// ---- AVAssetWriterInputPixelBufferAdaptor ----

std::shared_ptr<AVAssetWriterInputPixelBufferAdaptor>
AVAssetWriterInputPixelBufferAdaptor::assetWriterInputPixelBufferAdaptorWithAssetWriterInput(
    AVAssetWriterInputRef input, std::optional<PlistDictionary> attributes) {
    if (!input) return nullptr;
    auto adaptor = std::make_shared<AVAssetWriterInputPixelBufferAdaptor>();
    AVAssetWriterInput::Impl& in = input->impl();
    if (attributes) {
        auto number = [&](const char* key) -> std::int64_t {
            auto it = attributes->find(key);
            if (it == attributes->end()) return 0;
            if (const auto* list = it->second.array()) {
                return list->empty() ? 0 : list->front().integerValue();
            }
            return it->second.integerValue();
        };
        in.adaptorFormat = static_cast<OSType>(number(kCVPixelBufferPixelFormatTypeKey));
        in.adaptorWidth =
            static_cast<std::size_t>(std::max<std::int64_t>(0, number(kCVPixelBufferWidthKey)));
        in.adaptorHeight =
            static_cast<std::size_t>(std::max<std::int64_t>(0, number(kCVPixelBufferHeightKey)));
    }
    if (!CVPixelFormatDescriptionCreateWithPixelFormatType(in.adaptorFormat)) {
        in.adaptorFormat = kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;
    }
    adaptor->_input = std::move(input);
    adaptor->_attributes = std::move(attributes);
    return adaptor;
}

std::shared_ptr<CVPixelBufferPool> AVAssetWriterInputPixelBufferAdaptor::pixelBufferPool() const {
    return _input->impl().pool;
}

bool AVAssetWriterInputPixelBufferAdaptor::appendPixelBuffer(const CVPixelBufferRef& pixelBuffer,
                                                             CMTime presentationTime) {
    if (!pixelBuffer) return false;
    return _input->appendSampleBuffer(CMSampleBuffer::sampleWithImageBuffer(
        pixelBuffer, presentationTime, kCMTimeInvalid, nullptr));
}

// ---- AVAssetWriter ----

struct AVAssetWriter::Impl {
    std::shared_ptr<WriterCore> core = std::make_shared<WriterCore>();
};

AVAssetWriter::AVAssetWriter() : _impl(std::make_unique<Impl>()) {}
AVAssetWriter::~AVAssetWriter() {
    for (auto& input : _impl->core->inputs) input->impl().pump->stop();
}

std::shared_ptr<AVAssetWriter> AVAssetWriter::assetWriterWithURL(const std::string& path,
                                                                 const std::string& fileType,
                                                                 ErrorRef* error) {
    ffmpeg_support::installLogging();
    const Container* container = containerFor(fileType);
    if (!container) {
        if (error) {
            *error = platform::avError(AVErrorUnknown,
                                       "Movies of type " + fileType + " cannot be written");
        }
        return nullptr;
    }
    struct stat st;
    if (::stat(path.c_str(), &st) == 0) {
        if (error) {
            *error =
                platform::avError(AVErrorFileAlreadyExists, "A file already exists at " + path);
        }
        return nullptr;
    }
    auto writer = std::shared_ptr<AVAssetWriter>(new AVAssetWriter());
    writer->_impl->core->path = path;
    writer->_impl->core->fileType = fileType;
    writer->_impl->core->container = container;
    return writer;
}

bool AVAssetWriter::fileTypeAcceptsVideoCodec(const std::string& fileType,
                                              const std::string& codec) {
    const Container* container = containerFor(fileType);
    const char* name = encoderNameFor(codec);
    const AVCodec* encoder = name ? avcodec_find_encoder_by_name(name) : nullptr;
    const AVOutputFormat* of =
        container ? av_guess_format(container->muxer, nullptr, nullptr) : nullptr;
    return encoder && of && avformat_query_codec(of, encoder->id, FF_COMPLIANCE_NORMAL) == 1;
}

const std::string& AVAssetWriter::outputURL() const {
    return _impl->core->path;
}
const std::string& AVAssetWriter::outputFileType() const {
    return _impl->core->fileType;
}
const std::vector<AVAssetWriterInputRef>& AVAssetWriter::inputs() const {
    return _impl->core->inputs;
}
void AVAssetWriter::setMetadata(std::vector<AVMetadataItem> items) {
    _impl->core->metadata = std::move(items);
}
const std::vector<AVMetadataItem>& AVAssetWriter::metadata() const {
    return _impl->core->metadata;
}

bool AVAssetWriter::canAddInput(const AVAssetWriterInputRef& input) const {
    WriterCore& core = *_impl->core;
    if (!input || core.currentStatus() != AVAssetWriterStatusUnknown) return false;
    const AVAssetWriterInput::Impl& in = input->impl();
    if (in.added) return false;
    const AVOutputFormat* of = av_guess_format(core.container->muxer, nullptr, nullptr);
    if (!of) return false;
    if (in.settings) {
        if (!in.video) return false;
        const VideoConfig& c = *in.video;
        const char* name = encoderNameFor(c.codec);
        const AVCodec* codec = name ? avcodec_find_encoder_by_name(name) : nullptr;
        if (!codec || c.width <= 0 || c.height <= 0 || c.width > kMaxSide || c.height > kMaxSide) {
            return false;
        }
        if (!takesOddSides(c.codec) && (c.width % 2 || c.height % 2)) {
            return false;
        }
        return avformat_query_codec(of, codec->id, FF_COMPLIANCE_NORMAL) == 1;
    }
    if (!in.hint || !in.hint->backing || in.hint->mediaType != in.mediaType) return false;
    const AVCodecParameters* par = in.hint->backing->parameters;
    if (in.mediaType == AVMediaTypeTimecode) {
        return core.container->quickTime && par->codec_tag == MKTAG('t', 'm', 'c', 'd');
    }
    if (in.mediaType == AVMediaTypeVideo && core.container->quickTime == false &&
        par->codec_id == AV_CODEC_ID_PRORES) {
        return false;
    }
    if (par->codec_id == AV_CODEC_ID_NONE) return false;
    return avformat_query_codec(of, par->codec_id, FF_COMPLIANCE_NORMAL) == 1;
}

void AVAssetWriter::addInput(const AVAssetWriterInputRef& input) {
    if (!canAddInput(input)) return;
    input->impl().added = true;
    input->impl().writer = _impl->core;
    _impl->core->inputs.push_back(input);
}

bool AVAssetWriter::startWriting() {
    WriterCore& core = *_impl->core;
    std::lock_guard<std::mutex> lock(core.mutex);
    if (core.status != AVAssetWriterStatusUnknown) return false;
    core.status = AVAssetWriterStatusWriting;
    int ret = avformat_alloc_output_context2(&core.output, nullptr, core.container->muxer,
                                             core.path.c_str());
    if (ret < 0 || !core.output) {
        core.failLocked(writeError(ret, "Making the movie"));
        return false;
    }
    ret = avio_open(&core.output->pb, core.path.c_str(), AVIO_FLAG_WRITE);
    if (ret < 0) {
        core.status = AVAssetWriterStatusFailed;
        core.error =
            platform::avError(AVErrorUnknown, "The movie file could not be created",
                              platform::Error::posixError(AVUNERROR(ret), "open", core.path));
        core.closeOutputLocked(false);
        return false;
    }
    core.fileCreated = true;
    for (auto& input : core.inputs) {
        AVAssetWriterInput::Impl& in = input->impl();
        if (!in.video) continue;
        if (!in.adaptorFormat) in.adaptorFormat = kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;
        std::size_t w =
            in.adaptorWidth ? in.adaptorWidth : static_cast<std::size_t>(in.video->width);
        std::size_t h =
            in.adaptorHeight ? in.adaptorHeight : static_cast<std::size_t>(in.video->height);
        in.pool = CVPixelBufferPool::create(in.adaptorFormat, w, h, in.video->primaries,
                                            in.video->transfer, in.video->matrix);
    }
    return true;
}

void AVAssetWriter::startSessionAtSourceTime(CMTime time) {
    std::lock_guard<std::mutex> lock(_impl->core->mutex);
    if (CMTIME_IS_NUMERIC(time)) _impl->core->sessionStart = time;
}

void AVAssetWriter::finishWritingWithCompletionHandler(std::function<void()> handler) {
    std::shared_ptr<WriterCore> core = _impl->core;
    for (auto& input : core->inputs) input->markAsFinished();
    std::thread([core, handler = std::move(handler)] {
        for (auto& input : core->inputs) {
            Encoder* e = input->impl().encoder.get();
            if (e && e->thread.joinable()) e->thread.join();
        }
        bool hadSamples;
        {
            std::lock_guard<std::mutex> lock(core->mutex);
            hadSamples = core->anySample;
        }
        if (!hadSamples) {
            core->fail(platform::avError(AVErrorUnknown, "No media data was written"));
        } else if (core->ensureHeader(nullptr, 0)) {
            std::lock_guard<std::mutex> lock(core->mutex);
            if (core->status == AVAssetWriterStatusWriting) {
                int ret = av_write_trailer(core->output);
                int closeRet = avio_closep(&core->output->pb);
                if (ret >= 0) ret = closeRet;
                if (ret < 0) {
                    core->failLocked(writeError(ret, "Completing the movie"));
                } else {
                    core->status = AVAssetWriterStatusCompleted;
                    core->closeOutputLocked(false);
                }
            }
        }
        for (auto& input : core->inputs) input->impl().pump->stop();
        if (handler) handler();
    }).detach();
}

void AVAssetWriter::cancelWriting() {
    WriterCore& core = *_impl->core;
    {
        std::lock_guard<std::mutex> lock(core.mutex);
        if (core.status == AVAssetWriterStatusCompleted ||
            core.status == AVAssetWriterStatusCancelled) {
            return;
        }
        core.status = AVAssetWriterStatusCancelled;
    }
    for (auto& input : core.inputs) {
        input->impl().pump->stop();
        core.stopEncoder(*input);
    }
    std::lock_guard<std::mutex> lock(core.mutex);
    core.closeOutputLocked(true);
}

AVAssetWriterStatus AVAssetWriter::status() const {
    return _impl->core->currentStatus();
}

ErrorRef AVAssetWriter::error() const {
    std::lock_guard<std::mutex> lock(_impl->core->mutex);
    return _impl->core->error;
}
