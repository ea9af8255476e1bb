// How a colour is kept in the user defaults: a dictionary of its four components. Used by
// VRSettings2 for the default fill colours.
#pragma once

#include <optional>

#include "model/VRColor.h"
#include "platform/PlistValue.h"

class VRUserDefaultsCoder {
  public:
    // {"red", "green", "blue", "alpha"} as reals; every value written is read back equal.
    static platform::PlistValue encodeColor(const VRColor& color);
    // Absent unless all four components are numbers from 0 to 1.
    static std::optional<VRColor> decodeColor(const platform::PlistValue& value);
};
