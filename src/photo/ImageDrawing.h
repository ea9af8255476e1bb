// The drawing routine on the photo pipeline's image object, which carries its own orientation
// and scale.
#pragma once

#include <optional>

#include "model/ImageRendering.h"
#include "photo/VRImage.h"

// VRRenderImage: the same on an image object, reading its orientation and scale. The result
// has the image's scale and is tagged "up" when the Oriented bit is set, else with the image's
// orientation. Null where VRRenderCGImage gives null.
VRImageRef VRRenderImage(const VRImage& image, platform::CGInterpolationQuality quality,
                         const std::optional<VRColor>& fillColor,
                         VRImageArrangementBits arrangement, double angle, CGRect crop,
                         CGSize target, CGPoint displacement);
