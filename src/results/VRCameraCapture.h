// A fresh capture from the camera made into an asset: the picture or movie becomes the one file
// assets/camera.<extension>, which stays until the next capture replaces it. The home flow and
// the `camera` command use it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "assets/VRAsset.h"
#include "platform/Bitmap.h"
#include "platform/Camera.h"
#include "platform/Error.h"
#include "platform/PlistValue.h"

// What the camera hands back, as the image picker's information dictionary does.
struct VRCameraMediaInfo {
    // None: the picker said nothing about what it took, and no asset is made.
    std::optional<VRFormatMediaType> mediaType;
    // Movie: the delivered file, which the capture copies and leaves where it is.
    std::string mediaURL;
    // Image: the picture, its platform image orientation and its metadata, if any.
    std::optional<platform::Bitmap> originalImage;
    std::int64_t imageOrientation = 0;
    std::optional<platform::PlistDictionary> mediaMetadata;
};

class VRCameraCapture {
  public:
    VRCameraCapture() = delete;

    // imagePickerController:didFinishPickingMediaWithInfo:. Removes the earlier capture
    // (every name beginning "camera" in the assets folder), then puts the movie at
    // assets/camera.<its extension>, or writes the picture as assets/camera.jpg with its
    // orientation and metadata. Null when there is no media type, no picture, or the file
    // can't be written; then `error` says why.
    static std::shared_ptr<VRAsset> assetWithMediaInfo(const VRCameraMediaInfo& info,
                                                       platform::ErrorRef* error = nullptr);

    // A still from the camera through assetWithMediaInfo. Null with the camera's error when it
    // gives no picture; the earlier capture is then kept.
    static std::shared_ptr<VRAsset> capturePhoto(const platform::Camera& camera,
                                                 platform::ErrorRef* error = nullptr);
    // A movie of `seconds` recorded into this process's temporaries, then taken as above.
    static std::shared_ptr<VRAsset> captureMovie(const platform::Camera& camera, double seconds,
                                                 platform::ErrorRef* error = nullptr);

    // The path of the capture for an extension: assets/camera.<extension>.
    static std::string captureURLWithExtension(const std::string& extension);
};
