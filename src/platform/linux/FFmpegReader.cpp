// AVAssetReader on libavformat/libavcodec. Each track output opens the file on its own and
// discards every other stream, so the caller may drain the tracks one after the other. A video
// output decodes on its own thread (with FFmpeg's frame threads) a few frames ahead; the
// pixels it hands out are chosen and converted in FFmpegReaderPixels.cpp.
#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include "platform/AVAssetReader.h"
#include "platform/AVError.h"
#include "platform/AVMediaFormat.h"
#include "platform/AVVideoSettings.h"
#include "platform/DecoderLimits.h"
#include "platform/Log.h"
#include "platform/linux/FFmpegReaderPixels.h"
#include "platform/linux/FFmpegSupport.h"

using platform::ErrorRef;
using platform::PlistDictionary;

namespace {

// Converted frames waiting for the caller. Each is a full copy of a decoded frame (25 MB for
// 4K 10-bit), and the decoder's frame threads already run ahead on their own, so one is
// enough to keep decoding and drawing overlapped.
constexpr std::size_t kFramesAhead = 1;

}  // namespace

// What the reader and its outputs share: status, error and the count of ended outputs.
struct ReaderShared {
    std::mutex mutex;
    AVAssetReaderStatus status = AVAssetReaderStatusUnknown;
    ErrorRef error;
    std::size_t outputs = 0;
    std::size_t ended = 0;

    bool reading() {
        std::lock_guard<std::mutex> lock(mutex);
        return status == AVAssetReaderStatusReading;
    }
    void fail(ErrorRef e) {
        std::lock_guard<std::mutex> lock(mutex);
        if (status != AVAssetReaderStatusReading) return;
        status = AVAssetReaderStatusFailed;
        error = std::move(e);
    }
    void outputEnded() {
        std::lock_guard<std::mutex> lock(mutex);
        if (++ended >= outputs && status == AVAssetReaderStatusReading) {
            status = AVAssetReaderStatusCompleted;
        }
    }
};

struct AVAssetReaderTrackOutput::Impl {
    AVAssetTrackRef track;
    std::optional<PlistDictionary> settings;
    std::vector<OSType> requested;
    bool settingsValid = true;
    bool attached = false;
    std::shared_ptr<ReaderShared> shared;

    AVFormatContext* input = nullptr;
    int streamIndex = -1;
    AVRational timeBase{1, 1};
    CMFormatDescriptionRef format;
    bool endedReported = false;
    // The reader's time range in the stream's time base; AV_NOPTS_VALUE where it is open.
    std::int64_t rangeStart = AV_NOPTS_VALUE, rangeEnd = AV_NOPTS_VALUE;

    // Decoding.
    AVCodecContext* decoder = nullptr;
    std::unique_ptr<ffmpeg_reader::FrameConverter> converter;
    std::thread thread;
    // Held while a compressed read uses the demuxer, so that a cancel does not close it under
    // the reader.
    std::mutex ioMutex;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<CMSampleBufferRef> frames;
    bool stopRequested = false;
    bool decodingDone = false;
    bool pastRangeEnd = false;

    ~Impl() { stop(); }

    bool decodes() const { return settings.has_value(); }

    bool start(const std::string& path, CMTimeRange range, ErrorRef* error);
    void seekToRangeStart(CMTimeRange range);
    void stop();
    CMSampleBufferRef nextCompressed();
    CMSampleBufferRef nextDecoded();
    void decodeLoop();
    bool deliver(AVFrame* frame, ErrorRef* error);
    void reportEnd() {
        if (!endedReported) {
            endedReported = true;
            shared->outputEnded();
        }
    }
};

namespace {

std::int64_t toStreamTime(CMTime time, AVRational timeBase) {
    if (!CMTIME_IS_NUMERIC(time) || time.timescale <= 0) return AV_NOPTS_VALUE;
    return av_rescale_q(time.value, AVRational{1, time.timescale}, timeBase);
}

}  // namespace

// Starts the demuxer at the sync sample at or before the range's start, so that a late start
// does not decode the whole movie before it; a failed seek reads from the beginning, which
// gives the same frames more slowly.
void AVAssetReaderTrackOutput::Impl::seekToRangeStart(CMTimeRange range) {
    if (!CMTIME_IS_NUMERIC(range.start) || CMTimeCompare(range.start, kCMTimeZero) <= 0) return;
    rangeStart = toStreamTime(range.start, timeBase);
    if (CMTIME_IS_NUMERIC(range.duration)) {
        rangeEnd = toStreamTime(CMTimeAdd(range.start, range.duration), timeBase);
    }
    if (rangeStart != AV_NOPTS_VALUE &&
        av_seek_frame(input, streamIndex, rangeStart, AVSEEK_FLAG_BACKWARD) < 0) {
        av_seek_frame(input, streamIndex, INT64_MIN, AVSEEK_FLAG_BACKWARD);
    }
}

