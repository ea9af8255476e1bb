// The camera: one still or a short movie from a video device, standing in for the system's
// image picker. The camera capture of the assets and the `camera` command use it. On Linux it
// reads a Video4Linux device, or any input FFmpeg opens, through FFmpeg's device input.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/Bitmap.h"
#include "platform/Error.h"
#include "platform/PlistValue.h"

namespace platform {

// A missing device answers this code of AVFoundationErrorDomain ("No camera at <device>").
inline constexpr std::int64_t AVErrorDeviceNotConnected = -11814;

// What the camera delivers for a still: the picture, upright (orientation 0), and the image
// properties the device gave with it, if any.
struct CameraStill {
    Bitmap image;
    std::int64_t imageOrientation = 0;
    std::optional<PlistDictionary> metadata;
};

class Camera {
  public:
    // The device when none is set.
    static constexpr const char* kDefaultDevice = "/dev/video0";

    // `device` is a path of a video device (empty for kDefaultDevice), or any FFmpeg input as
    // FORMAT:INPUT, such as "lavfi:testsrc=size=320x240:rate=10". Opening waits for the device.
    explicit Camera(std::string device);

    const std::string& device() const { return _device; }
    // The extension of the movies recordMovie writes ("mov").
    static std::string movieExtension();

    // The first frame the device delivers as 8-bit RGB. None with the error for a missing or
    // busy device ("No camera at /dev/video0", or FFmpeg's words).
    std::optional<CameraStill> captureStill(ErrorRef* error) const;
    // Records `seconds` of the device's pictures (no sound), H.264 in a QuickTime movie at
    // `path`, which must not exist yet: the movie is written under a unique name beside it and
    // moved there when complete, so that a failure leaves no file. Seconds above 0 and at most
    // 3600.
    bool recordMovie(double seconds, const std::string& path, ErrorRef* error) const;

  private:
    std::string _device;
};

}  // namespace platform
