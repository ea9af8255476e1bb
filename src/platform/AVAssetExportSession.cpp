#include "platform/AVAssetExportSession.h"

#include <future>
#include <thread>

#include "platform/AVAssetReader.h"
#include "platform/AVAssetWriter.h"
#include "platform/AVError.h"
#include "platform/AVMediaFormat.h"
#include "platform/AVMutableComposition.h"
#include "platform/CMSampleBuffer.h"

using platform::ErrorRef;

namespace {

// One output track and where its samples come from.
struct OutputTrack {
    std::string mediaType;
    CGAffineTransform transform = CGAffineTransformIdentity;
    std::vector<AVMutableCompositionTrack::Segment> parts;
    CMFormatDescriptionRef hint;
    std::vector<AVMetadataItem> metadata;
};

bool isPreset(const std::string& name) {
    for (const char* preset :
         {AVAssetExportPresetPassthrough, AVAssetExportPresetHEVCHighestQuality,
          AVAssetExportPresetHEVC1920x1080, AVAssetExportPresetMediumQuality}) {
        if (name == preset) return true;
    }
    return false;
}

CMFormatDescriptionRef hintOf(const AVAssetTrack& track) {
    auto formats = track.loadFormatDescriptions();
    if (!formats) return nullptr;
    for (const auto& f : formats.value()) {
        if (f && f->mediaType == track.mediaType()) return f;
    }
    return nullptr;
}

CMTime negated(CMTime t) {
    t.value = -t.value;
    return t;
}

bool collectTracks(const AVAssetRef& asset, std::vector<OutputTrack>& out, ErrorRef* error) {
    if (auto composition = std::dynamic_pointer_cast<AVMutableComposition>(asset)) {
        for (const auto& track : composition->compositionTracks()) {
            OutputTrack o{track->mediaType(),
                          track->loadPreferredTransform().valueOr(CGAffineTransformIdentity),
                          track->segments(), nullptr, track->loadMetadata().valueOr({})};
            if (o.parts.empty()) continue;
            o.hint = hintOf(*o.parts.front().track);
            out.push_back(std::move(o));
        }
        return true;
    }
    auto tracks = asset->loadTracks();
    if (!tracks) {
        *error = tracks.error();
        return false;
    }
    for (const auto& track : tracks.value()) {
        auto range = track->loadTimeRange();
        if (!range) continue;
        OutputTrack o{track->mediaType(),
                      track->loadPreferredTransform().valueOr(CGAffineTransformIdentity),
                      {{asset, track, range.value(), kCMTimeZero}},
                      hintOf(*track),
                      track->loadMetadata().valueOr({})};
        out.push_back(std::move(o));
    }
    return true;
}

}  // namespace

std::shared_ptr<AVAssetExportSession> AVAssetExportSession::exportSessionWithAsset(
    AVAssetRef asset, std::string presetName) {
    if (!asset || !isPreset(presetName)) return nullptr;
    return std::shared_ptr<AVAssetExportSession>(
        new AVAssetExportSession(std::move(asset), std::move(presetName)));
}

std::vector<std::string> AVAssetExportSession::exportPresetsCompatibleWithAsset(
    const AVAssetRef& /*asset*/) {
    return {AVAssetExportPresetPassthrough, AVAssetExportPresetHEVCHighestQuality,
            AVAssetExportPresetHEVC1920x1080, AVAssetExportPresetMediumQuality};
}

ErrorRef AVAssetExportSession::error() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _error;
}

void AVAssetExportSession::exportAsynchronouslyWithCompletionHandler(
    std::function<void()> handler) {
    AVAssetExportSessionStatus expected = AVAssetExportSessionStatusUnknown;
    if (!_status.compare_exchange_strong(expected, AVAssetExportSessionStatusExporting)) return;
    auto self = shared_from_this();
    std::thread([self, handler = std::move(handler)] {
        self->_export();
        if (handler) handler();
    }).detach();
}

void AVAssetExportSession::cancelExport() {
    _cancelled = true;
}

void AVAssetExportSession::_end(AVAssetExportSessionStatus status, ErrorRef error) {
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _error = std::move(error);
    }
    _status = status;
}

