// One picture of a movie: the asset manager turns a video into image bytes with it (a photo
// request for a movie, previews and thumbnails of movies).
#pragma once

#include <memory>
#include <optional>

#include "platform/AVAsset.h"
#include "platform/Bitmap.h"
#include "platform/CMTime.h"
#include "platform/Error.h"

class AVAssetImageGenerator {
  public:
    static std::shared_ptr<AVAssetImageGenerator> assetImageGeneratorWithAsset(AVAssetRef asset);

    // When set, the frame is turned as the first video track's display matrix says (quarter
    // turns and mirrors), so that it comes out as the movie is shown.
    bool appliesPreferredTrackTransform() const { return _appliesPreferredTrackTransform; }
    void setAppliesPreferredTrackTransform(bool value) { _appliesPreferredTrackTransform = value; }

    // The first frame shown at or after `requestedTime` (the last frame when the movie ends
    // before it), as 8-bit RGB; `actualTime` receives its presentation time. Nothing, with the
    // error, for a file without a decodable video track. Blocks while decoding.
    std::optional<platform::Bitmap> copyCGImageAtTime(CMTime requestedTime, CMTime* actualTime,
                                                      platform::ErrorRef* error) const;

    const AVAssetRef& asset() const { return _asset; }

  private:
    explicit AVAssetImageGenerator(AVAssetRef asset) : _asset(std::move(asset)) {}
    AVAssetRef _asset;
    bool _appliesPreferredTrackTransform = false;
};