bool AVAssetReaderTrackOutput::Impl::start(const std::string& path, CMTimeRange range,
                                           ErrorRef* error) {
    input = ffmpeg_support::openInput(path, false, error);
    if (!input) return false;
    std::vector<std::int32_t> ids = ffmpeg_support::trackIDsOf(input);
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        if (ids[i] == track->trackID()) {
            streamIndex = static_cast<int>(i);
        } else {
            input->streams[i]->discard = AVDISCARD_ALL;
        }
    }
    if (streamIndex < 0) {
        *error = platform::avError(AVErrorNoSourceTrack, "The track is not in the file");
        return false;
    }
    AVStream* st = input->streams[streamIndex];
    timeBase = st->time_base;
    format = ffmpeg_support::formatDescriptionOf(input, st);
    if (CMTIME_IS_NUMERIC(range.start) && CMTimeCompare(range.start, kCMTimeZero) > 0) {
        seekToRangeStart(range);
    } else if (CMTIME_IS_NUMERIC(range.duration)) {
        rangeEnd = toStreamTime(range.duration, timeBase);
    }
    if (!decodes()) return true;

    const AVCodec* codec = avcodec_find_decoder(st->codecpar->codec_id);
    if (!codec) {
        *error =
            platform::avError(AVErrorDecoderNotFound, std::string("No decoder for ") +
                                                          avcodec_get_name(st->codecpar->codec_id));
        return false;
    }
    decoder = avcodec_alloc_context3(codec);
    converter = ffmpeg_reader::FrameConverter::create(requested);
    if (!decoder || !converter || avcodec_parameters_to_context(decoder, st->codecpar) < 0) {
        *error = platform::avError(AVErrorUnknown, "Out of memory");
        return false;
    }
    decoder->pkt_timebase = st->time_base;
    // 0 lets FFmpeg take a thread per core.
    decoder->thread_count = platform::decoderLimits().singleThreaded ? 1 : 0;
    decoder->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
    int ret = avcodec_open2(decoder, codec, nullptr);
    if (ret < 0) {
        *error = platform::avError(AVErrorDecodeFailed,
                                   "The decoder could not open: " + ffmpeg_support::errorText(ret));
        return false;
    }
    thread = std::thread([this] { decodeLoop(); });
    return true;
}

void AVAssetReaderTrackOutput::Impl::stop() {
    {
        std::lock_guard<std::mutex> lock(mutex);
        stopRequested = true;
    }
    changed.notify_all();
    if (thread.joinable()) thread.join();
    std::lock_guard<std::mutex> io(ioMutex);
    {
        std::lock_guard<std::mutex> lock(mutex);
        frames.clear();
    }
    converter.reset();
    avcodec_free_context(&decoder);
    ffmpeg_support::closeInput(&input);
}

CMSampleBufferRef AVAssetReaderTrackOutput::Impl::nextCompressed() {
    std::lock_guard<std::mutex> io(ioMutex);
    if (!input) return nullptr;
    AVPacket* packet = av_packet_alloc();
    if (!packet) return nullptr;
    for (;;) {
        int ret = av_read_frame(input, packet);
        if (ret == AVERROR_EOF) {
            av_packet_free(&packet);
            reportEnd();
            return nullptr;
        }
        if (ret < 0) {
            av_packet_free(&packet);
            shared->fail(
                platform::avError(AVErrorFileFailedToParse,
                                  "Reading a sample failed: " + ffmpeg_support::errorText(ret)));
            return nullptr;
        }
        if (packet->stream_index == streamIndex) break;
        av_packet_unref(packet);
    }
    if (rangeEnd != AV_NOPTS_VALUE && packet->dts != AV_NOPTS_VALUE && packet->dts >= rangeEnd) {
        av_packet_free(&packet);
        reportEnd();
        return nullptr;
    }
    auto backing = std::make_shared<CMSampleBuffer::Backing>();
    backing->packet = packet;
    using ffmpeg_support::timeFromStream;
    return CMSampleBuffer::sampleWithBacking(
        backing, packet->data, static_cast<std::size_t>(packet->size),
        timeFromStream(packet->pts, timeBase.num, timeBase.den),
        timeFromStream(packet->dts, timeBase.num, timeBase.den),
        timeFromStream(packet->duration, timeBase.num, timeBase.den),
        (packet->flags & AV_PKT_FLAG_KEY) != 0, format);
}

CMSampleBufferRef AVAssetReaderTrackOutput::Impl::nextDecoded() {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [this] { return !frames.empty() || decodingDone || stopRequested; });
    if (frames.empty()) {
        lock.unlock();
        if (decodingDone && shared->reading()) reportEnd();
        return nullptr;
    }
    CMSampleBufferRef sample = std::move(frames.front());
    frames.pop_front();
    lock.unlock();
    changed.notify_all();
    return sample;
}

