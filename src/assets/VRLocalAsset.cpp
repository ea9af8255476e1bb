#include "assets/VRLocalAsset.h"

#include <functional>

#include "assets/VRMediaAttributes.h"
#include "platform/FileManager.h"
#include "platform/ImageSource.h"

std::shared_ptr<VRLocalAsset> VRLocalAsset::localAssetWithIdentifier(
    std::string identifier, VRFormatMediaType mediaType, std::string url, std::string thumbnailURL,
    std::optional<std::string> pairedVideoURL, platform::PlistDate creationDate) {
    std::shared_ptr<VRLocalAsset> asset(new VRLocalAsset());
    asset->_identifier = std::move(identifier);
    asset->_mediaType = mediaType;
    asset->_url = std::move(url);
    asset->_thumbnailURL = std::move(thumbnailURL);
    asset->_pairedVideoURL = std::move(pairedVideoURL);
    asset->_creationDate = creationDate;
    return asset;
}

std::optional<platform::Bitmap> VRLocalAsset::thumbnailImage() const {
    auto source = platform::ImageSource::createWithURL(_thumbnailURL);
    if (!source) return std::nullopt;
    return source->createImageAtIndex(0);
}

std::string VRLocalAsset::originalFilename() const {
    return platform::FileManager::lastPathComponent(_url);
}

void VRLocalAsset::_loadAttributes() const {
    _attributes.load(_url, _mediaType);
}

CGSize VRLocalAsset::pixelSize() const {
    _loadAttributes();
    return _attributes.pixelSize();
}

double VRLocalAsset::duration() const {
    _loadAttributes();
    return _attributes.duration();
}

bool VRLocalAsset::isEqual(const VRAssetObject& other) const {
    auto* local = dynamic_cast<const VRLocalAsset*>(&other);
    return local && local->_identifier == _identifier;
}

std::size_t VRLocalAsset::hash() const {
    return std::hash<std::string>{}(_identifier) + 31;
}
