// AVAssetWriter on libavformat with libx264, libx265, prores_ks and mjpeg. The file is opened at
// startWriting; the container header is written at the first sample, when the first video
// track's time scale is known. Each video input encodes on its own thread from a short queue,
// so that drawing the next frame and encoding this one overlap. An input that runs more than
// half a second ahead of another input being fed is not ready, so that tracks fed side by side
// reach the muxer in time order and lie interleaved in the file.
#include <sys/stat.h>

#include <algorithm>

#include "platform/AVError.h"
#include "platform/AVMediaFormat.h"
#include "platform/AVVideoSettings.h"
#include "platform/linux/FFmpegSupport.h"
#include "platform/linux/FFmpegWriterCore.h"

using platform::ErrorRef;
using platform::PlistDictionary;
using namespace ffmpeg_writer;

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
    if (in.settings && mediaType == AVMediaTypeVideo) {
        in.video = AVVideoEncoderSettings::settingsWithDictionary(*in.settings, &in.settingsError);
    }
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
platform::ErrorRef AVAssetWriterInput::outputSettingsError() const {
    return _impl->settingsError;
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
    const AVVideoCodecInfo* info = videoCodecWithType(codec);
    return info && fileTypeAcceptsVideoCodec(fileType, info->codec);
}

bool AVAssetWriter::fileTypeAcceptsVideoCodec(const std::string& fileType, AVVideoCodec codec) {
    const AVMovieContainerInfo* container = movieContainerWithFileType(fileType);
    const char* encoder = encodingOf(codec).encoder;
    return container && movieContainerAccepts(*container, codec) && encoder &&
           avcodec_find_encoder_by_name(encoder);
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
        const AVVideoEncoderSettings& c = *in.video;
        const char* name = encodingOf(c.codec).encoder;
        const AVCodec* codec = name ? avcodec_find_encoder_by_name(name) : nullptr;
        if (!codec || c.width <= 0 || c.height <= 0 || c.width > kMaxSide || c.height > kMaxSide) {
            return false;
        }
        if (!videoCodecInfo(c.codec).oddSides && (c.width % 2 || c.height % 2)) {
            return false;
        }
        return movieContainerAccepts(core.container->info(), c.codec);
    }
    if (!in.hint || !in.hint->backing || in.hint->mediaType != in.mediaType) return false;
    const AVCodecParameters* par = in.hint->backing->parameters;
    if (in.mediaType == AVMediaTypeTimecode) {
        return core.container->info().timecodeTracks && par->codec_tag == MKTAG('t', 'm', 'c', 'd');
    }
    if (in.mediaType == AVMediaTypeVideo && par->codec_id == AV_CODEC_ID_PRORES &&
        !movieContainerAccepts(core.container->info(), AVVideoCodec::proRes4444)) {
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
        // Drawn as the encoders take 8-bit 4:2:0 (and the decoders give it): three planes.
        if (in.pool) in.pool->setSeparateChroma(true);
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
