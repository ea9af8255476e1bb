#include "assets/VRAssetIdentifier.h"

#include <charconv>

#include "platform/Log.h"
#include "storage/VXHelperFiles.h"

namespace {

std::string replacedOnce(std::string text, const std::string& what, const std::string& with) {
    if (what.empty()) return text;
    const std::size_t at = text.find(what);
    if (at != std::string::npos) text.replace(at, what.size(), with);
    return text;
}

std::optional<std::uint64_t> decimal(const std::string& text) {
    std::uint64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || text.empty())
        return std::nullopt;
    return value;
}

}  // namespace

platform::PlistDictionary VRAssetIdentifier::identifierArchive() const {
    std::string identifier = _objectIdentifier;
    if (_type == VRAssetIdentifierTypeURL)
        identifier = replacedOnce(identifier, VXHelper::documentDirectory(),
                                  VRAssetIdentifierDocumentDirPlaceholder);
    return {{VRAssetIdentifierObjectIdentifierKey, identifier},
            {VRAssetIdentifierTypeKey, std::to_string(_type)},
            {VRAssetIdentifierFlagKey, std::to_string(_flag)}};
}

std::optional<VRAssetIdentifier> VRAssetIdentifier::assetIdentifierFromArchive(
    const platform::PlistDictionary& archive) {
    auto text = [&](const char* key) -> const std::string* {
        auto it = archive.find(key);
        return it == archive.end() ? nullptr : it->second.string();
    };
    const std::string* identifier = text(VRAssetIdentifierObjectIdentifierKey);
    const std::string* typeText = text(VRAssetIdentifierTypeKey);
    const std::string* flagText = text(VRAssetIdentifierFlagKey);
    std::optional<std::uint64_t> type, flag;
    if (typeText) type = decimal(*typeText);
    if (flagText) flag = decimal(*flagText);
    if (!identifier || !type || !flag) {
        platform::logf("VRAssetIdentifier: wrong archive data %s",
                       platform::PlistValue(archive).debugDescription().c_str());
        return std::nullopt;
    }
    std::string objectIdentifier = *identifier;
    if (*type == VRAssetIdentifierTypeURL)
        objectIdentifier = replacedOnce(objectIdentifier, VRAssetIdentifierDocumentDirPlaceholder,
                                        VXHelper::documentDirectory());
    return VRAssetIdentifier(std::move(objectIdentifier), *type, *flag);
}
