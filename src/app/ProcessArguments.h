// Reading the `process` command's adjustment flags (turns, the shift and the fill colour) and
// its photo format.
// Each answers an absent value, with the reason, for text it can't read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "model/VRColor.h"
#include "model/VRFormat.h"
#include "platform/Geometry.h"

namespace app {

// Degrees, a multiple of 90 (negative turns anticlockwise), as clockwise quarter turns 0...3.
std::optional<std::int64_t> parseQuarterTurns(const std::string& text, std::string* problem);
// "X,Y" in output pixels, whole or decimal, each within +-100000.
std::optional<CGPoint> parseShift(const std::string& text, std::string* problem);
// "#RRGGBB" or "#RRGGBBAA" (the '#' may be left out), hexadecimal in any case.
std::optional<VRColor> parseFillColor(const std::string& text, std::string* problem);

// The photo format a run writes instead of the template's, at the template's compression
// `compression`: a template's photo format name ("jpeg", "png", "auto", ...) or "webp", any
// case. WebP is offered here only, beside the formats a template can hold.
std::optional<VRFormat> parsePhotoFormat(const std::string& text, float compression,
                                         std::string* problem);

}  // namespace app
