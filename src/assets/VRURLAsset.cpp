#include "assets/VRURLAsset.h"

#include <functional>

#include "model/TypeIdentifiers.h"
#include "model/VRImageProperties.h"
#include "model/VROrientation.h"
#include "platform/AVAsset.h"
#include "platform/AVAssetTrack.h"
#include "platform/AVMediaFormat.h"
#include "platform/FileManager.h"
#include "platform/ImageSource.h"

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
    std::call_once(_attributesLoaded, [this] {
        _creationDate = FileManager::creationDateOfItemAtPath(_url);
        if (_mediaType == VRFormatMediaTypeVideo) {
            auto movie = AVAsset::assetWithURL(_url);
            auto tracks = movie->loadTracksWithMediaType(AVMediaTypeVideo);
            if (tracks && !tracks.value().empty()) {
                const auto& track = tracks.value().front();
                if (auto size = track->loadNaturalSize()) {
                    VROrientation o = VROrientation::orientationWithTransform(
                        track->loadPreferredTransform().valueOr(CGAffineTransformIdentity));
                    o.simplify();
                    _pixelSize = o.isRotated() ? CGSize{size.value().height, size.value().width}
                                               : size.value();
                }
            }
            if (auto duration = movie->loadDuration())
                _duration = CMTimeGetSeconds(duration.value());
        } else if (_mediaType == VRFormatMediaTypePhoto) {
            auto source = platform::ImageSource::createWithURL(_url);
            auto properties = source ? VRImageProperties::ofImageSource(*source) : std::nullopt;
            if (properties && properties->size()) _pixelSize = properties->displayedSize();
        }
    });
}

std::optional<platform::PlistDate> VRURLAsset::creationDate() const {
    _loadAttributes();
    return _creationDate ? _creationDate : _assetCreationDate;
}

CGSize VRURLAsset::pixelSize() const {
    _loadAttributes();
    return _pixelSize;
}

double VRURLAsset::duration() const {
    _loadAttributes();
    return _duration.value_or(0);
}

bool VRURLAsset::isEqual(const VRAssetObject& other) const {
    auto* url = dynamic_cast<const VRURLAsset*>(&other);
    return url && url->_url == _url;
}

std::size_t VRURLAsset::hash() const {
    return std::hash<std::string>{}(_url) + 31;
}
