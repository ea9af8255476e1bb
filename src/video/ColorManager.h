// The colour tags a re-encoded video track may carry: the default ITU-R 709-2 set and the
// test that decides whether a source's tags pass for the chosen codec. Used by
// PresetConstructor when it builds the encoder settings.
#pragma once

#include <string>

#include "platform/PlistValue.h"

class ColorManager {
  public:
    // Primaries, transfer function and matrix all ITU-R 709-2; built once.
    static const platform::PlistDictionary& defaultColorProperties();

    // True when `properties` is a dictionary whose three keys (primaries, transfer function,
    // matrix) hold strings of the accepted lists: primaries 709-2, P3 D65, SMPTE C, 2020;
    // transfer 709-2, PQ, HLG; matrix 709-2, 601-4, and 2020 for every codec but H.264.
    static bool areColorPropertiesAccepted(const platform::PlistValue& properties,
                                           const std::string& codec);
};
