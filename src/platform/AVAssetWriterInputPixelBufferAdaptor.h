// Hands pixel buffers to a video writer input and gives out a pool of destination buffers in
// the input's size and pixel format, for the frame scaler to draw into.
#pragma once

#include <memory>
#include <optional>

#include "platform/AVAssetWriterInput.h"
#include "platform/CMTime.h"
#include "platform/CVPixelBuffer.h"
#include "platform/PlistValue.h"

class AVAssetWriterInputPixelBufferAdaptor {
  public:
    // Attributes: kCVPixelBufferPixelFormatTypeKey (one of the six; frames appended must be
    // of it), kCVPixelBufferWidthKey and kCVPixelBufferHeightKey (default: the input's
    // output size). Other keys are ignored.
    static std::shared_ptr<AVAssetWriterInputPixelBufferAdaptor>
    assetWriterInputPixelBufferAdaptorWithAssetWriterInput(
        AVAssetWriterInputRef input,
        std::optional<platform::PlistDictionary> sourcePixelBufferAttributes);

    const AVAssetWriterInputRef& assetWriterInput() const { return _input; }
    const std::optional<platform::PlistDictionary>& sourcePixelBufferAttributes() const {
        return _attributes;
    }
    // Null until the writer has started writing. Its buffers carry the input's colour tags.
    std::shared_ptr<CVPixelBufferPool> pixelBufferPool() const;
    bool appendPixelBuffer(const CVPixelBufferRef& pixelBuffer, CMTime presentationTime);

  private:
    AVAssetWriterInputRef _input;
    std::optional<platform::PlistDictionary> _attributes;
};
