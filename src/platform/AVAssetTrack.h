// One track of a movie and its properties, each loaded on request. Every load can fail and
// says why, so that the video logic's fallback applies. Subclass to stand in for a track in
// tests; the reader and writer rely only on trackID(), mediaType() and the loads.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/AVLoadResult.h"
#include "platform/AVMetadataItem.h"
#include "platform/CMFormatDescription.h"
#include "platform/CMTime.h"
#include "platform/Geometry.h"

using CMPersistentTrackID = std::int32_t;

class AVAssetTrack {
  public:
    virtual ~AVAssetTrack() = default;

    // Unique within its asset, above 0.
    virtual CMPersistentTrackID trackID() const = 0;
    // AVMediaType... value.
    virtual const std::string& mediaType() const = 0;

    // Video: the stored (coded) frame size in pixels, before any pixel aspect or transform.
    // Other media: zero.
    virtual AVLoadResult<CGSize> loadNaturalSize() const = 0;
    // The display matrix of the track; identity when the file has none.
    virtual AVLoadResult<CGAffineTransform> loadPreferredTransform() const = 0;
    virtual AVLoadResult<CMTimeRange> loadTimeRange() const = 0;
    // Frames per second on average; 0 for other media or when unknown.
    virtual AVLoadResult<float> loadNominalFrameRate() const = 0;
    // The shortest frame duration; invalid when unknown.
    virtual AVLoadResult<CMTime> loadMinFrameDuration() const = 0;
    // Bits per second over the track; 0 when unknown.
    virtual AVLoadResult<float> loadEstimatedDataRate() const = 0;
    virtual AVLoadResult<CMTimeScale> loadNaturalTimeScale() const = 0;
    virtual AVLoadResult<std::vector<CMFormatDescriptionRef>> loadFormatDescriptions() const = 0;
    // AVMediaCharacteristic... values; HDR for PQ and HLG transfer.
    virtual AVLoadResult<std::vector<std::string>> loadMediaCharacteristics() const = 0;
    virtual AVLoadResult<std::vector<AVMetadataItem>> loadMetadata() const = 0;

    // True when loadMediaCharacteristics succeeds and holds the characteristic.
    bool hasMediaCharacteristic(const std::string& characteristic) const;
};

using AVAssetTrackRef = std::shared_ptr<AVAssetTrack>;
