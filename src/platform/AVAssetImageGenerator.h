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

    // How far before and after the requested time the picture may lie. Both zero (the default
    // here) ask for the exact frame; a window lets the generator take the first sync frame
    // inside it, which is decoded without the frames before it.
    CMTime requestedTimeToleranceBefore() const { return _toleranceBefore; }
    void setRequestedTimeToleranceBefore(CMTime value) { _toleranceBefore = value; }
    CMTime requestedTimeToleranceAfter() const { return _toleranceAfter; }
    void setRequestedTimeToleranceAfter(CMTime value) { _toleranceAfter = value; }

    // The first sync frame inside the tolerance window, else the first frame shown at or after
    // `requestedTime` (the last frame when the movie ends before it), as 8-bit RGB;
    // `actualTime` receives its presentation time. Nothing, with the error, for a file without
    // a decodable video track. Blocks while decoding.
    std::optional<platform::Bitmap> copyCGImageAtTime(CMTime requestedTime, CMTime* actualTime,
                                                      platform::ErrorRef* error) const;

    const AVAssetRef& asset() const { return _asset; }

  private:
    explicit AVAssetImageGenerator(AVAssetRef asset) : _asset(std::move(asset)) {}
    AVAssetRef _asset;
    bool _appliesPreferredTrackTransform = false;
    CMTime _toleranceBefore = kCMTimeZero, _toleranceAfter = kCMTimeZero;
};
