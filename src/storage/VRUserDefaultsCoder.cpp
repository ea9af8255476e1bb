#include "storage/VRUserDefaultsCoder.h"

#include <cmath>

using platform::PlistDictionary;
using platform::PlistValue;

PlistValue VRUserDefaultsCoder::encodeColor(const VRColor& color) {
    return PlistDictionary{
        {"red", color.red}, {"green", color.green}, {"blue", color.blue}, {"alpha", color.alpha}};
}

std::optional<VRColor> VRUserDefaultsCoder::decodeColor(const PlistValue& value) {
    if (!value.isDictionary()) return std::nullopt;
    double components[4];
    const char* keys[4] = {"red", "green", "blue", "alpha"};
    for (int i = 0; i < 4; ++i) {
        const PlistValue& component = value[keys[i]];
        if (!component.isInteger() && !component.isReal()) return std::nullopt;
        components[i] = component.doubleValue();
        if (!std::isfinite(components[i]) || components[i] < 0 || components[i] > 1) {
            return std::nullopt;
        }
    }
    return VRColor{components[0], components[1], components[2], components[3]};
}
