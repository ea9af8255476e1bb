#include "platform/AVMutableComposition.h"

#include "platform/AVError.h"

using platform::ErrorRef;

bool AVMutableCompositionTrack::insertTimeRange(CMTimeRange timeRange, const AVAssetRef& asset,
                                                const AVAssetTrackRef& ofTrack, CMTime atTime,
                                                ErrorRef* error) {
    auto fail = [&](const std::string& why) {
        if (error) *error = platform::avError(AVErrorOperationNotAllowed, why);
        return false;
    };
    if (!asset || !ofTrack) return fail("No track to insert");
    if (ofTrack->mediaType() != _mediaType) {
        return fail("A " + ofTrack->mediaType() + " track cannot go into a " + _mediaType +
                    " track");
    }
    if (!CMTIME_IS_NUMERIC(timeRange.start) || !CMTIME_IS_NUMERIC(timeRange.duration) ||
        !CMTIME_IS_NUMERIC(atTime) || CMTimeGetSeconds(timeRange.duration) < 0) {
        return fail("The time range to insert is not valid");
    }
    std::lock_guard<std::mutex> lock(_mutex);
    _segments.push_back({asset, ofTrack, timeRange, atTime});
    return true;
}

void AVMutableCompositionTrack::setPreferredTransform(CGAffineTransform transform) {
    std::lock_guard<std::mutex> lock(_mutex);
    _transform = transform;
}

std::vector<AVMutableCompositionTrack::Segment> AVMutableCompositionTrack::segments() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _segments;
}

AVAssetTrackRef AVMutableCompositionTrack::firstTrack() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _segments.empty() ? nullptr : _segments.front().track;
}

ErrorRef AVMutableCompositionTrack::emptyError() {
    return platform::avError(AVErrorNoSourceTrack, "The composition track is empty");
}

AVLoadResult<CGSize> AVMutableCompositionTrack::loadNaturalSize() const {
    auto t = firstTrack();
    return t ? t->loadNaturalSize() : AVLoadResult<CGSize>(emptyError());
}
AVLoadResult<CGAffineTransform> AVMutableCompositionTrack::loadPreferredTransform() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _transform;
}
AVLoadResult<CMTimeRange> AVMutableCompositionTrack::loadTimeRange() const {
    std::lock_guard<std::mutex> lock(_mutex);
    if (_segments.empty()) return emptyError();
    CMTime end = kCMTimeZero;
    for (const Segment& s : _segments) {
        const CMTime segmentEnd = CMTimeAdd(s.at, s.sourceRange.duration);
        if (CMTimeCompare(segmentEnd, end) > 0) end = segmentEnd;
    }
    return CMTimeRangeMake(kCMTimeZero, end);
}
AVLoadResult<float> AVMutableCompositionTrack::loadNominalFrameRate() const {
    auto t = firstTrack();
    return t ? t->loadNominalFrameRate() : AVLoadResult<float>(emptyError());
}
AVLoadResult<CMTime> AVMutableCompositionTrack::loadMinFrameDuration() const {
    auto t = firstTrack();
    return t ? t->loadMinFrameDuration() : AVLoadResult<CMTime>(emptyError());
}
AVLoadResult<float> AVMutableCompositionTrack::loadEstimatedDataRate() const {
    auto t = firstTrack();
    return t ? t->loadEstimatedDataRate() : AVLoadResult<float>(emptyError());
}
AVLoadResult<CMTimeScale> AVMutableCompositionTrack::loadNaturalTimeScale() const {
    auto t = firstTrack();
    return t ? t->loadNaturalTimeScale() : AVLoadResult<CMTimeScale>(emptyError());
}
AVLoadResult<std::vector<CMFormatDescriptionRef>>
AVMutableCompositionTrack::loadFormatDescriptions() const {
    auto t = firstTrack();
    return t ? t->loadFormatDescriptions()
             : AVLoadResult<std::vector<CMFormatDescriptionRef>>(emptyError());
}
AVLoadResult<std::vector<std::string>> AVMutableCompositionTrack::loadMediaCharacteristics() const {
    auto t = firstTrack();
    return t ? t->loadMediaCharacteristics() : AVLoadResult<std::vector<std::string>>(emptyError());
}
AVLoadResult<std::vector<AVMetadataItem>> AVMutableCompositionTrack::loadMetadata() const {
    auto t = firstTrack();
    return t ? t->loadMetadata() : AVLoadResult<std::vector<AVMetadataItem>>(emptyError());
}

std::shared_ptr<AVMutableComposition> AVMutableComposition::composition() {
    return std::shared_ptr<AVMutableComposition>(new AVMutableComposition());
}

AVMutableCompositionTrackRef AVMutableComposition::addMutableTrackWithMediaType(
    const std::string& mediaType) {
    std::lock_guard<std::mutex> lock(_mutex);
    auto track = std::make_shared<AVMutableCompositionTrack>(
        mediaType, static_cast<CMPersistentTrackID>(_tracks.size() + 1));
    _tracks.push_back(track);
    return track;
}

std::vector<AVMutableCompositionTrackRef> AVMutableComposition::compositionTracks() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _tracks;
}

AVLoadResult<std::vector<AVAssetTrackRef>> AVMutableComposition::loadTracks() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return std::vector<AVAssetTrackRef>(_tracks.begin(), _tracks.end());
}

AVLoadResult<CMTime> AVMutableComposition::loadDuration() const {
    CMTime longest = kCMTimeZero;
    for (const auto& track : compositionTracks()) {
        auto range = track->loadTimeRange();
        if (range && CMTimeCompare(range.value().duration, longest) > 0) {
            longest = range.value().duration;
        }
    }
    return longest;
}

AVLoadResult<std::vector<AVMetadataItem>> AVMutableComposition::loadMetadata() const {
    return std::vector<AVMetadataItem>{};
}
