#include "model/TypeIdentifiers.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <vector>

#include "platform/ImageFormats.h"

namespace TypeIdentifiers {

namespace {

// Each identifier with the identifiers it directly conforms to. A photo format's row that is
// not named here conforms to public.image.
const std::map<std::string, std::vector<std::string>>& parents() {
    static const std::map<std::string, std::vector<std::string>> table{
        {"public.heic", {"public.heif-standard"}},
        {"public.heif", {"public.heif-standard"}},
        {"public.heif-standard", {"public.image"}},
        {"public.avif", {"public.image"}},
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

// Extensions of the known types that have no photo codec row; the photo formats' own come
// from their rows.
const std::map<std::string, std::string>& extensions() {
    static const std::map<std::string, std::string> table{
        {"avif", "public.avif"},
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

}  // namespace

bool typeConformsTo(const std::string& type, const std::string& conformsTo) {
    if (type.empty()) return false;
    if (type == conformsTo) return true;
    auto it = parents().find(type);
    if (it == parents().end())
        return platform::imageFormatForType(type) && typeConformsTo("public.image", conformsTo);
    return std::any_of(it->second.begin(), it->second.end(), [&](const std::string& parent) {
        return typeConformsTo(parent, conformsTo);
    });
}

std::string preferredIdentifierForExtension(const std::string& extension) {
    std::string lower = extension;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (const auto* format = platform::imageFormatForExtension(lower))
        return format->typeIdentifier;
    auto it = extensions().find(lower);
    return it == extensions().end() ? "" : it->second;
}

std::string identifierForData(const std::uint8_t* bytes, std::size_t length) {
    return platform::typeIdentifierForData(bytes, length);
}

}  // namespace TypeIdentifiers
