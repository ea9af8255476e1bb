#include "video/LegacyManager.h"

#include <memory>

#include "storage/VRSettings.h"
#include "storage/VRSettings2.h"
#include "video/VRVideoResizer2.h"

VRVideoJob LegacyManager::videoResizeWithVideoAsset(
    AVAssetRef asset, const std::string& identifier, const VRFormat& format, CGRect frame,
    VRImageArrangement arrangement, std::int64_t bitrate, VRCodecType codecType,
    const std::optional<VROrientation>& orientation, const std::optional<VRColor>& fillColor,
    bool copyLocation, std::function<void(double)> progressionOnInternalThread,
    VideoCompletion completionOnInternalThread) {
    VRVideoResizeOptions options;
    options.fileFormat = format;
    options.jpegCompression = static_cast<float>(VRSettings::photoJPEGCompression() / 100.0);
    options.imageFrame = frame;
    options.imageArrangement = arrangement;
    options.bitrate = bitrate;
    options.codecType = codecType;
    options.orientation = orientation;
    options.fillColor = fillColor;
    options.metadataOptions = VRVideoMetadataOptions{copyLocation};

    auto resizer = VRVideoResizer2::resizerWithAsset(std::move(asset), identifier, options);
    resizer->resize(std::move(progressionOnInternalThread),
                    [completion = std::move(completionOnInternalThread)](
                        const std::optional<std::string>& url, VRVideoResizeStatus status,
                        const platform::ErrorRef& error) {
                        if (!completion) return;
                        const bool finished = status == VRVideoResizeStatus::finished;
                        completion(finished ? url : std::nullopt, status, error);
                    });
    return VRVideoJob(std::move(resizer));
}

void LegacyManager::videoResizerCancel(const VRVideoJob& job) {
    job.cancel();
}

std::optional<VRColor> LegacyManager::defaultPhotoColor() {
    return VRSettings2::defaultPhotoColor();
}

std::optional<VRColor> LegacyManager::defaultVideoColor() {
    return VRSettings2::defaultVideoColor();
}

void LegacyManager::setDefaultPhotoColor(const std::optional<VRColor>& color) {
    VRSettings2::setDefaultPhotoColor(color);
}

void LegacyManager::setDefaultVideoColor(const std::optional<VRColor>& color) {
    VRSettings2::setDefaultVideoColor(color);
}
