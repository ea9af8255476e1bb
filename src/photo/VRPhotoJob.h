// The parameters the processor's photo operation closes over, and the photo stage itself: from
// the arrival of the photo's bytes to the call of the completion (decode, resolve the size
// against the device limit, draw, rewrite the metadata, write). Lives for one pass. The
// processor hands itself in as the stage's host, and the settings as they stood at the start.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "assets/VRAsset.h"
#include "core/VRError.h"
#include "model/VRAdjustAssetState.h"
#include "model/VRColor.h"
#include "model/VRFormatMediaType.h"
#include "photo/PhotoMetadata.h"
#include "platform/Geometry.h"
#include "platform/PlistValue.h"
#include "templates/VXTemplate.h"

class VRStreamedPhoto;
struct VRResolvedOutput;

// The end of one stage, on the thread of the stage: the written file, the media type (1
// photo, 2 video), the output size, the error. All empty for a stale run.
using VRStageCompletion =
    std::function<void(std::optional<std::string> url, VRFormatMediaType mediaType,
                       std::optional<CGSize> size, VRErrorRef error)>;

// What the photo stage asks of the processor that runs it.
class VRPhotoStageHost {
  public:
    // True when the run of that start time was cancelled or superseded.
    virtual bool _isProcessingStartTimeInvalid(double startTime) const = 0;
    // The result's file name without extension.
    virtual std::string _filenameOfAsset(const VRAsset& asset) const = 0;

  protected:
    ~VRPhotoStageHost() = default;
};

// The settings the stage reads, taken when the stage starts.
struct VRPhotoStageSettings {
    // photoJPEGCompression / 100.
    double compression = 0.85;
    std::optional<VRColor> defaultPhotoColor;
    VRPhotoMetadataSettings metadata;
};

struct VRPhotoJob {
    // The processor running the stage; outlives it.
    const VRPhotoStageHost* host = nullptr;
    VRPhotoStageSettings settings;
    VRAssetRef asset;
    // A private copy: the stage may change its size entry and format freely.
    VXTemplateRef tpl;
    // Never null.
    VRAdjustAssetStateRef adjustState;
    // Read just before the image data are requested; passed to the metadata rewrite.
    std::optional<platform::PlistDate> creationDate;
    // Called exactly once, on the processing queue's thread.
    VRStageCompletion completion;
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

  private:
    void writeStreamed(VRStreamedPhoto& streamed, std::optional<platform::PlistDictionary> metadata,
                       const std::string& filename, const VRResolvedOutput& output) const;
};
