// The parameters the processor's photo operation closes over, and the photo stage itself: from
// the arrival of the photo's bytes to the call of the completion (decode, resolve the size
// against the device limit, draw, rewrite the metadata, write). Lives for one pass.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "assets/VRAsset.h"
#include "core/VRProcessor.h"
#include "model/VRAdjustAssetState.h"
#include "platform/Geometry.h"
#include "platform/PlistValue.h"
#include "templates/VXTemplate.h"

struct VRPhotoJob {
    VRAssetRef asset;
    // A private copy: the stage may change its size entry and format freely.
    VXTemplateRef tpl;
    // Never null.
    VRAdjustAssetStateRef adjustState;
    // Read just before the image data are requested; passed to the metadata rewrite.
    std::optional<platform::PlistDate> creationDate;
    // Called exactly once, on the processing queue's thread.
    VRProcessor::CompletionOnInternalThread completion;
    // photoJPEGCompression / 100.
    double compression = 0.85;
    // An explicit output size, or (0, 0).
    CGSize size;
    bool hasExplicitSize = false;
    // The run's token from _registerProcessingStartTime.
    double startTime = 0;

    // The stage, on the delivery of the photo's bytes and their type identifier. Completes
    // with: the new file and its size; code 1 without bytes; code 5 with the limit's user
    // information; code 2 when the file can't be written (also for undecodable bytes); nothing
    // at all when the run became stale at either checkpoint (before drawing, before writing).
    void processImageData(std::optional<std::vector<std::uint8_t>> data,
                          const std::string& typeIdentifier) const;
};