void AVAssetExportSession::_export() {
    auto fail = [&](ErrorRef error) { _end(AVAssetExportSessionStatusFailed, std::move(error)); };
    std::vector<OutputTrack> tracks;
    ErrorRef error;
    if (!collectTracks(_asset, tracks, &error)) return fail(error);
    if (tracks.empty()) return fail(platform::avError(AVErrorNoSourceTrack, "Nothing to export"));
    if (_preset != AVAssetExportPresetPassthrough) {
        for (const auto& t : tracks) {
            if (t.mediaType == AVMediaTypeVideo) {
                return fail(platform::avError(AVErrorOperationNotAllowed,
                                              "Video can only be passed through here"));
            }
        }
    }
    auto writer = AVAssetWriter::assetWriterWithURL(_outputURL, _fileType, &error);
    if (!writer) return fail(error);
    std::vector<AVAssetWriterInputRef> inputs;
    for (const auto& t : tracks) {
        auto input =
            AVAssetWriterInput::assetWriterInputWithMediaType(t.mediaType, std::nullopt, t.hint);
        input->setTransform(t.transform);
        input->setMetadata(t.metadata);
        if (!writer->canAddInput(input)) {
            return fail(platform::avError(AVErrorOperationNotAllowed,
                                          "A " + t.mediaType + " track cannot be written"));
        }
        writer->addInput(input);
        inputs.push_back(input);
    }
    writer->setMetadata(_metadata);
    if (!writer->startWriting()) return fail(writer->error());
    writer->startSessionAtSourceTime(kCMTimeZero);

    for (std::size_t i = 0; i < tracks.size() && !_cancelled; ++i) {
        for (const auto& part : tracks[i].parts) {
            auto reader = AVAssetReader::assetReaderWithAsset(part.asset, &error);
            auto output = reader ? AVAssetReaderTrackOutput::assetReaderTrackOutputWithTrack(
                                       part.track, std::nullopt)
                                 : nullptr;
            if (!reader || !reader->canAddOutput(output)) {
                writer->cancelWriting();
                return fail(error ? error
                                  : platform::avError(AVErrorNoSourceTrack,
                                                      "A track of the source cannot be read"));
            }
            reader->addOutput(output);
            if (!reader->startReading()) {
                writer->cancelWriting();
                return fail(reader->error());
            }
            const CMTime end = CMTimeAdd(part.sourceRange.start, part.sourceRange.duration);
            // A whole track keeps the samples outside its range too (the sound's priming).
            const auto whole = part.track->loadTimeRange();
            const bool trim = !whole ||
                              CMTimeCompare(whole.value().start, part.sourceRange.start) != 0 ||
                              CMTimeCompare(whole.value().duration, part.sourceRange.duration) != 0;
            const CMTime shift = CMTimeAdd(part.at, negated(part.sourceRange.start));
            while (!_cancelled) {
                CMSampleBufferRef sample = output->copyNextSampleBuffer();
                if (!sample) break;
                const CMTime pts = sample->presentationTimeStamp();
                if (trim && (CMTimeCompare(pts, part.sourceRange.start) < 0 ||
                             CMTimeCompare(pts, end) >= 0)) {
                    continue;
                }
                if (CMTimeGetSeconds(shift) != 0) {
                    const CMTime dts = sample->decodeTimeStamp();
                    sample = CMSampleBuffer::sampleWithBacking(
                        sample->backing(), sample->dataPointer(), sample->dataLength(),
                        CMTimeAdd(pts, shift), CMTIME_IS_VALID(dts) ? CMTimeAdd(dts, shift) : dts,
                        sample->duration(), sample->isSync(), sample->formatDescription());
                }
                if (!inputs[i]->appendSampleBuffer(sample)) break;
            }
            reader->cancelReading();
            if (writer->status() != AVAssetWriterStatusWriting) break;
        }
    }
    if (_cancelled) {
        writer->cancelWriting();
        return _end(AVAssetExportSessionStatusCancelled, nullptr);
    }
    std::promise<void> finished;
    writer->finishWritingWithCompletionHandler([&finished] { finished.set_value(); });
    finished.get_future().wait();
    if (writer->status() == AVAssetWriterStatusCompleted) {
        return _end(AVAssetExportSessionStatusCompleted, nullptr);
    }
    fail(writer->error());
}
