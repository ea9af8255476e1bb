#include "templates/VXHelperTemplate.h"

#include <algorithm>
#include <cctype>

#include "model/VXHelperText.h"
#include "platform/UnicodeText.h"

namespace VXHelper {

std::string validateTemplateName(const std::optional<std::string>& name,
                                 std::uint64_t nextTemplateIndex) {
    if (name && !platform::isBlank(*name)) return *name;
    return "Template " + std::to_string(nextTemplateIndex + 1);
}

namespace {

TemplateMediaSettings settingsOf(const VXTemplate& tpl, std::uint64_t mediaType) {
    return {tpl.sizeEntryForMediaType(mediaType),
            tpl.optionsForMediaType(mediaType).value_or(VRSizeOptions{}),
            tpl.formatForMediaType(mediaType)};
}

}  // namespace

std::string descriptionForTemplate(const VXTemplate& tpl) {
    return descriptionForTemplate(settingsOf(tpl, VRFormatMediaTypePhoto),
                                  settingsOf(tpl, VRFormatMediaTypeVideo));
}

std::string subtitleForSizeEntry(const VRSizeEntry& entry, bool smart) {
    std::string line;
    switch (entry.type()) {
        case VRSizeTypePixels:
            line = stringFromSize(entry.size()) + " PX";
            break;
        case VRSizeTypePercent:
            line = stringFromSize(entry.size()) + " %";
            break;
        case VRSizeTypeRatioUp:
        case VRSizeTypeRatioDown:
            line = stringFromValue(entry.width()) + " : " + stringFromValue(entry.height()) +
                   (entry.type() == VRSizeTypeRatioUp ? " 0x2191" : " 0x2193");
            break;
        default:
            line = stringFromSize(entry.size());
            break;
    }
    return smart ? line + " [S]" : line;
}

std::vector<std::string> subtitlesForTemplate(const VXTemplate& tpl) {
    auto photo = tpl.sizeEntryForMediaType(VRFormatMediaTypePhoto);
    auto video = tpl.sizeEntryForMediaType(VRFormatMediaTypeVideo);
    auto smartFor = [&](std::uint64_t mediaType) {
        auto options = tpl.optionsForMediaType(mediaType);
        return options && containsOption(*options, VRSizeOptionSmart);
    };
    std::vector<std::string> lines;
    if (photo) {
        lines.push_back(subtitleForSizeEntry(*photo, smartFor(VRFormatMediaTypePhoto)));
        if (video && (video->size() != photo->size() || video->type() != photo->type())) {
            lines.push_back(subtitleForSizeEntry(*video, false));
        }
    } else if (video) {
        lines.push_back(subtitleForSizeEntry(*video, smartFor(VRFormatMediaTypeVideo)));
    }
    return lines;
}

}  // namespace VXHelper
