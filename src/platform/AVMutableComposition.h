// An asset put together from time ranges of other assets' tracks, standing in for the media
// framework's composition: the remux stage builds one and exports it. Each inserted range
// remembers the asset it came from, so that the export session can read it; the composition
// itself has no file of its own.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/AVAsset.h"
#include "platform/AVAssetTrack.h"
#include "platform/Error.h"

class AVMutableCompositionTrack final : public AVAssetTrack {
  public:
    // One inserted range: `sourceRange` of `track` (of `asset`) placed at `at`.
    struct Segment {
        AVAssetRef asset;
        AVAssetTrackRef track;
        CMTimeRange sourceRange;
        CMTime at;
    };

    AVMutableCompositionTrack(std::string mediaType, CMPersistentTrackID trackID)
        : _mediaType(std::move(mediaType)), _trackID(trackID) {}

    CMPersistentTrackID trackID() const override { return _trackID; }
    const std::string& mediaType() const override { return _mediaType; }

    // The platform's insertTimeRange:ofTrack:atTime:error:, with the track's asset named too.
    // Fails for a missing track, a track of another media type or a range that is not numeric.
    bool insertTimeRange(CMTimeRange timeRange, const AVAssetRef& asset,
                         const AVAssetTrackRef& ofTrack, CMTime atTime, platform::ErrorRef* error);
    void setPreferredTransform(CGAffineTransform transform);
    std::vector<Segment> segments() const;

    // The first segment's track answers, except for the transform set here and a time range
    // from 0 to the end of the last segment. With no segment the loads fail.
    AVLoadResult<CGSize> loadNaturalSize() const override;
    AVLoadResult<CGAffineTransform> loadPreferredTransform() const override;
    AVLoadResult<CMTimeRange> loadTimeRange() const override;
    AVLoadResult<float> loadNominalFrameRate() const override;
    AVLoadResult<CMTime> loadMinFrameDuration() const override;
    AVLoadResult<float> loadEstimatedDataRate() const override;
    AVLoadResult<CMTimeScale> loadNaturalTimeScale() const override;
    AVLoadResult<std::vector<CMFormatDescriptionRef>> loadFormatDescriptions() const override;
    AVLoadResult<std::vector<std::string>> loadMediaCharacteristics() const override;
    AVLoadResult<std::vector<AVMetadataItem>> loadMetadata() const override;

  private:
    AVAssetTrackRef firstTrack() const;
    static platform::ErrorRef emptyError();

    std::string _mediaType;
    CMPersistentTrackID _trackID;
    mutable std::mutex _mutex;
    std::vector<Segment> _segments;
    CGAffineTransform _transform = CGAffineTransformIdentity;
};

using AVMutableCompositionTrackRef = std::shared_ptr<AVMutableCompositionTrack>;

class AVMutableComposition final : public AVAsset {
  public:
    static std::shared_ptr<AVMutableComposition> composition();

    // Track IDs are given in order from 1.
    AVMutableCompositionTrackRef addMutableTrackWithMediaType(const std::string& mediaType);
    std::vector<AVMutableCompositionTrackRef> compositionTracks() const;

    // Empty: a composition has no file.
    const std::string& URL() const override { return _url; }
    AVLoadResult<std::vector<AVAssetTrackRef>> loadTracks() const override;
    // The end of the longest track.
    AVLoadResult<CMTime> loadDuration() const override;
    // None: metadata is given to the export.
    AVLoadResult<std::vector<AVMetadataItem>> loadMetadata() const override;

  private:
    AVMutableComposition() = default;
    mutable std::mutex _mutex;
    std::vector<AVMutableCompositionTrackRef> _tracks;
    std::string _url;
};

using AVMutableCompositionRef = std::shared_ptr<AVMutableComposition>;