bool AVAssetReaderTrackOutput::Impl::deliver(AVFrame* frame, ErrorRef* error) {
    const std::int64_t shown = frame->best_effort_timestamp;
    if (shown != AV_NOPTS_VALUE) {
        if (rangeStart != AV_NOPTS_VALUE && shown < rangeStart) return true;
        if (rangeEnd != AV_NOPTS_VALUE && shown >= rangeEnd) {
            pastRangeEnd = true;
            return false;
        }
    }
    // Converted only once there is room for it, so that no copy waits beside the queue.
    {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return frames.size() < kFramesAhead || stopRequested; });
        if (stopRequested) return false;
    }
    CVPixelBufferRef buffer = converter->convert(frame, error);
    if (!buffer) {
        if (!*error) *error = platform::avError(AVErrorDecodeFailed, "A frame could not be made");
        return false;
    }
    buffer->setColorAttachments(ffmpeg_support::primariesName(frame->color_primaries),
                                ffmpeg_support::transferName(frame->color_trc),
                                ffmpeg_support::matrixName(frame->colorspace));
    using ffmpeg_support::timeFromStream;
    CMSampleBufferRef sample = CMSampleBuffer::sampleWithImageBuffer(
        buffer, timeFromStream(frame->best_effort_timestamp, timeBase.num, timeBase.den),
        timeFromStream(frame->pkt_duration, timeBase.num, timeBase.den),
        CMVideoFormatDescriptionCreateForImageBuffer(buffer));
    std::unique_lock<std::mutex> lock(mutex);
    if (stopRequested) return false;
    frames.push_back(std::move(sample));
    lock.unlock();
    changed.notify_all();
    return true;
}

void AVAssetReaderTrackOutput::Impl::decodeLoop() {
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    ErrorRef error;
    bool draining = false;
    int decodeErrors = 0;
    while (packet && frame) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (stopRequested) break;
        }
        if (!draining) {
            int ret = av_read_frame(input, packet);
            if (ret == AVERROR_EOF) {
                draining = true;
                avcodec_send_packet(decoder, nullptr);
            } else if (ret < 0) {
                error =
                    platform::avError(AVErrorFileFailedToParse,
                                      "Reading a frame failed: " + ffmpeg_support::errorText(ret));
                break;
            } else {
                if (packet->stream_index == streamIndex) {
                    // A damaged packet is concealed by the decoder as far as it can; the track
                    // goes on.
                    if (avcodec_send_packet(decoder, packet) < 0) ++decodeErrors;
                }
                av_packet_unref(packet);
            }
        }
        int ret;
        while ((ret = avcodec_receive_frame(decoder, frame)) >= 0) {
            bool ok = deliver(frame, &error);
            av_frame_unref(frame);
            if (!ok) break;
        }
        if (error || pastRangeEnd) break;
        if (ret == AVERROR_EOF) break;
        if (ret < 0 && ret != AVERROR(EAGAIN)) ++decodeErrors;
        if (draining && ret == AVERROR(EAGAIN)) break;
    }
    if (decodeErrors > 0) {
        platform::logf("~~ reader: %d damaged samples in track %d", decodeErrors, track->trackID());
    }
    if (error) shared->fail(error);
    av_frame_free(&frame);
    av_packet_free(&packet);
    {
        std::lock_guard<std::mutex> lock(mutex);
        decodingDone = true;
    }
    changed.notify_all();
}

AVAssetReaderTrackOutput::AVAssetReaderTrackOutput(std::unique_ptr<Impl> impl)
    : _impl(std::move(impl)) {}
AVAssetReaderTrackOutput::~AVAssetReaderTrackOutput() = default;

std::shared_ptr<AVAssetReaderTrackOutput> AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(
    AVAssetTrackRef track, std::optional<PlistDictionary> outputSettings) {
    auto impl = std::make_unique<Impl>();
    impl->track = std::move(track);
    impl->settings = std::move(outputSettings);
    impl->requested = ffmpeg_reader::requestedCodes(impl->settings, &impl->settingsValid);
    if (impl->settings && (!impl->track || impl->track->mediaType() != AVMediaTypeVideo)) {
        impl->settingsValid = false;
    }
    if (!impl->track) impl->settingsValid = false;
    return std::shared_ptr<AVAssetReaderTrackOutput>(new AVAssetReaderTrackOutput(std::move(impl)));
}

const AVAssetTrackRef& AVAssetReaderTrackOutput::track() const {
    return _impl->track;
}
const std::optional<PlistDictionary>& AVAssetReaderTrackOutput::outputSettings() const {
    return _impl->settings;
}
const std::string& AVAssetReaderTrackOutput::mediaType() const {
    static const std::string none;
    return _impl->track ? _impl->track->mediaType() : none;
}

