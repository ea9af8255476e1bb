// One output file format of one media type, with its compression. A template holds one per
// media type; "Auto" (type 0) means the source's format and is resolved per asset.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

#include "model/VRFormatMediaType.h"

// Stored in archives; the numbers are kept exactly.
enum VRFormatType : std::uint64_t {
    VRFormatTypeAuto = 0,
    VRFormatTypeJPEG = 1,
    VRFormatTypeTIFF = 2,
    VRFormatTypePNG = 3,
    VRFormatTypeGIF = 4,
    VRFormatTypeHEIC = 5,
    VRFormatTypeMP4 = 6,
    VRFormatTypeMOV = 7,
    VRFormatTypeM4V = 8,
    VRFormatType3GP = 9,
    VRFormatType3G2 = 10,
    // Our own addition, far from the stored types so that no archive means it: written only
    // when a run asks for it by name (`unwarp process --format webp`); never offered in the
    // format lists, never given by a source's type.
    VRFormatTypeWebP = 1000,
};

class VRFormat {
  public:
    // Auto photo format with compression 1.0.
    VRFormat() : VRFormat(VRFormatTypeAuto, VRFormatMediaTypePhoto, 1.0f) {}
    // For types 1 to 10 and WebP the media type is the type's own, whatever is given; the
    // compression is clamped into 0...1.
    VRFormat(std::uint64_t type, std::uint64_t mediaType, float compression);
    // Media type 1 unless the type says otherwise.
    VRFormat(std::uint64_t type, float compression);
    // An integer second argument would silently become a compression.
    template <class T, std::enable_if_t<std::is_integral_v<T>, int> = 0>
    VRFormat(std::uint64_t, T) = delete;

    static VRFormat formatWithType(std::uint64_t type, float compression);
    template <class T, std::enable_if_t<std::is_integral_v<T>, int> = 0>
    static VRFormat formatWithType(std::uint64_t, T) = delete;
    // Compression 0.85 for JPEG, HEIC and WebP, 1.0 for every other type.
    static VRFormat formatWithTypeMediaType(std::uint64_t type, std::uint64_t mediaType);
    // The same with media type 1.
    static VRFormat formatWithType(std::uint64_t type);

    // Recognition; each result has its type's default compression. Unknown gives Auto (0).
    static VRFormat formatFromUTI(const std::string& typeIdentifier);
    // By the path's extension, case-insensitively.
    static VRFormat formatFromURL(const std::string& path);
    // By the first bytes, for the still-image formats only, as an image source would.
    static VRFormat formatFromData(const std::uint8_t* bytes, std::size_t length);

    // Cached on first use: Auto, PNG, JPEG, MOV, M4V, MP4; then, on a device class other than
    // 0, TIFF and HEIC where the platform has a writer for them.
    static const std::vector<VRFormat>& availableFormats();
    // The formats of that media type, Auto always kept.
    static std::vector<VRFormat> availableFormatsWithMediaType(std::uint64_t mediaType);
    static std::vector<VRFormat> availableFormatsWithMediaType(std::uint64_t mediaType,
                                                               const std::vector<VRFormat>& from);
    // The list for a given device class and set of image writers (type identifiers).
    static std::vector<VRFormat> availableFormats(unsigned deviceClass,
                                                  const std::vector<std::string>& imageWriters);

    float compression() const { return _compression; }
    // Clamps into 0...1.
    void setCompression(float compression);
    VRFormatType type() const { return static_cast<VRFormatType>(_type); }
    std::uint64_t rawType() const { return _type; }
    VRFormatMediaType mediaType() const { return static_cast<VRFormatMediaType>(_mediaType); }

    std::string UTI() const;
    std::string name() const;
    std::string extension() const;
    // compression x 100, rounded.
    std::uint64_t compressionPercent() const;
    bool supportsLivePhoto() const;
    // "<name> <compression %f>".
    std::string description() const;
    std::size_t hash() const;

    // Type and compression only: two Auto formats of different media types are equal.
    friend bool operator==(const VRFormat& a, const VRFormat& b) {
        return a._type == b._type && a._compression == b._compression;
    }

  private:
    float _compression = 1.0f;
    std::uint64_t _type = VRFormatTypeAuto;
    std::uint64_t _mediaType = VRFormatMediaTypePhoto;
};

std::ostream& operator<<(std::ostream& out, const VRFormat& format);
