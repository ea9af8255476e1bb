// The inner parts of the FFmpeg movie writer, shared by its files: the encoder of a video
// input and its thread, the pump that calls an input's request block, the inputs' state, and
// the core that owns the output file, interleaves the inputs and writes the packets.
#pragma once

#include <unistd.h>
#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include "platform/AVAssetWriter.h"
#include "platform/AVAssetWriterInputPixelBufferAdaptor.h"
#include "platform/Dispatch.h"
#include "platform/Log.h"
#include "platform/linux/FFmpegWriterSettings.h"

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
    int64_t framesSent = 0;

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
    std::optional<platform::PlistDictionary> settings;
    std::optional<AVVideoEncoderSettings> video;
    // Why the output settings could not be read; the writer then refuses the input.
    platform::ErrorRef settingsError;
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
    const ffmpeg_writer::Container* container = nullptr;
    std::vector<AVAssetWriterInputRef> inputs;
    std::vector<AVMetadataItem> metadata;

    std::mutex mutex;
    AVAssetWriterStatus status = AVAssetWriterStatusUnknown;
    platform::ErrorRef error;
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

    void failLocked(platform::ErrorRef e) {
        if (status != AVAssetWriterStatusWriting) return;
        status = AVAssetWriterStatusFailed;
        error = std::move(e);
        platform::log("~~ writer failed: " + error->localizedDescription());
        closeOutputLocked(true);
    }

    void fail(platform::ErrorRef e) {
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
            if (in.lastSeconds > o.lastSeconds + ffmpeg_writer::kInterleaveWindow) return true;
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
            failLocked(ffmpeg_writer::writeError(ret, "Writing a sample"));
            return false;
        }
        return true;
    }

    bool openEncoderLocked(AVAssetWriterInput::Impl& in, int timescale, platform::ErrorRef* err);
    bool addStreamsLocked(AVAssetWriterInput* trigger, int timescale, platform::ErrorRef* err);
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
