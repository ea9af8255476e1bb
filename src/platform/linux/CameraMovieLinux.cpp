// The camera's movie: the device's pictures encoded as H.264 into a QuickTime movie, written
// under a unique name beside the target and linked there when complete.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <random>

#include "platform/AVError.h"
#include "platform/Camera.h"
#include "platform/FileManager.h"
#include "platform/linux/CameraInput.h"
#include "platform/linux/FFmpegSupport.h"

extern "C" {
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

namespace platform {

using namespace camera_input;

namespace {

constexpr double kMaxMovieSeconds = 3600;

// The output side: the muxer, the encoder, the converter into its pixel format, and the
// unique file they write, removed at the end (linked to the target when complete).
struct Output {
    AVFormatContext* format = nullptr;
    AVCodecContext* encoder = nullptr;
    AVStream* stream = nullptr;
    SwsContext* sws = nullptr;
    FramePtr picture{av_frame_alloc()};
    AVPacket* packet = av_packet_alloc();
    std::string path;
    bool opened = false;
    std::int64_t frameDuration = 1;  // in the encoder's time base

    ~Output() {
        if (format && opened) avio_closep(&format->pb);
        avformat_free_context(format);
        avcodec_free_context(&encoder);
        sws_freeContext(sws);
        av_packet_free(&packet);
        if (!path.empty()) unlink(path.c_str());
    }
};

std::string uniqueSibling(const std::string& target) {
    std::random_device random;
    std::string folder = FileManager::stringByDeletingLastPathComponent(target);
    if (folder.empty()) folder = ".";
    return FileManager::stringByAppendingPathComponent(
        folder, ".camera-" + std::to_string(getpid()) + "-" + std::to_string(random()) + ".mov");
}

// The frame rate the device announces, else 30.
AVRational frameRateOf(const AVStream* stream) {
    for (AVRational rate : {stream->avg_frame_rate, stream->r_frame_rate})
        if (rate.num > 0 && rate.den > 0 && av_q2d(rate) <= 1000) return rate;
    return AVRational{30, 1};
}

const AVCodec* h264Encoder() {
    if (const AVCodec* x264 = avcodec_find_encoder_by_name("libx264")) return x264;
    return avcodec_find_encoder(AV_CODEC_ID_H264);
}

// Opens the encoder and the muxer for pictures of the device's size; libx264 takes even sides
// only, so an odd side loses its last row or column.
int openOutput(Output& out, const Input& input, const AVFrame* first) {
    const AVCodec* codec = h264Encoder();
    if (!codec) return AVERROR_ENCODER_NOT_FOUND;
    int ret = avformat_alloc_output_context2(&out.format, nullptr, "mov", out.path.c_str());
    if (ret < 0) return ret;
    out.encoder = avcodec_alloc_context3(codec);
    if (!out.encoder || !out.picture || !out.packet) return AVERROR(ENOMEM);
    const AVRational rate = frameRateOf(input.videoStream());
    out.encoder->width = std::max(2, first->width & ~1);
    out.encoder->height = std::max(2, first->height & ~1);
    out.encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    out.encoder->time_base = input.videoStream()->time_base;
    out.encoder->framerate = rate;
    out.encoder->sample_aspect_ratio = AVRational{1, 1};
    out.encoder->thread_count = 2;
    if (out.format->oformat->flags & AVFMT_GLOBALHEADER)
        out.encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    av_opt_set(out.encoder->priv_data, "preset", "veryfast", 0);
    out.frameDuration =
        std::max<std::int64_t>(1, av_rescale_q(1, av_inv_q(rate), out.encoder->time_base));
    if ((ret = avcodec_open2(out.encoder, codec, nullptr)) < 0) return ret;

    out.picture->format = out.encoder->pix_fmt;
    out.picture->width = out.encoder->width;
    out.picture->height = out.encoder->height;
    if ((ret = av_frame_get_buffer(out.picture.get(), 0)) < 0) return ret;
    out.sws = sws_getContext(first->width, first->height, static_cast<AVPixelFormat>(first->format),
                             out.encoder->width, out.encoder->height, out.encoder->pix_fmt,
                             SWS_BICUBIC, nullptr, nullptr, nullptr);
    if (!out.sws) return AVERROR(EINVAL);

    out.stream = avformat_new_stream(out.format, nullptr);
    if (!out.stream) return AVERROR(ENOMEM);
    out.stream->time_base = out.encoder->time_base;
    if ((ret = avcodec_parameters_from_context(out.stream->codecpar, out.encoder)) < 0) return ret;
    if ((ret = avio_open(&out.format->pb, out.path.c_str(), AVIO_FLAG_WRITE)) < 0) return ret;
    out.opened = true;
    return avformat_write_header(out.format, nullptr);
}

// Hands a picture (or, for null, the end) to the encoder and writes what comes out.
int encode(Output& out, const AVFrame* frame) {
    int ret = avcodec_send_frame(out.encoder, frame);
    while (ret >= 0) {
        ret = avcodec_receive_packet(out.encoder, out.packet);
        if (ret == AVERROR(EAGAIN) || ret == AVERROR_EOF) return 0;
        if (ret < 0) return ret;
        // Every picture lasts one frame of the rate, the last one included, so that the
        // movie is as long as asked.
        if (out.packet->duration <= 0) out.packet->duration = out.frameDuration;
        av_packet_rescale_ts(out.packet, out.encoder->time_base, out.stream->time_base);
        out.packet->stream_index = out.stream->index;
        ret = av_interleaved_write_frame(out.format, out.packet);
    }
    return ret;
}

// Encodes the device's pictures from the first one until `seconds` have passed on its clock.
int record(Output& out, Input& input, double seconds) {
    FramePtr frame(av_frame_alloc());
    if (!frame) return AVERROR(ENOMEM);
    int ret = nextFrame(input, frame.get());
    if (ret < 0) return ret;
    if ((ret = openOutput(out, input, frame.get())) < 0) return ret;
    const AVRational timeBase = out.encoder->time_base;
    const std::int64_t end =
        av_rescale_q(std::llround(seconds * 1000000), AVRational{1, 1000000}, timeBase);
    std::int64_t first = AV_NOPTS_VALUE, next = 0;
    for (;;) {
        const std::int64_t stamp = frame->best_effort_timestamp;
        if (first == AV_NOPTS_VALUE && stamp != AV_NOPTS_VALUE) first = stamp;
        // Pictures without a time follow the last one by one frame.
        std::int64_t pts = stamp != AV_NOPTS_VALUE ? stamp - first : next;
        if (pts < next) pts = next;  // a clock going back would break the movie's order
        if (pts >= end) break;
        if ((ret = av_frame_make_writable(out.picture.get())) < 0) return ret;
        sws_scale(out.sws, frame->data, frame->linesize, 0, frame->height, out.picture->data,
                  out.picture->linesize);
        out.picture->pts = pts;
        if ((ret = encode(out, out.picture.get())) < 0) return ret;
        next = pts + out.frameDuration;
        av_frame_unref(frame.get());
        ret = nextFrame(input, frame.get());
        if (ret == AVERROR_EOF) break;
        if (ret < 0) return ret;
    }
    if ((ret = encode(out, nullptr)) < 0) return ret;
    if ((ret = av_write_trailer(out.format)) < 0) return ret;
    ret = avio_closep(&out.format->pb);
    out.opened = false;
    return ret;
}

}  // namespace

bool Camera::recordMovie(double seconds, const std::string& path, ErrorRef* error) const {
    if (!std::isfinite(seconds) || seconds <= 0 || seconds > kMaxMovieSeconds) {
        if (error)
            *error = avError(AVErrorOperationNotAllowed,
                             "A camera movie lasts more than 0 and at most 3600 seconds");
        return false;
    }
    if (access(path.c_str(), F_OK) == 0) {
        if (error) *error = avError(AVErrorFileAlreadyExists, "The file exists already: " + path);
        return false;
    }
    // A folder that can't take the movie is told as such, not as a fault of the camera.
    std::string folder = FileManager::stringByDeletingLastPathComponent(path);
    if (folder.empty()) folder = ".";
    if (access(folder.c_str(), W_OK | X_OK) != 0) {
        const int cause = errno;
        if (error)
            *error = Error::errorWithDomain(
                NSPOSIXErrorDomain, cause,
                {{NSFilePathErrorKey, path},
                 {NSLocalizedDescriptionKey,
                  "The movie can't be written into " + folder + ": " + std::strerror(cause)}});
        return false;
    }
    auto input = openDevice(_device, error);
    if (!input) return false;
    Output out;
    out.path = uniqueSibling(path);
    const int ret = record(out, *input, seconds);
    if (ret < 0) {
        if (error) {
            *error = ffmpeg_support::isDiskFull(ret)
                         ? avError(AVErrorDiskFull, "The disk is full: " + path)
                         : cameraFailure(shownDevice(_device), "gave no movie", ret);
        }
        return false;
    }
    // A link, not a rename, so that a file that appeared at `path` meanwhile is kept.
    if (link(out.path.c_str(), path.c_str()) != 0) {
        if (error) *error = Error::posixError(errno, "link", path);
        return false;
    }
    return true;
}

}  // namespace platform
