#include "templates/VXTemplate.h"

VXTemplateRef VXTemplate::tutorialTemplate() {
    auto tpl = create();
    tpl->setSizeEntry(VRSizeEntry::sizeEntryWithWidth(800, 480, VRSizeTypePixels),
                      VRFormat::formatWithTypeMediaType(VRFormatTypeAuto, VRFormatMediaTypePhoto),
                      VRSizeOptions{VRSizeOptionStretch, VRSizeOptionNormal},
                      VRFormatMediaTypePhoto);
    return tpl;
}

VXTemplateRef VXTemplate::newTemplate() const {
    auto tpl = copy();
    tpl->setIdentifier(std::nullopt);
    return tpl;
}

VXTemplateRef VXTemplate::pairedTemplate() const {
    auto tpl = copy();
    tpl->setSizeEntry(sizeEntryForMediaType(VRFormatMediaTypePhoto),
                      VRFormat::formatWithTypeMediaType(VRFormatTypeAuto, VRFormatMediaTypeVideo),
                      optionsForMediaType(VRFormatMediaTypePhoto), VRFormatMediaTypeVideo);
    return tpl;
}

std::vector<std::uint64_t> VXTemplate::mediaTypes() const {
    std::vector<std::uint64_t> types;
    for (const auto& [type, entry] : _sizeEntryDictionary) types.push_back(type);
    return types;
}

std::vector<VRFormat> VXTemplate::formats() const {
    std::vector<VRFormat> formats;
    for (const auto& [type, format] : _formatDictionary) formats.push_back(format);
    return formats;
}

namespace {

template <class Map, class Value>
void storeOrRemove(Map& map, std::uint64_t key, const std::optional<Value>& value) {
    if (value) {
        map.insert_or_assign(key, *value);
    } else {
        map.erase(key);
    }
}

template <class Map>
auto lookup(const Map& map, std::uint64_t key) -> std::optional<typename Map::mapped_type> {
    auto it = map.find(key);
    if (it == map.end()) return std::nullopt;
    return it->second;
}

}  // namespace

void VXTemplate::setSizeEntry(const std::optional<VRSizeEntry>& entry,
                              const std::optional<VRFormat>& format,
                              const std::optional<VRSizeOptions>& options,
                              std::uint64_t mediaType) {
    setSizeEntry(entry, mediaType);
    setFormat(format, mediaType);
    setOptions(options, mediaType);
}

void VXTemplate::setSizeEntry(const std::optional<VRSizeEntry>& entry, std::uint64_t mediaType) {
    storeOrRemove(_sizeEntryDictionary, mediaType, entry);
}

void VXTemplate::setFormat(const std::optional<VRFormat>& format, std::uint64_t mediaType) {
    storeOrRemove(_formatDictionary, mediaType, format);
}

void VXTemplate::setOptions(const std::optional<VRSizeOptions>& options, std::uint64_t mediaType) {
    storeOrRemove(_optionsDictionary, mediaType, options);
}

std::optional<VRSizeEntry> VXTemplate::sizeEntryForMediaType(std::uint64_t mediaType) const {
    return lookup(_sizeEntryDictionary, mediaType);
}

std::optional<VRSizeOptions> VXTemplate::optionsForMediaType(std::uint64_t mediaType) const {
    return lookup(_optionsDictionary, mediaType);
}

VRFormat VXTemplate::formatForMediaType(std::uint64_t mediaType) const {
    auto format = lookup(_formatDictionary, mediaType);
    if (format && format->mediaType() == mediaType) return *format;
    return VRFormat::formatWithTypeMediaType(VRFormatTypeAuto, mediaType);
}

void VXTemplate::resetDataForMediaType(std::uint64_t mediaType) {
    _sizeEntryDictionary.erase(mediaType);
    _formatDictionary.erase(mediaType);
    _optionsDictionary.erase(mediaType);
}

void VXTemplate::updateFromTemplate(const VXTemplate& other, std::uint64_t mediaType) {
    setSizeEntry(other.sizeEntryForMediaType(mediaType), lookup(other._formatDictionary, mediaType),
                 other.optionsForMediaType(mediaType), mediaType);
}

bool VXTemplate::_completeTemplate(VXTemplate& tpl) {
    if (tpl._sizeEntryDictionary.size() != 1) return false;
    const auto [existing, entry] = *tpl._sizeEntryDictionary.begin();
    std::uint64_t missing;
    if (existing == VRFormatMediaTypePhoto) {
        missing = VRFormatMediaTypeVideo;
    } else if (existing == VRFormatMediaTypeVideo) {
        missing = VRFormatMediaTypePhoto;
    } else {
        return false;
    }
    tpl.setSizeEntry(entry, VRFormat::formatWithType(VRFormatTypeAuto),
                     tpl.optionsForMediaType(existing).value_or(VRSizeOptions{}), missing);
    return true;
}
