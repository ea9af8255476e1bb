// The fill colours of the adjust session: the fixed palette of its colour controls and the
// default fill colour of each media type kept in the settings. Used by the adjust session and
// by whatever shows its colour controls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "model/VRColor.h"

namespace VRAdjustColors {

// The 44 palette entries, six hexadecimal digits each. Entry 0 is the control that opens the
// colour picker; "111111" is only the picker's first colour.
const std::vector<std::string>& palette();
// The colour of "RRGGBB" (an optional '#' first), opaque; absent for anything else.
std::optional<VRColor> colorWithHexString(const std::string& hex);
// The palette entry (1 or above) whose colour equals `color` after rounding each component
// to 8 bits; absent when none does.
std::optional<std::size_t> paletteIndexOfColor(const VRColor& color);

// _defaultColor: the stored default of the media type, else black for video (2) and white for
// anything else.
VRColor defaultColor(std::uint64_t mediaType);
// defaultNullableFillColorFor:supportsTransparency: the stored default, else clear for a
// format with transparency (the margins stay see-through), else absent.
std::optional<VRColor> defaultNullableFillColor(std::uint64_t mediaType, bool supportsTransparency);
// defaultOpaqueFillColorFor: the stored default, else defaultColor.
VRColor defaultOpaqueFillColor(std::uint64_t mediaType);
// The stored default of the media type: the photo colour for anything but video.
std::optional<VRColor> storedDefaultColor(std::uint64_t mediaType);
// Stores the default of the media type; none forgets it.
void setStoredDefaultColor(std::uint64_t mediaType, const std::optional<VRColor>& color);

}  // namespace VRAdjustColors
