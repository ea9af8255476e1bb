// The encoder thread of a video input: takes pixel buffers from the input's short queue,
// converts and encodes them, and hands the packets to the writer core.
#include "platform/AVError.h"
#include "platform/linux/FFmpegFrameConversion.h"
#include "platform/linux/FFmpegSupport.h"
#include "platform/linux/FFmpegWriterCore.h"

bool WriterCore::encodeFrame(AVAssetWriterInput::Impl& in, const CVPixelBufferRef& buffer,
                             int64_t pts) {
    Encoder& e = *in.encoder;
    AVCodecContext* ctx = e.context;
    if (e.lastPts != AV_NOPTS_VALUE && pts > e.lastPts) e.frameDuration = pts - e.lastPts;
    e.lastPts = pts;
    ++e.framesSent;
    AVFrame* frame = av_frame_alloc();
    if (!frame) return false;
    frame->width = ctx->width;
    frame->height = ctx->height;
    frame->format = ctx->pix_fmt;
    int ret = fillEncoderFrame(e, frame, buffer);
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

namespace {

// libx265 sets its decode delay only when the third frame arrives, so an encode of one or two
// frames hands out decode times taken from whatever the memory held, and the muxer refuses
// them ("pts/dts pair unsupported") or not, by chance. So few frames are never reordered: their
// decode times are their presentation times.
void repairDecodeTime(const Encoder& encoder, AVPacket* packet) {
    if (encoder.context->codec_id != AV_CODEC_ID_HEVC || encoder.framesSent > 2) return;
    if (packet->pts != AV_NOPTS_VALUE) packet->dts = packet->pts;
}

}  // namespace

bool WriterCore::drainEncoder(AVAssetWriterInput::Impl& in, bool flush) {
    AVCodecContext* ctx = in.encoder->context;
    if (flush) avcodec_send_frame(ctx, nullptr);
    AVPacket* packet = av_packet_alloc();
    if (!packet) return false;
    int ret;
    bool ok = true;
    while ((ret = avcodec_receive_packet(ctx, packet)) >= 0) {
        if (packet->duration <= 0) packet->duration = in.encoder->frameDuration;
        repairDecodeTime(*in.encoder, packet);
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
