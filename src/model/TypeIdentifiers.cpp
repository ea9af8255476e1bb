#include "model/TypeIdentifiers.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string_view>
#include <vector>

namespace TypeIdentifiers {

namespace {

// Each identifier with the identifiers it directly conforms to.
const std::map<std::string, std::vector<std::string>>& parents() {
    static const std::map<std::string, std::vector<std::string>> table{
        {"public.jpeg", {"public.image"}},
        {"public.png", {"public.image"}},
        {"com.compuserve.gif", {"public.image"}},
        {"public.tiff", {"public.image"}},
        {"public.heic", {"public.heif-standard"}},
        {"public.heif", {"public.heif-standard"}},
        {"public.heif-standard", {"public.image"}},
        {"public.avif", {"public.image"}},
        {"org.webmproject.webp", {"public.image"}},
        {"com.microsoft.bmp", {"public.image"}},
        {"public.jpeg-2000", {"public.image"}},
        {"public.image", {"public.data", "public.content"}},
        {"com.apple.quicktime-movie", {"public.movie"}},
        {"public.mpeg-4", {"public.movie"}},
        {"com.apple.m4v-video", {"public.mpeg-4"}},
        {"public.3gpp", {"public.movie"}},
        {"public.3gpp2", {"public.movie"}},
        {"public.movie", {"public.audiovisual-content"}},
        {"public.audiovisual-content", {"public.data", "public.content"}},
    };
    return table;
}

const std::map<std::string, std::string>& extensions() {
    static const std::map<std::string, std::string> table{
        {"jpg", "public.jpeg"},
        {"jpeg", "public.jpeg"},
        {"jpe", "public.jpeg"},
        {"jfif", "public.jpeg"},
        {"png", "public.png"},
        {"gif", "com.compuserve.gif"},
        {"tif", "public.tiff"},
        {"tiff", "public.tiff"},
        {"heic", "public.heic"},
        {"heics", "public.heic"},
        {"heif", "public.heif"},
        {"heifs", "public.heif"},
        {"hif", "public.heif"},
        {"avif", "public.avif"},
        {"webp", "org.webmproject.webp"},
        {"bmp", "com.microsoft.bmp"},
        {"jp2", "public.jpeg-2000"},
        {"mov", "com.apple.quicktime-movie"},
        {"qt", "com.apple.quicktime-movie"},
        {"mp4", "public.mpeg-4"},
        {"mpg4", "public.mpeg-4"},
        {"m4v", "com.apple.m4v-video"},
        {"3gp", "public.3gpp"},
        {"3gpp", "public.3gpp"},
        {"3g2", "public.3gpp2"},
        {"3gp2", "public.3gpp2"},
    };
    return table;
}

bool startsWith(const std::uint8_t* bytes, std::size_t length, std::string_view magic,
                std::size_t offset = 0) {
    return length >= offset + magic.size() &&
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

std::string identifierForFileTypeBox(const std::uint8_t* bytes, std::size_t length) {
    constexpr std::size_t kMaxBytes = 64;
    const std::size_t boxSize = std::min<std::size_t>(bigEndian32(bytes), kMaxBytes);
    const std::size_t end = std::min(length, boxSize);
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

}  // namespace

bool typeConformsTo(const std::string& type, const std::string& conformsTo) {
    if (type.empty()) return false;
    if (type == conformsTo) return true;
    auto it = parents().find(type);
    if (it == parents().end()) return false;
    return std::any_of(it->second.begin(), it->second.end(), [&](const std::string& parent) {
        return typeConformsTo(parent, conformsTo);
    });
}

std::string preferredIdentifierForExtension(const std::string& extension) {
    std::string lower = extension;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    auto it = extensions().find(lower);
    return it == extensions().end() ? "" : it->second;
}

std::string identifierForData(const std::uint8_t* bytes, std::size_t length) {
    if (bytes == nullptr) return "";
    if (startsWith(bytes, length, "\xFF\xD8\xFF")) return kUTTypeJPEG;
    if (startsWith(bytes, length, "\x89PNG\r\n\x1A\n")) return kUTTypePNG;
    if (startsWith(bytes, length, std::string_view("II*\0", 4)) ||
        startsWith(bytes, length, std::string_view("MM\0*", 4)))
        return kUTTypeTIFF;
    if (startsWith(bytes, length, "GIF87a") || startsWith(bytes, length, "GIF89a"))
        return kUTTypeGIF;
    if (startsWith(bytes, length, "ftyp", 4)) return identifierForFileTypeBox(bytes, length);
    for (const char* atom : {"moov", "mdat", "wide", "free", "skip", "pnot"}) {
        if (startsWith(bytes, length, atom, 4)) return kUTTypeQuickTimeMovie;
    }
    return "";
}

}  // namespace TypeIdentifiers
