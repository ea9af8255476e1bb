// One track of a movie being written: either a video input that encodes frames by its output
// settings, or a passthrough input (no output settings, a source format hint) that stores
// compressed samples unchanged. The video track providers feed them from their request blocks.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/AVMetadataItem.h"
#include "platform/CMFormatDescription.h"
#include "platform/CMSampleBuffer.h"
#include "platform/Dispatch.h"
#include "platform/Error.h"
#include "platform/Geometry.h"
#include "platform/PlistValue.h"

class AVAssetWriterInput {
  public:
    struct Impl;

    // Video output settings (AVVideoSettings.h), read once into AVVideoEncoderSettings:
    // AVVideoCodecKey (a codec of AVVideoCodecs.h that has an encoder here),
    // AVVideoWidthKey, AVVideoHeightKey, AVVideoColorPropertiesKey and
    // AVVideoCompressionPropertiesKey (average bit rate, profile, expected frame rate, key frame
    // interval, pixel aspect, quality, encoder preset). No settings: passthrough, which needs
    // the source format hint to be added to a writer.
    static std::shared_ptr<AVAssetWriterInput> assetWriterInputWithMediaType(
        const std::string& mediaType, std::optional<platform::PlistDictionary> outputSettings,
        CMFormatDescriptionRef sourceFormatHint = nullptr);
    ~AVAssetWriterInput();

    const std::string& mediaType() const;
    const std::optional<platform::PlistDictionary>& outputSettings() const;
    // Why a video input's output settings cannot be used (a missing, unknown or ill-typed key,
    // an unknown codec); null when they can. A writer refuses an input that has one.
    platform::ErrorRef outputSettingsError() const;
    const CMFormatDescriptionRef& sourceFormatHint() const;

    void setExpectsMediaDataInRealTime(bool value);
    bool expectsMediaDataInRealTime() const;
    // Written as the track's display matrix. Set before the writer starts.
    void setTransform(CGAffineTransform transform);
    CGAffineTransform transform() const;
    // Track-level items; those with a name in the container are written.
    void setMetadata(std::vector<AVMetadataItem> items);
    const std::vector<AVMetadataItem>& metadata() const;

    // True while the writer is writing and the input can take a sample without waiting. False
    // while the input is more than half a second ahead of another input that is being fed
    // (that has a request block or samples, and is not finished), and for a passthrough input
    // until a video input has brought its first picture or finished: inputs fed side by side
    // are thus written interleaved in time order. Once the writer has failed it stays true, so
    // that a request loop appends once more, sees the append fail and ends.
    bool isReadyForMoreMediaData() const;
    // Calls `block` on `queue` whenever the input is ready, until markAsFinished or until the
    // writer ends. The block is expected to append while isReadyForMoreMediaData holds.
    void requestMediaDataWhenReadyOnQueue(std::shared_ptr<platform::DispatchQueue> queue,
                                          std::function<void()> block);
    // A compressed sample (passthrough) or a sample holding an image buffer (video input).
    // False when the writer is not writing, the input is finished, or the sample is refused.
    bool appendSampleBuffer(const CMSampleBufferRef& sample);
    // No more samples; a video input drains its encoder.
    void markAsFinished();

    Impl& impl() { return *_impl; }
    const Impl& impl() const { return *_impl; }

  private:
    AVAssetWriterInput();
    std::unique_ptr<Impl> _impl;
};

using AVAssetWriterInputRef = std::shared_ptr<AVAssetWriterInput>;
