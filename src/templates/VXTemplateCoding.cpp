#include "templates/VXTemplateCoding.h"

#include <limits>
#include <utility>
#include <vector>

#include "model/ModelCoding.h"

using platform::ArchiveObject;

namespace VXTemplateCoding {

namespace {

constexpr const char* kTemplateClassName = "VXTemplate";

platform::ErrorRef corrupt(const std::string& reason) {
    return platform::Error::errorWithDomain(
        platform::NSCocoaErrorDomain, platform::NSCoderReadCorruptError,
        {{platform::NSDebugDescriptionErrorKey, "VXTemplate archive: " + reason}});
}

ArchiveObject mediaTypeKey(std::uint64_t mediaType) {
    return ArchiveObject::number(platform::PlistValue(mediaType));
}

ArchiveObject encodeOptions(const VRSizeOptions& options) {
    std::vector<ArchiveObject> elements;
    elements.reserve(options.size());
    for (auto option : options) elements.push_back(ArchiveObject::number(option));
    return ArchiveObject::array(std::move(elements));
}

template <class Map, class Encode>
ArchiveObject encodeDictionary(const Map& map, Encode encode) {
    std::vector<std::pair<ArchiveObject, ArchiveObject>> entries;
    for (const auto& [mediaType, value] : map) {
        entries.emplace_back(mediaTypeKey(mediaType), encode(value));
    }
    return ArchiveObject::dictionary(std::move(entries), true);
}

// A key of a per-media dictionary: a whole, non-negative number.
std::optional<std::uint64_t> decodeMediaTypeKey(const ArchiveObject& key) {
    if (key.kind() != ArchiveObject::Kind::Number) return std::nullopt;
    const auto& value = key.value();
    if (value.isReal()) {
        double d = value.doubleValue();
        if (!(d >= 0 && d <= static_cast<double>(std::numeric_limits<std::uint32_t>::max())) ||
            d != static_cast<double>(static_cast<std::uint64_t>(d))) {
            return std::nullopt;
        }
        return static_cast<std::uint64_t>(d);
    }
    if (value.integerValue() < 0) return std::nullopt;
    return value.unsignedIntegerValue();
}

std::optional<VRSizeOptions> decodeOptions(const ArchiveObject& object) {
    if (object.kind() != ArchiveObject::Kind::Array) return std::nullopt;
    VRSizeOptions options;
    for (const auto& element : object.elements()) {
        if (element.kind() != ArchiveObject::Kind::Number) return std::nullopt;
        options.push_back(element.value().integerValue());
    }
    return options;
}

// Reads one per-media dictionary; absent stays empty, anything malformed fails the whole read.
template <class Map, class Decode>
bool decodeDictionary(const ArchiveObject& instance, const char* key, Map& out, Decode decode,
                      platform::ErrorRef* error) {
    const ArchiveObject* object = instance.decodeObjectForKey(key);
    if (!object || object->isNull()) return true;
    if (object->kind() != ArchiveObject::Kind::Dictionary) {
        if (error) *error = corrupt(std::string(key) + " is not a dictionary");
        return false;
    }
    for (const auto& [keyObject, valueObject] : object->entries()) {
        auto mediaType = decodeMediaTypeKey(keyObject);
        auto value = decode(valueObject);
        if (!mediaType || !value) {
            if (error) *error = corrupt(std::string(key) + " holds a malformed entry");
            return false;
        }
        out.insert_or_assign(*mediaType, std::move(*value));
    }
    return true;
}

}  // namespace

void registerArchiveClasses() {
    ModelCoding::registerArchiveClasses();
    platform::KeyedUnarchiver::registerClassName(kTemplateClassName);
}

ArchiveObject encodeTemplate(const VXTemplate& tpl) {
    auto object = ArchiveObject::instance(kTemplateClassName);
    object.encodeObject(VRTemplateNameKey,
                        tpl.name() ? ArchiveObject::string(*tpl.name()) : ArchiveObject::null());
    object.encodeBool(VRTemplateLockedKey, tpl.locked());
    object.encodeObject(VRTemplateSizeEntryKey,
                        encodeDictionary(tpl.sizeEntryDictionary(), ModelCoding::encodeSizeEntry));
    object.encodeObject(VRTemplateFormatKey,
                        encodeDictionary(tpl.formatDictionary(), ModelCoding::encodeFormat));
    object.encodeObject(VRTemplateOptionsKey,
                        encodeDictionary(tpl.optionsDictionary(), encodeOptions));
    return object;
}

VXTemplateRef decodeTemplate(const ArchiveObject& object, platform::ErrorRef* error) {
    if (object.kind() != ArchiveObject::Kind::Instance ||
        object.className() != kTemplateClassName) {
        if (error) *error = corrupt("root is not a VXTemplate");
        return nullptr;
    }
    auto tpl = VXTemplate::create();
    const ArchiveObject* name = object.decodeObjectForKey(VRTemplateNameKey);
    if (name && name->kind() == ArchiveObject::Kind::String && name->value().string()) {
        tpl->setName(*name->value().string());
    } else if (name && !name->isNull()) {
        if (error) *error = corrupt("name is not a string");
        return nullptr;
    }
    tpl->setLocked(object.decodeBoolForKey(VRTemplateLockedKey));

    VXTemplate::SizeEntryDictionary sizes;
    VXTemplate::FormatDictionary formats;
    VXTemplate::OptionsDictionary options;
    if (!decodeDictionary(object, VRTemplateSizeEntryKey, sizes, ModelCoding::decodeSizeEntry,
                          error) ||
        !decodeDictionary(object, VRTemplateFormatKey, formats, ModelCoding::decodeFormat, error) ||
        !decodeDictionary(object, VRTemplateOptionsKey, options, decodeOptions, error)) {
        return nullptr;
    }
    tpl->setSizeEntryDictionary(std::move(sizes));
    tpl->setFormatDictionary(std::move(formats));
    tpl->setOptionsDictionary(std::move(options));
    return tpl;
}

std::optional<platform::PlistData> archivedDataWithTemplate(const VXTemplate& tpl,
                                                            platform::ErrorRef* error) {
    return platform::KeyedArchiver::archivedDataWithRootObject(encodeTemplate(tpl), error);
}

VXTemplateRef templateWithArchivedData(const platform::PlistData& data, platform::ErrorRef* error) {
    registerArchiveClasses();
    auto root = platform::KeyedUnarchiver::unarchiveObjectWithData(data, error);
    if (!root) return nullptr;
    return decodeTemplate(*root, error);
}

}  // namespace VXTemplateCoding
