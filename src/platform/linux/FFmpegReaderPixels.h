// The pixels a video track output of the FFmpeg reader hands out: which of the six buffer
// codes the caller may ask for, which one a decoded frame goes out in, and the conversion into
// it (the decoder's own memory where the layout already fits, else a copy through swscale).
#pragma once

#include <memory>
#include <optional>
#include <vector>

extern "C" {
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

#include "platform/AVMediaFormat.h"
#include "platform/CVPixelBuffer.h"
#include "platform/Error.h"
#include "platform/PlistValue.h"

namespace ffmpeg_reader {

// The codes asked for by kCVPixelBufferPixelFormatTypeKey (one or a list); empty for
// compressed output. `valid` false for unusable settings: no key, or a code not of the six.
std::vector<OSType> requestedCodes(const std::optional<platform::PlistDictionary>& settings,
                                   bool* valid);
// The code a source of this pixel format and range is delivered in: its own where asked for,
// else the nearest asked for by alpha, depth and range.
OSType chooseCode(const std::vector<OSType>& requested, int pixelFormat, bool fullRange);

// Converts the frames of one track; the code is chosen at the first frame, since the stream
// header alone often does not say what the decoder gives.
class FrameConverter {
  public:
    // Null when out of memory.
    static std::unique_ptr<FrameConverter> create(std::vector<OSType> requested);
    ~FrameConverter();
    FrameConverter(const FrameConverter&) = delete;
    FrameConverter& operator=(const FrameConverter&) = delete;

    // Null, with the error where there is one, when the frame cannot be converted.
    CVPixelBufferRef convert(AVFrame* frame, platform::ErrorRef* error);

  private:
    explicit FrameConverter(std::vector<OSType> requested) : _requested(std::move(requested)) {}

    std::vector<OSType> _requested;
    OSType _code = 0;
    SwsContext* _sws = nullptr;
    std::shared_ptr<CVPixelBufferPool> _pool;
    AVFrame* _scratch = nullptr;
};

}  // namespace ffmpeg_reader
