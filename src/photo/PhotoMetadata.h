// The rewrite of a photo's property dictionary between decoding and encoding: new sizes, no
// orientation tags, one normalised date, the program as software, DPI and the EXIF, IPTC and
// GPS families kept or dropped by the settings. VRProcessor::_updateMetadata runs it with the
// stored settings and the current time; tests pass their own.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/Geometry.h"
#include "platform/PlistValue.h"

struct VRPhotoMetadataSettings {
    double photoDPI = 0;
    bool isPhotoDPIAuto = true;
    bool shouldCopyExifMetadata = true;
    bool shouldCopyIptcMetadata = true;
    bool shouldCopyGpsMetadata = true;
    // appFullName: "Unwarp v0.1.0".
    std::string software;
    // Read from VRSettings at each call, so a change during a batch reaches the next photo.
    static VRPhotoMetadataSettings current();
};

// Dates are read and written as "yyyy:MM:dd HH:mm:ss" in the system's time zone; IPTC takes
// "yyyyMMdd" and "HHmmss". With no dictionary nothing happens. When EXIF copying is off the
// XMP family loses its EXIF, EXIF-extension and auxiliary (lens) properties too, and it loses
// its GPS or IPTC properties when those families go, so that nothing removed comes back
// through XMP.
void VRUpdatePhotoMetadata(std::optional<platform::PlistDictionary>& metadata,
                           std::uint64_t formatType,
                           const std::optional<platform::PlistDate>& assetCreationDate,
                           CGSize imageSize, const VRPhotoMetadataSettings& settings,
                           platform::PlistDate now);

// The date forms used above; absent when the text is not a whole date of that form.
std::string VRPhotoDateText(platform::PlistDate date, const char* strftimeFormat);
std::optional<platform::PlistDate> VRPhotoDateFromText(const std::string& text);
