// One sample from a reader output: a decoded frame (an image buffer) or a compressed sample
// whose bytes are the file's own, with its times. The writer takes either kind.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/CMFormatDescription.h"
#include "platform/CMTime.h"
#include "platform/CVPixelBuffer.h"

class CMSampleBuffer {
  public:
    // The compressed packet as the platform layer keeps it; defined by the implementation.
    struct Backing;

    static std::shared_ptr<CMSampleBuffer> sampleWithImageBuffer(CVPixelBufferRef imageBuffer,
                                                                 CMTime presentationTime,
                                                                 CMTime duration,
                                                                 CMFormatDescriptionRef format);
    static std::shared_ptr<CMSampleBuffer> sampleWithBacking(
        std::shared_ptr<Backing> backing, const std::uint8_t* data, std::size_t length, CMTime pts,
        CMTime dts, CMTime duration, bool isSync, CMFormatDescriptionRef format);

    // Null for a compressed sample.
    const CVPixelBufferRef& imageBuffer() const { return _imageBuffer; }
    CMTime presentationTimeStamp() const { return _pts; }
    // Invalid for a decoded frame.
    CMTime decodeTimeStamp() const { return _dts; }
    CMTime duration() const { return _duration; }
    const CMFormatDescriptionRef& formatDescription() const { return _format; }

    // Compressed samples: the bytes as stored in the file, and whether it is a sync sample.
    const std::uint8_t* dataPointer() const { return _data; }
    std::size_t dataLength() const { return _length; }
    bool isSync() const { return _isSync; }
    const std::shared_ptr<Backing>& backing() const { return _backing; }

  private:
    CVPixelBufferRef _imageBuffer;
    CMTime _pts, _dts, _duration;
    CMFormatDescriptionRef _format;
    std::shared_ptr<Backing> _backing;
    const std::uint8_t* _data = nullptr;
    std::size_t _length = 0;
    bool _isSync = true;
};

using CMSampleBufferRef = std::shared_ptr<CMSampleBuffer>;

inline CVPixelBufferRef CMSampleBufferGetImageBuffer(const CMSampleBufferRef& s) {
    return s ? s->imageBuffer() : nullptr;
}
inline CMTime CMSampleBufferGetPresentationTimeStamp(const CMSampleBufferRef& s) {
    return s ? s->presentationTimeStamp() : kCMTimeInvalid;
}
inline CMFormatDescriptionRef CMSampleBufferGetFormatDescription(const CMSampleBufferRef& s) {
    return s ? s->formatDescription() : nullptr;
}
