// The text chunks of PNG files: which keywords stand for keys of the "{PNG}" property family,
// and reading them before and behind the pixel data. The PNG reader and writer share them.
#pragma once

#include <png.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/PlistValue.h"

namespace platform::codecs {

// The family's name for a PNG keyword, and the keyword for a name; null for the others.
const char* appleTextKey(const char* key);
const char* pngTextKey(const std::string& apple);

// The text chunks that libpng read before the pixel data: keys of the family into `family`,
// an XMP packet into `xmp`.
void readTexts(png_structp png, png_infop info, PlistDictionary& family, std::string& xmp);

// Text chunks behind the pixel data, which libpng reaches only by decoding them: walked by
// their lengths in the file's `size` bytes. Uncompressed tEXt and iTXt only.
void readTrailingTexts(const std::uint8_t* data, std::size_t size, PlistDictionary& family,
                       std::string& xmp);

}  // namespace platform::codecs
