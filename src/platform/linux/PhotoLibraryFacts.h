// What the Linux photo library reads from one picture or movie file when it catalogues it:
// media type, displayed size, duration, capture date, place and the Live Photo content
// identifier. Reads through the platform's image source and movie asset.
#pragma once

#include <optional>
#include <string>

#include "platform/PhotoLibrary.h"

namespace platform::photolibrary {

// By extension, case-insensitive: photos those of the image codec table (.jpg .png .heic
// .tif .gif .webp and their aliases), movies those of the movie container table (.mov .mp4
// .m4v .3gp .3g2); anything else is unknown and not catalogued.
PHAssetMediaType mediaTypeForPath(const std::string& path);

struct FileFacts {
    PHAssetMediaType mediaType = PHAssetMediaTypeUnknown;
    std::uint32_t pixelWidth = 0;
    std::uint32_t pixelHeight = 0;
    double duration = 0;
    std::optional<PlistDate> creationDate;  // from the file's metadata only
    std::optional<PHLocation> location;
    std::string contentIdentifier;  // Live Photo pairing key, empty when absent
};

// Facts of a file; unreadable or damaged files give the media type with zero sizes, so that
// they are still listed (and fail when their bytes are requested).
FileFacts readFileFacts(const std::string& path);

// "2024:05:01 10:20:30" (EXIF, local time unless `offset` "+02:00" is given) to a date.
std::optional<PlistDate> parseExifDate(const std::string& text, const std::string& offset);
// "+48.8577+002.2950+035.000/" (ISO 6709) to a place.
std::optional<PHLocation> parseISO6709(const std::string& text);

}  // namespace platform::photolibrary
