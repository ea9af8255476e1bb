// The image file types this build can write, as uniform type identifiers. The format list
// offers TIFF and HEIC only where a writer for them exists.
#pragma once

#include <string>
#include <vector>

namespace platform {

// The writers linked into the platform layer: JPEG, PNG, TIFF and GIF always, HEIC when the
// HEIF library has an HEVC encoder.
std::vector<std::string> imageDestinationTypeIdentifiers();

}  // namespace platform
