// The remux stage: rebuilds a movie from a processed video-only file and the other tracks of
// the source, passing every sample through, with a repair pass that re-exports the source's
// non-video tracks when they cannot be passed through. Built for the Live Photo flow but
// started by no flow: the processor only cancels what its mixer list holds.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/VRError.h"
#include "model/VRFormat.h"
#include "platform/AVAsset.h"
#include "platform/AVAssetExportSession.h"
#include "platform/AVMetadataItem.h"
#include "platform/AVMutableComposition.h"
#include "platform/Error.h"
#include "video/VRVideoResizeStatus.h"

class VRVideoMixer : public std::enable_shared_from_this<VRVideoMixer> {
  public:
    // unknown for an export that ended neither completed, failed nor cancelled.
    using Completion =
        std::function<void(const std::optional<std::string>& url, VRVideoResizeStatus status,
                           const platform::ErrorRef& error)>;

    // initWithAVAsset:videoURL:identifier:. The output format starts as MOV.
    static std::shared_ptr<VRVideoMixer> mixerWithAVAsset(AVAssetRef asset,
                                                          std::optional<std::string> videoURL,
                                                          std::string identifier);

    // A passthrough export of the video tracks of `videoURL` (the asset's own when the file is
    // gone), the other tracks of the repaired file or the asset, and the asset's metadata
    // rebuilt. When it fails, the asset's other tracks are repaired once and the mix runs
    // again. `completion` runs on the main queue; the URL only with status finished.
    void mixWithCompletion(Completion completion);
    void cancel();

    const AVAssetRef& asset() const { return _asset; }
    const std::string& identifier() const { return _identifier; }
    const std::optional<std::string>& videoURL() const { return _videoURL; }
    std::optional<std::string> fixedURL() const;
    const VRFormat& outputFormat() const { return _outputFormat; }
    void setOutputFormat(const VRFormat& format) { _outputFormat = format; }

  private:
    VRVideoMixer(AVAssetRef asset, std::optional<std::string> videoURL, std::string identifier);

    void _mixWithCompletion(Completion completion);
    void _rebuildNonVideoTracks(Completion completion);
    void _mixComposition(AVMutableComposition& composition, const AVAssetRef& source,
                         const AVAssetTrackRef& track, std::vector<std::string>& errors) const;
    void _export(const AVAssetExportSessionRef& session, const std::string& outputURL,
                 std::vector<std::string> trackErrors, VRErrorCode failureCode,
                 Completion completion);
    // <this process's folder in documents/_vrtempvideodir>/<name>.<extension of the output
    // format>, any file there
    // removed; the name is videoURL's without extension and without a final "-vid", or the
    // identifier.
    std::string _outputURL() const;
    // The metadata rules of the video job, without the location filter.
    std::vector<AVMetadataItem> _prepareMetadata(const std::vector<AVMetadataItem>& items) const;

    AVAssetRef _asset;
    std::string _identifier;
    std::optional<std::string> _videoURL;
    VRFormat _outputFormat;
    mutable std::mutex _mutex;
    std::optional<std::string> _fixedURL;
    AVAssetExportSessionRef _exportSession;
};
