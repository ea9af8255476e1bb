#include "assets/VRAsset.h"

#include "platform/Log.h"

VRAsset::VRAsset(std::shared_ptr<VRAssetObject> object, std::uint64_t flag)
    : VRAssetIdentifier(object->uniqueID(), object->assetType(), flag),
      _object(std::move(object)) {}

std::shared_ptr<VRAsset> VRAsset::assetWithObject(std::shared_ptr<VRAssetObject> object,
                                                  std::uint64_t flag) {
    if (!object) {
        platform::log("~~ VR: Wrong input object((null)) in +assetWithObject:");
        return nullptr;
    }
    return std::make_shared<VRAsset>(std::move(object), flag);
}

std::string VRAsset::originalFilename() const {
    std::string name = _object->originalFilename();
    return name.empty() ? "img" : name;
}

std::optional<std::string> VRAsset::startAccessing() const {
    auto accessID = _object->startAccessing();
    if (accessID) {
        platform::logf("Start accessing %s", _objectIdentifier.c_str());
        platform::logf("~~UUID %s", accessID->c_str());
    }
    return accessID;
}

void VRAsset::stopAccessing(const std::optional<std::string>& accessID) const {
    if (!accessID) return;
    platform::logf("Stop accessing %s", _objectIdentifier.c_str());
    platform::logf("~~UUID %s", accessID->c_str());
    _object->stopAccessing(*accessID);
}

bool VRAsset::isEqual(const VRAsset& other) const {
    return _type == other._type && _object->isEqual(*other._object);
}

std::size_t VRAsset::hash() const {
    return static_cast<std::size_t>(_type) + _object->hash();
}
