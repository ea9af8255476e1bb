// The still-image formats this build reads and writes, one row each, and the one sniffer that
// names a file's type from its first bytes. The logic asks here which types and extensions are
// photos and what a format can carry; the readers and writers behind each row stay inside the
// platform layer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

// Metadata families a format carries in its own file, as bits.
enum ImageMetadataFamily : unsigned {
    kImageMetadataNone = 0,
    kImageMetadataTIFF = 1u << 0,
    kImageMetadataExif = 1u << 1,
    kImageMetadataGPS = 1u << 2,
    kImageMetadataIPTC = 1u << 3,
    kImageMetadataXMP = 1u << 4,
    kImageMetadataICC = 1u << 5,
};

struct ImageFormatCapabilities {
    // The bits per component the reader gives and the writer keeps (8, or 8 and 16).
    int maxBitsPerComponent = 8;
    bool alpha = false;
    // Lossy writers take the compression quality; the others ignore it.
    bool lossy = false;
    // Animations and sequences: only the first frame is ever read.
    bool multiFrame = false;
    // ImageMetadataFamily bits carried through a write.
    unsigned metadata = kImageMetadataNone;
};

struct ImageFormat {
    // The uniform type identifier, e.g. "public.jpeg", and the name that messages use, "JPEG".
    const char* typeIdentifier;
    const char* name;
    // File extensions in lower case, without dot; the first is the preferred one.
    std::vector<std::string> extensions;
    // True when the first bytes are this format's signature.
    bool (*sniff)(const std::uint8_t* bytes, std::size_t size);
    ImageFormatCapabilities capabilities;
};

// Every photo format with a reader, in the order their signatures are tried.
const std::vector<const ImageFormat*>& imageFormats();
// The row of a type identifier or of a file extension (any case, without dot); null when none.
const ImageFormat* imageFormatForType(std::string_view typeIdentifier);
const ImageFormat* imageFormatForExtension(std::string_view extension);

// The type identifier of a file from its signature: the photo formats' rows first, then the
// ISO media family (MP4, MOV, M4V, 3GP, 3G2, AVIF) by its ftyp brands and QuickTime by its
// leading atom. "" when nothing matches. Reads at most the first 64 bytes.
std::string typeIdentifierForData(const std::uint8_t* bytes, std::size_t size);

// The identifier an ISO base media file's ftyp box names: the major brand decides unless it
// names no known family, then the first known compatible brand. "" when none.
std::string isoMediaTypeForData(const std::uint8_t* bytes, std::size_t size);

}  // namespace platform
