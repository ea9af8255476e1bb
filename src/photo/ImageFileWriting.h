// Writes a drawn image to a file of one image format, with the rewritten metadata under the
// three entries the writer always sets. The photo stage writes its results with it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "model/VRFormat.h"
#include "platform/Bitmap.h"
#include "platform/Error.h"
#include "platform/PlistValue.h"

// The EXIF orientation number for the platform's image orientation: 0 or above 7 -> 1,
// 1 -> 3, 2 -> 8, 3 -> 6, 4 -> 2, 5 -> 4, 6 -> 5, 7 -> 7.
std::int64_t VRExifOrientationForImageOrientation(std::int64_t imageOrientation);

// The properties VRWriteImageFile gives the destination for `image`.
platform::PlistDictionary VRImageFileProperties(
    const platform::Bitmap& image, std::int64_t imageOrientation, const VRFormat& format,
    const std::optional<platform::PlistDictionary>& properties);

// VRWriteImageFile. The properties are the metadata (when given) with "Orientation",
// "HasAlpha" (the bitmap's alpha part is 1, 2, 3, 4 or 7) and the lossy compression quality
// (the format's compression, whatever the type) written over them. Any file at `path` is
// removed first. False, with the destination's error when there is one, when the format has no
// writer, the image is null or encoding fails; the destination leaves no partial file.
bool VRWriteImageFile(const platform::Bitmap& image, std::int64_t imageOrientation,
                      const VRFormat& format, const std::string& path,
                      const std::optional<platform::PlistDictionary>& properties,
                      platform::ErrorRef* error = nullptr);
