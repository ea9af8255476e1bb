// How far a photo may be reduced while it is decoded (shrink-on-load): the photo stage asks
// before it decodes, so that a large reduction starts from a JPEG's scaled inverse DCT instead
// of the whole picture, and the high-quality filter does the rest.
#pragma once

#include <cstdint>

#include "platform/Geometry.h"

// The largest of 8, 4 and 2 that still leaves at least a 2x reduction on both axes for the
// filter, or 1: `stored` is the source in stored orientation, `drawn` the size that the
// picture is drawn at, in the same orientation. Below 2x the block means of the reduced decode
// would show through the filter as softness and aliasing. Non-finite or empty sizes give 1.
std::uint32_t VRShrinkOnLoadDenominator(CGSize stored, CGSize drawn);
