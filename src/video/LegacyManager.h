// The class-level bridge through which the asset processor reaches the video jobs (start and
// cancel) and the default fill colours of the settings. Jobs are handed out as VRVideoJob
// handles.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "model/VRColor.h"
#include "model/VRFormat.h"
#include "model/VROrientation.h"
#include "platform/AVAsset.h"
#include "platform/Error.h"
#include "platform/Geometry.h"
#include "video/VRVideoJob.h"
#include "video/VRVideoResizeOptions.h"
#include "video/VRVideoResizeStatus.h"

class LegacyManager {
  public:
    LegacyManager() = delete;

    // Called on the job's own thread; the URL is present only with status finished.
    using VideoCompletion =
        std::function<void(const std::optional<std::string>& url, VRVideoResizeStatus status,
                           const platform::ErrorRef& error)>;

    // Starts a VRVideoResizer2 with options built from the arguments: `frame` is the
    // displacement and the encoded size, `arrangement` stretch, fill or fit, `bitrate` in
    // bits per second (1 or less computed), the JPEG quality from the settings and the
    // location rule from `copyLocation`. An absent progress block stays absent; it is called
    // on the job's threads. Returns the job's handle for videoResizerCancel.
    static VRVideoJob videoResizeWithVideoAsset(
        AVAssetRef asset, const std::string& identifier, const VRFormat& format, CGRect frame,
        VRImageArrangement arrangement, std::int64_t bitrate, VRCodecType codecType,
        const std::optional<VROrientation>& orientation, const std::optional<VRColor>& fillColor,
        bool copyLocation, std::function<void(double)> progressionOnInternalThread,
        VideoCompletion completionOnInternalThread);
    // Cancels the job; an empty handle is ignored.
    static void videoResizerCancel(const VRVideoJob& job);

    // The settings' chosen fill colours, absent while none is chosen.
    static std::optional<VRColor> defaultPhotoColor();
    static std::optional<VRColor> defaultVideoColor();
    // Store (or, with none, forget) the chosen fill colour of the media type.
    static void setDefaultPhotoColor(const std::optional<VRColor>& color);
    static void setDefaultVideoColor(const std::optional<VRColor>& color);
};
