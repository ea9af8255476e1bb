// Uniform type identifiers of the media formats the program reads and writes, found by file
// extension or by the first bytes of a file, with the conformance the format rules test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The movie file types (AVFileType...) are the media framework's names.
#include "platform/AVMediaFormat.h"

inline constexpr const char* kUTTypeJPEG = "public.jpeg";
inline constexpr const char* kUTTypePNG = "public.png";
inline constexpr const char* kUTTypeGIF = "com.compuserve.gif";
inline constexpr const char* kUTTypeTIFF = "public.tiff";
inline constexpr const char* kUTTypeHEIC = "public.heic";
inline constexpr const char* kUTTypeHEIF = "public.heif";
inline constexpr const char* kUTTypeWebP = "org.webmproject.webp";
inline constexpr const char* kUTTypeImage = "public.image";
inline constexpr const char* kUTTypeMovie = "public.movie";
inline constexpr const char* kUTTypeQuickTimeMovie = "com.apple.quicktime-movie";
inline constexpr const char* kUTTypeMPEG4 = "public.mpeg-4";

namespace TypeIdentifiers {

// True when `type` is `conformsTo` or one of its ancestors in the known hierarchy
// (e.g. public.jpeg conforms to public.image).
bool typeConformsTo(const std::string& type, const std::string& conformsTo);
// The preferred identifier of a file extension (without dot, any case); "" when unknown.
std::string preferredIdentifierForExtension(const std::string& extension);
// The identifier of a file by its signature, from the platform's one sniffer: the photo
// formats' rows (JPEG, PNG, TIFF, GIF, HEIC/HEIF, WebP), the ISO media family (MP4, MOV, M4V,
// 3GP, 3G2, AVIF) by their ftyp brands, and QuickTime by its leading atom. "" when nothing
// matches. Reads at most the first 64 bytes.
std::string identifierForData(const std::uint8_t* bytes, std::size_t length);

}  // namespace TypeIdentifiers
