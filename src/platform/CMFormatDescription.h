// What a track's samples are: media type, codec subtype, and for video the size, the pixel
// format the decoder gives and the colour tags. The asset reports these, the writer takes
// one as the format hint of a passthrough input, the video logic reads them.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/AVMediaFormat.h"
#include "platform/CVPixelBuffer.h"

struct CMVideoDimensions {
    std::int32_t width = 0;
    std::int32_t height = 0;
};

class CMFormatDescription {
  public:
    // What the platform layer keeps to stream-copy these samples (codec parameters and time
    // base); defined by the implementation.
    struct Backing;

    // AVMediaType... value.
    std::string mediaType;
    // 'avc1', 'hvc1', 'aac ', ..., or a pixel format code for an image buffer's description.
    FourCharCode mediaSubType = 0;
    // The codec's own name, for diagnostics ("h264", "aac", ...).
    std::string codecName;

    // Video only. `pixelFormat` is the code of the six that frames are delivered in without
    // conversion, or 0 when the decoder's format is outside them (the reader then converts).
    CMVideoDimensions dimensions;
    OSType pixelFormat = 0;
    int bitsPerComponent = 8;
    bool containsAlpha = false;
    bool fullRangeVideo = false;
    // Values of AVVideoSettings.h; absent when the stream does not say or says something
    // without a name there.
    std::optional<std::string> colorPrimaries;
    std::optional<std::string> transferFunction;
    std::optional<std::string> yCbCrMatrix;

    // Audio only.
    double sampleRate = 0;
    int channelCount = 0;

    std::shared_ptr<const Backing> backing;

    // "vide/avc1 1920x1080 ..." for logs.
    std::string debugDescription() const;
};

using CMFormatDescriptionRef = std::shared_ptr<const CMFormatDescription>;

// The description of an image buffer: its pixel format as subtype, size, range and colour
// attachments.
CMFormatDescriptionRef CMVideoFormatDescriptionCreateForImageBuffer(const CVPixelBufferRef& buffer);
inline FourCharCode CMFormatDescriptionGetMediaSubType(const CMFormatDescriptionRef& d) {
    return d ? d->mediaSubType : 0;
}
