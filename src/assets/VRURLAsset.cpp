#include "assets/VRURLAsset.h"

#include <functional>

#include "assets/VRMediaAttributes.h"
#include "model/TypeIdentifiers.h"
#include "platform/FileManager.h"

using platform::FileManager;

std::shared_ptr<VRURLAsset> VRURLAsset::urlAssetWithURL(const std::string& path) {
    std::shared_ptr<VRURLAsset> asset(new VRURLAsset());
    asset->_url = path;
    asset->_mediaType = mediaTypeForPath(path);
    asset->_assetCreationDate = platform::PlistDate::now();
    return asset;
}

std::shared_ptr<VRURLAsset> VRURLAsset::livePhotoAssetWithURL(const std::string& path,
                                                              const std::string& pairedVideoURL) {
    auto asset = urlAssetWithURL(path);
    asset->_pairedVideoURL = pairedVideoURL;
    return asset;
}

VRFormatMediaType VRURLAsset::mediaTypeForPath(const std::string& path) {
    const std::string type =
        TypeIdentifiers::preferredIdentifierForExtension(FileManager::pathExtension(path));
    if (TypeIdentifiers::typeConformsTo(type, kUTTypeMovie)) return VRFormatMediaTypeVideo;
    if (TypeIdentifiers::typeConformsTo(type, kUTTypeImage)) return VRFormatMediaTypePhoto;
    return VRFormatMediaTypeNone;
}

bool VRURLAsset::isDataExist() const {
    return FileManager::fileExistsAtPath(_url);
}

std::string VRURLAsset::originalFilename() const {
    return FileManager::lastPathComponent(_url);
}

void VRURLAsset::_loadAttributes() const {
    _attributes.load(_url, _mediaType,
                     [this] { _creationDate = FileManager::creationDateOfItemAtPath(_url); });
}

std::optional<platform::PlistDate> VRURLAsset::creationDate() const {
    _loadAttributes();
    return _creationDate ? _creationDate : _assetCreationDate;
}

CGSize VRURLAsset::pixelSize() const {
    _loadAttributes();
    return _attributes.pixelSize();
}

double VRURLAsset::duration() const {
    _loadAttributes();
    return _attributes.duration();
}

bool VRURLAsset::isEqual(const VRAssetObject& other) const {
    auto* url = dynamic_cast<const VRURLAsset*>(&other);
    return url && url->_url == _url;
}

std::size_t VRURLAsset::hash() const {
    return std::hash<std::string>{}(_url) + 31;
}
