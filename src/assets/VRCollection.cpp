#include "assets/VRCollection.h"

#include <functional>

VRCollection VRCollection::collectionWithObject(Object object, std::size_t estimatedAssetCount) {
    VRCollection collection;
    collection._type = static_cast<VRCollectionType>(object.index());
    collection._object = std::move(object);
    collection._estimatedAssetCount = estimatedAssetCount;
    return collection;
}

std::string VRCollection::objectIdentifier() const {
    if (auto* album = assetCollection()) return album->localIdentifier;
    if (auto* pseudo = std::visit(
            [](const auto& o) -> const VRPseudoCollection* {
                if constexpr (std::is_base_of_v<VRPseudoCollection, std::decay_t<decltype(o)>>)
                    return &o;
                return nullptr;
            },
            _object))
        return pseudo->uniqueID;
    return "";
}

std::string VRCollection::localizedTitle() const {
    if (auto* album = assetCollection()) return album->localizedTitle;
    return std::visit(
        [](const auto& o) -> std::string {
            if constexpr (std::is_base_of_v<VRPseudoCollection, std::decay_t<decltype(o)>>)
                return o.name;
            return "";
        },
        _object);
}

bool VRCollection::isEqual(const VRCollection& other) const {
    return _type == other._type && _type != VRCollectionTypeNone &&
           objectIdentifier() == other.objectIdentifier();
}

std::size_t VRCollection::hash() const {
    return static_cast<std::size_t>(_type) + std::hash<std::string>{}(objectIdentifier());
}
