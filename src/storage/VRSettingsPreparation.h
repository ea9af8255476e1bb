// The first-run values and the one-time migrations of the settings dictionary, as changes of
// the dictionary itself: VRSettings runs them as one edit of the user defaults, so that they
// are decided again on the stored dictionary when another process wrote it meanwhile.
#pragma once

#include "platform/PlistValue.h"

namespace VRSettingsPreparation {

// True while the dictionary lacks its first-run values or a migration marker.
bool needsPreparation(const platform::PlistDictionary& settings);
// No "settingsInit": the first-run values. Otherwise each migration whose marker is absent,
// in order; the marker is set before the step's work.
void prepare(platform::PlistDictionary& settings);

// The recent-size lists the first run writes, by device class (class 0 has smaller ones).
platform::PlistArray defaultImageSizes(unsigned deviceClass);
platform::PlistArray defaultVideoSizes(unsigned deviceClass);

// The first-run sizes, format and options of one media type.
void resetImageSizes(platform::PlistDictionary& settings);
void resetVideoSizes(platform::PlistDictionary& settings);
void resetImageSettings(platform::PlistDictionary& settings);
void resetVideoSettings(platform::PlistDictionary& settings);

}  // namespace VRSettingsPreparation
