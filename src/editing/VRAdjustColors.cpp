#include "editing/VRAdjustColors.h"

#include <cctype>
#include <cmath>

#include "model/VRFormatMediaType.h"
#include "video/LegacyManager.h"

namespace VRAdjustColors {

const std::vector<std::string>& palette() {
    static const std::vector<std::string> colors = {
        "111111", "FFFFFF", "E8EBE4", "94A09A", "798071", "494947", "000000", "F3FFBD", "FFFD98",
        "FFFF43", "F8E71C", "FFBA08", "FFA022", "F56416", "F30000", "D00000", "BA2D0B", "9B3D12",
        "AE8E1C", "B5C91C", "99C24D", "90BE6D", "37FF8B", "22E043", "10A348", "52B788", "73BA9B",
        "59C9A5", "70C1B3", "B2C7CB", "88AACC", "6FCBE8", "44CCFF", "247BA0", "23395B", "D2D5DD",
        "B8BACF", "999AC6", "7494EA", "4E6BE0", "63458A", "B288C0", "E4B7E5", "FFA0BD"};
    return colors;
}

std::optional<VRColor> colorWithHexString(const std::string& text) {
    const std::string hex = !text.empty() && text[0] == '#' ? text.substr(1) : text;
    if (hex.size() != 6) return std::nullopt;
    for (char c : hex)
        if (!std::isxdigit(static_cast<unsigned char>(c))) return std::nullopt;
    auto component = [&](std::size_t i) {
        return std::stoi(hex.substr(i * 2, 2), nullptr, 16) / 255.0;
    };
    return VRColor{component(0), component(1), component(2), 1.0};
}

std::optional<std::size_t> paletteIndexOfColor(const VRColor& color) {
    auto byte = [](double v) { return std::lround(v * 255); };
    for (std::size_t i = 1; i < palette().size(); ++i) {
        const VRColor entry = *colorWithHexString(palette()[i]);
        if (byte(entry.red) == byte(color.red) && byte(entry.green) == byte(color.green) &&
            byte(entry.blue) == byte(color.blue) && byte(entry.alpha) == byte(color.alpha))
            return i;
    }
    return std::nullopt;
}

std::optional<VRColor> storedDefaultColor(std::uint64_t mediaType) {
    return mediaType == VRFormatMediaTypeVideo ? LegacyManager::defaultVideoColor()
                                               : LegacyManager::defaultPhotoColor();
}

void setStoredDefaultColor(std::uint64_t mediaType, const std::optional<VRColor>& color) {
    if (mediaType == VRFormatMediaTypeVideo)
        LegacyManager::setDefaultVideoColor(color);
    else
        LegacyManager::setDefaultPhotoColor(color);
}

VRColor defaultColor(std::uint64_t mediaType) {
    const VRColor opaque =
        mediaType == VRFormatMediaTypeVideo ? VRColor::blackColor() : VRColor::whiteColor();
    return storedDefaultColor(mediaType).value_or(opaque);
}

std::optional<VRColor> defaultNullableFillColor(std::uint64_t mediaType,
                                                bool supportsTransparency) {
    if (auto stored = storedDefaultColor(mediaType)) return stored;
    if (supportsTransparency) return VRColor::clearColor();
    return std::nullopt;
}

VRColor defaultOpaqueFillColor(std::uint64_t mediaType) {
    return defaultColor(mediaType);
}

}  // namespace VRAdjustColors
