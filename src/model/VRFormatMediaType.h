// The media type code that keys every per-media table: templates, formats, settings.
#pragma once

#include <cstdint>
#include <string>

enum VRFormatMediaType : std::uint64_t {
    VRFormatMediaTypeNone = 0,
    VRFormatMediaTypePhoto = 1,
    VRFormatMediaTypeVideo = 2,
};

// "Photo" / "Video" (short "P" / "V"); any other value gives "".
std::string titleForMediaType(std::uint64_t mediaType, bool shortTitle = false);
