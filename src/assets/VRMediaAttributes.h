// The attributes a file-backed asset reads lazily from its file: the displayed pixel size (a
// movie's first video track turned by its transform, a photo's size turned by its EXIF
// orientation) and a movie's duration. URL, local and file assets share this one reading.
#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "model/VRFormatMediaType.h"
#include "platform/Geometry.h"

struct VRMediaAttributes {
    // Present only when the file could be read; the callers keep their defaults otherwise.
    std::optional<CGSize> pixelSize;
    std::optional<double> duration;  // movies only
};

VRMediaAttributes VRLoadMediaAttributes(const std::string& path, VRFormatMediaType mediaType);

// The same read once, on first use, for assets that keep their file's attributes: 640 x 480
// and no duration until read and when the file can't be read.
class VRLazyMediaAttributes {
  public:
    // Reads the file the first time only; `alsoOnce` runs in the same once (a date to read).
    void load(const std::string& path, VRFormatMediaType mediaType,
              const std::function<void()>& alsoOnce = {}) const;
    CGSize pixelSize() const { return _pixelSize; }
    double duration() const { return _duration.value_or(0); }

  private:
    mutable std::once_flag _loaded;
    mutable CGSize _pixelSize{640, 480};
    mutable std::optional<double> _duration;
};
