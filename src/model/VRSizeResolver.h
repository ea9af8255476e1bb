// Turns a template's size request and one asset's shape into output pixels: the method, the
// output size, the drawing frame and displacement, the final format and fill colour, and the
// verdict of the device limit with its correction. Written once here; the photo and video
// stages call it on their processing threads (it is pure).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "core/VRError.h"
#include "model/VRAdjustAssetState.h"
#include "model/VRColor.h"
#include "model/VRFormat.h"
#include "model/VRFormatMediaType.h"
#include "model/VRImageArrangement.h"
#include "model/VROrientation.h"
#include "model/VRSizeEntry.h"
#include "model/VRSizeOption.h"
#include "platform/Geometry.h"
#include "platform/PlistValue.h"

// The device's limits in pixels.
struct VRDeviceLimits {
    CGSize maxPhotoSize;
    CGSize maxVideoSize;
    CGSize minLivePhotoVideoSize;
    // This machine's limits, by its device class (VXHelper::maxPhotoSize() and the others).
    static VRDeviceLimits currentDevice();
};

struct VRResolveRequest {
    VRFormatMediaType mediaType = VRFormatMediaTypePhoto;
    // The template's values for the media type (copies are worked on).
    VRSizeEntry sizeEntry;
    VRSizeOptions options;
    VRFormat format;
    // Photo: the image's pixel size as displayed. Video: the track's natural size.
    CGSize sourceSize;
    // Photo: the image's own orientation. Video: orientationWithTransform of the first video
    // track's preferred transform (the resolver inverts and simplifies it).
    VROrientation sourceOrientation;
    // Null reads as an empty state.
    VRAdjustAssetStateRef adjustState;
    // An exact size imposed by the caller (the halves of a Live Photo, a correction accepted
    // by the user): no limit check.
    std::optional<CGSize> explicitSize;
    // The video half of a Live Photo, with the photo half's output size.
    bool livePhotoVideo = false;
    CGSize pairedPhotoSize;
    // The run's photo compression (photoJPEGCompression / 100), given to JPEG and HEIC.
    float photoCompression = 0.85f;
    // For the Auto format: the photo's type identifier, the video's source path.
    std::string sourceTypeIdentifier;
    std::string sourcePath;
    std::optional<VRColor> defaultPhotoColor;
    std::optional<VRColor> defaultVideoColor;
    // The stages pass VRDeviceLimits::currentDevice().
    VRDeviceLimits limits;
};

// Over the limit: the asset fails with VRError code 5 whose user info offers the correction.
struct VRLimitVerdict {
    CGSize originalSize;
    CGSize exceedingSize;
    CGSize correctingSize;
    // VRErrorUserInfoOriginalSizeKey, ...ExceedingSizeKey (size arrays) and
    // ...CorrectingSizesKey (an array holding one size array).
    platform::PlistDictionary userInfo() const;
    VRErrorRef error() const;
};

struct VRResolvedOutput {
    VRImageArrangement arrangement = VRImageArrangement::stretch;
    // The photo drawing routine's bits: Oriented and SourceColorSpace, plus Fit or Fill.
    VRImageArrangementBits drawingArrangement =
        VRImageArrangementOriented | VRImageArrangementSourceColorSpace;
    // The size the asset gets, in displayed orientation (what is reported to the caller).
    CGSize outputSize;
    // The pixel frame drawn or encoded: outputSize with its sides exchanged when the
    // orientation turns by a quarter, and the final displacement as origin.
    CGRect imageFrame;
    // The picture's own size inside imageFrame: the frame for stretch, the source framed to
    // its ratio inside (fit) or around (clip) it.
    CGSize pictureSize;
    // The format after the Auto rule, with the run's compression for JPEG and HEIC.
    VRFormat format;
    // Photo: the image's orientation with the user's appended, for the drawing routine.
    VROrientation drawingOrientation;
    // Absent: no fill (stretch, clip) or, for an ordinary video, the job's own default.
    std::optional<VRColor> fillColor;
    // Set when the asset fails over the limit; the other fields are then not to be used.
    std::optional<VRLimitVerdict> limitExceeded;
};

namespace VXHelper {

VRResolvedOutput resolveOutput(const VRResolveRequest& request);

}  // namespace VXHelper
