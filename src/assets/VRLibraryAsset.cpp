#include "assets/VRLibraryAsset.h"

#include <functional>

using namespace platform;

std::shared_ptr<VRLibraryAsset> VRLibraryAsset::assetWithPhotoAsset(PHAsset asset) {
    std::shared_ptr<VRLibraryAsset> object(new VRLibraryAsset());
    object->_asset = std::move(asset);
    return object;
}

std::optional<std::string> VRLibraryAsset::pathForResourceType(PHAssetResourceType type) const {
    for (const PHAssetResource& resource : _asset.resources)
        if (resource.type == type) return resource.path;
    return std::nullopt;
}

std::optional<std::string> VRLibraryAsset::primaryPath() const {
    return pathForResourceType(_asset.mediaType == PHAssetMediaTypeVideo
                                   ? PHAssetResourceTypeVideo
                                   : PHAssetResourceTypePhoto);
}

std::optional<std::string> VRLibraryAsset::moviePath() const {
    if (_asset.mediaType == PHAssetMediaTypeVideo)
        return pathForResourceType(PHAssetResourceTypeVideo);
    if (_asset.isLivePhoto()) return pathForResourceType(PHAssetResourceTypePairedVideo);
    return std::nullopt;
}

std::string VRLibraryAsset::originalFilename() const {
    for (const PHAssetResource& resource : _asset.resources)
        if (resource.type == PHAssetResourceTypePhoto || resource.type == PHAssetResourceTypeVideo)
            return resource.originalFilename;
    return "";
}

VRFormatMediaType VRLibraryAsset::mediaType() const {
    switch (_asset.mediaType) {
        case PHAssetMediaTypeImage:
            return VRFormatMediaTypePhoto;
        case PHAssetMediaTypeVideo:
            return VRFormatMediaTypeVideo;
        default:
            return VRFormatMediaTypeNone;
    }
}

bool VRLibraryAsset::isEqual(const VRAssetObject& other) const {
    auto* library = dynamic_cast<const VRLibraryAsset*>(&other);
    return library && library->_asset.localIdentifier == _asset.localIdentifier;
}

std::size_t VRLibraryAsset::hash() const {
    return std::hash<std::string>{}(_asset.localIdentifier);
}

std::shared_ptr<VRAsset> VRWrapLibraryAsset(const PHAsset& asset, std::uint64_t flag) {
    return VRAsset::assetWithObject(VRLibraryAsset::assetWithPhotoAsset(asset), flag);
}