CMSampleBufferRef AVAssetReaderTrackOutput::copyNextSampleBuffer() {
    if (!_impl->shared || !_impl->shared->reading()) return nullptr;
    return _impl->decodes() ? _impl->nextDecoded() : _impl->nextCompressed();
}

struct AVAssetReader::Impl {
    AVAssetRef asset;
    std::vector<std::shared_ptr<AVAssetReaderTrackOutput>> outputs;
    std::shared_ptr<ReaderShared> shared = std::make_shared<ReaderShared>();
    std::vector<CMPersistentTrackID> trackIDs;
    CMTimeRange timeRange{kCMTimeZero, kCMTimePositiveInfinity};

    ~Impl() {
        for (auto& output : outputs) output->impl().stop();
    }
};

AVAssetReader::AVAssetReader() : _impl(std::make_unique<Impl>()) {}
AVAssetReader::~AVAssetReader() = default;

std::shared_ptr<AVAssetReader> AVAssetReader::assetReaderWithAsset(AVAssetRef asset,
                                                                   ErrorRef* error) {
    if (!asset) {
        if (error) *error = platform::avError(AVErrorUnknown, "No asset");
        return nullptr;
    }
    auto tracks = asset->loadTracks();
    if (!tracks) {
        if (error) *error = tracks.error();
        return nullptr;
    }
    auto reader = std::shared_ptr<AVAssetReader>(new AVAssetReader());
    reader->_impl->asset = std::move(asset);
    for (const auto& t : tracks.value()) reader->_impl->trackIDs.push_back(t->trackID());
    return reader;
}

const AVAssetRef& AVAssetReader::asset() const {
    return _impl->asset;
}

std::vector<AVAssetReaderOutputRef> AVAssetReader::outputs() const {
    return {_impl->outputs.begin(), _impl->outputs.end()};
}

bool AVAssetReader::canAddOutput(const AVAssetReaderOutputRef& output) const {
    auto trackOutput = std::dynamic_pointer_cast<AVAssetReaderTrackOutput>(output);
    if (!trackOutput || _impl->shared->status != AVAssetReaderStatusUnknown) return false;
    Impl& impl = *_impl;
    AVAssetReaderTrackOutput::Impl& o = trackOutput->impl();
    if (o.attached || !o.settingsValid) return false;
    return std::find(impl.trackIDs.begin(), impl.trackIDs.end(), o.track->trackID()) !=
           impl.trackIDs.end();
}

void AVAssetReader::setTimeRange(CMTimeRange range) {
    if (_impl->shared->status == AVAssetReaderStatusUnknown) _impl->timeRange = range;
}

CMTimeRange AVAssetReader::timeRange() const {
    return _impl->timeRange;
}

void AVAssetReader::addOutput(const AVAssetReaderOutputRef& output) {
    if (!canAddOutput(output)) return;
    auto trackOutput = std::static_pointer_cast<AVAssetReaderTrackOutput>(output);
    trackOutput->impl().attached = true;
    trackOutput->impl().shared = _impl->shared;
    _impl->outputs.push_back(std::move(trackOutput));
}

bool AVAssetReader::startReading() {
    ReaderShared& shared = *_impl->shared;
    {
        std::lock_guard<std::mutex> lock(shared.mutex);
        if (shared.status != AVAssetReaderStatusUnknown) return false;
        shared.status = AVAssetReaderStatusReading;
        shared.outputs = _impl->outputs.size();
    }
    for (auto& output : _impl->outputs) {
        ErrorRef error;
        if (!output->impl().start(_impl->asset->URL(), _impl->timeRange, &error)) {
            shared.fail(error);
            for (auto& o : _impl->outputs) o->impl().stop();
            return false;
        }
    }
    if (_impl->outputs.empty()) {
        std::lock_guard<std::mutex> lock(shared.mutex);
        shared.status = AVAssetReaderStatusCompleted;
    }
    return true;
}

void AVAssetReader::cancelReading() {
    {
        std::lock_guard<std::mutex> lock(_impl->shared->mutex);
        if (_impl->shared->status == AVAssetReaderStatusReading ||
            _impl->shared->status == AVAssetReaderStatusUnknown) {
            _impl->shared->status = AVAssetReaderStatusCancelled;
        }
    }
    for (auto& output : _impl->outputs) output->impl().stop();
}

AVAssetReaderStatus AVAssetReader::status() const {
    std::lock_guard<std::mutex> lock(_impl->shared->mutex);
    return _impl->shared->status;
}

ErrorRef AVAssetReader::error() const {
    std::lock_guard<std::mutex> lock(_impl->shared->mutex);
    return _impl->shared->error;
}
