// The tag tables between exiv2's keys and the property families, and the helpers that the
// metadata reader and writer share. Internal to the Linux platform layer. exiv2's headers use
// std::auto_ptr, which C++20 marks deprecated, hence the pragma around them.
#pragma once

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <exiv2/exiv2.hpp>
#pragma GCC diagnostic pop

#include <span>
#include <string>

namespace platform::codecs {

enum class Kind { Plain, Version, GPSCoordinate, GPSTime, Comment };

// One EXIF or GPS tag: its family and key in the properties, its exiv2 key, how it converts.
struct ExifTag {
    const char* family;
    const char* key;
    const char* exiv2;
    Kind kind = Kind::Plain;
};

// One IPTC dataset: its key in the "{IPTC}" family, its exiv2 key, whether it repeats.
struct IptcTag {
    const char* key;
    const char* exiv2;
    bool repeated = false;
};

std::span<const ExifTag> exifTags();
std::span<const IptcTag> iptcTags();

// exiv2 logs nothing and its XMP parser is set up, once per process.
void initialiseExiv2();
bool isRational(Exiv2::TypeId t);
bool isInteger(Exiv2::TypeId t);
// `s` without the characters of `separators`: IPTC dates and times are kept without them.
std::string withoutSeparators(std::string s, const char* separators);

}  // namespace platform::codecs
