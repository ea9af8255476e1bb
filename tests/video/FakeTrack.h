// A video track whose every load is set by the test, failed loads included, for the logic
// that reads track properties with fallbacks.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/AVAssetTrack.h"
#include "platform/AVError.h"
#include "platform/AVMediaFormat.h"

namespace video_test {

class FakeTrack : public AVAssetTrack {
  public:
    std::string type = AVMediaTypeVideo;
    std::optional<CGSize> naturalSize = CGSize{1920, 1080};
    std::optional<float> nominalFrameRate = 30.0f;
    std::optional<CMTime> minFrameDuration = CMTimeMake(1, 30);
    std::optional<float> estimatedDataRate = 0.0f;
    std::optional<std::vector<CMFormatDescriptionRef>> formatDescriptions =
        std::vector<CMFormatDescriptionRef>{};
    std::optional<CMTimeRange> timeRange = CMTimeRangeMake(kCMTimeZero, CMTimeMake(2, 1));

    CMPersistentTrackID trackID() const override { return 1; }
    const std::string& mediaType() const override { return type; }
    AVLoadResult<CGSize> loadNaturalSize() const override { return result(naturalSize); }
    AVLoadResult<CGAffineTransform> loadPreferredTransform() const override {
        return CGAffineTransformIdentity;
    }
    AVLoadResult<CMTimeRange> loadTimeRange() const override { return result(timeRange); }
    AVLoadResult<float> loadNominalFrameRate() const override { return result(nominalFrameRate); }
    AVLoadResult<CMTime> loadMinFrameDuration() const override { return result(minFrameDuration); }
    AVLoadResult<float> loadEstimatedDataRate() const override { return result(estimatedDataRate); }
    AVLoadResult<CMTimeScale> loadNaturalTimeScale() const override { return CMTimeScale(600); }
    AVLoadResult<std::vector<CMFormatDescriptionRef>> loadFormatDescriptions() const override {
        return result(formatDescriptions);
    }
    AVLoadResult<std::vector<std::string>> loadMediaCharacteristics() const override {
        return std::vector<std::string>{};
    }
    AVLoadResult<std::vector<AVMetadataItem>> loadMetadata() const override {
        return std::vector<AVMetadataItem>{};
    }

  private:
    template <class T>
    static AVLoadResult<T> result(const std::optional<T>& value) {
        if (value) return *value;
        return platform::avError(AVErrorUnknown, "not loadable in this test");
    }
};

// A video format description of the given codec and colour tags.
inline CMFormatDescriptionRef videoFormat(FourCharCode codec, int bits,
                                          std::optional<std::string> primaries = {},
                                          std::optional<std::string> transfer = {},
                                          std::optional<std::string> matrix = {}) {
    auto d = std::make_shared<CMFormatDescription>();
    d->mediaType = AVMediaTypeVideo;
    d->mediaSubType = codec;
    d->dimensions = {1920, 1080};
    d->bitsPerComponent = bits;
    d->colorPrimaries = std::move(primaries);
    d->transferFunction = std::move(transfer);
    d->yCbCrMatrix = std::move(matrix);
    return d;
}

}  // namespace video_test
