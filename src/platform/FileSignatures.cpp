// The one sniffer: the photo rows' own signatures, then the ISO media and QuickTime movies.
#include <algorithm>
#include <cstring>
#include <map>

#include "platform/ImageFormats.h"

namespace platform {
namespace {

bool startsWith(const std::uint8_t* bytes, std::size_t size, std::string_view magic,
                std::size_t offset = 0) {
    return size >= offset + magic.size() &&
           std::memcmp(bytes + offset, magic.data(), magic.size()) == 0;
}

// The identifier of an ISO base media brand; "" when the brand names no known family.
std::string identifierForBrand(std::string_view brand) {
    static const std::map<std::string_view, const char*> brands{
        {"heic", "public.heic"},
        {"heix", "public.heic"},
        {"hevc", "public.heic"},
        {"hevx", "public.heic"},
        {"heim", "public.heic"},
        {"heis", "public.heic"},
        {"hevm", "public.heic"},
        {"hevs", "public.heic"},
        {"mif1", "public.heif"},
        {"msf1", "public.heif"},
        {"avif", "public.avif"},
        {"avis", "public.avif"},
        {"qt  ", "com.apple.quicktime-movie"},
        {"M4V ", "com.apple.m4v-video"},
        {"M4VH", "com.apple.m4v-video"},
        {"M4VP", "com.apple.m4v-video"},
        {"isom", "public.mpeg-4"},
        {"iso2", "public.mpeg-4"},
        {"iso3", "public.mpeg-4"},
        {"iso4", "public.mpeg-4"},
        {"iso5", "public.mpeg-4"},
        {"iso6", "public.mpeg-4"},
        {"mp41", "public.mpeg-4"},
        {"mp42", "public.mpeg-4"},
        {"avc1", "public.mpeg-4"},
        {"mmp4", "public.mpeg-4"},
        {"dash", "public.mpeg-4"},
        {"f4v ", "public.mpeg-4"},
        {"MSNV", "public.mpeg-4"},
    };
    if (auto it = brands.find(brand); it != brands.end()) return it->second;
    if (brand.substr(0, 3) == "3gp") return "public.3gpp";
    if (brand.substr(0, 3) == "3g2") return "public.3gpp2";
    return "";
}

std::uint32_t bigEndian32(const std::uint8_t* p) {
    return (std::uint32_t(p[0]) << 24) | (std::uint32_t(p[1]) << 16) | (std::uint32_t(p[2]) << 8) |
           std::uint32_t(p[3]);
}

}  // namespace

std::string isoMediaTypeForData(const std::uint8_t* bytes, std::size_t size) {
    if (bytes == nullptr || !startsWith(bytes, size, "ftyp", 4)) return "";
    constexpr std::size_t kMaxBytes = 64;
    const std::size_t boxSize = std::min<std::size_t>(bigEndian32(bytes), kMaxBytes);
    const std::size_t end = std::min(size, boxSize);
    if (end < 12) return "";
    std::string_view major(reinterpret_cast<const char*>(bytes + 8), 4);
    if (auto type = identifierForBrand(major); !type.empty()) return type;
    // A generic major brand: the first known compatible brand decides.
    for (std::size_t offset = 16; offset + 4 <= end; offset += 4) {
        std::string_view brand(reinterpret_cast<const char*>(bytes + offset), 4);
        if (auto type = identifierForBrand(brand); !type.empty()) return type;
    }
    return "";
}

std::string typeIdentifierForData(const std::uint8_t* bytes, std::size_t size) {
    if (bytes == nullptr) return "";
    for (const ImageFormat* format : imageFormats())
        if (format->sniff(bytes, size)) return format->typeIdentifier;
    if (auto type = isoMediaTypeForData(bytes, size); !type.empty()) return type;
    for (const char* atom : {"moov", "mdat", "wide", "free", "skip", "pnot"})
        if (startsWith(bytes, size, atom, 4)) return "com.apple.quicktime-movie";
    return "";
}

}  // namespace platform
