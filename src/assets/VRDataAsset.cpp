#include "assets/VRDataAsset.h"

#include <fstream>
#include <functional>

#include "assets/VRURLAsset.h"
#include "model/TypeIdentifiers.h"
#include "model/VRImageProperties.h"
#include "platform/FileManager.h"
#include "platform/ImageSource.h"
#include "storage/VXHelperFiles.h"

using platform::FileManager;

namespace {

// Pasted images are bounded like any image file.
constexpr std::size_t kMaxDataBytes = platform::ImageSourceLimits{}.maxBytes;

std::string hex(const std::uint8_t* bytes, std::size_t n) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(n * 2);
    for (std::size_t i = 0; i < n; ++i) {
        text.push_back(kDigits[bytes[i] >> 4]);
        text.push_back(kDigits[bytes[i] & 15]);
    }
    return text;
}

// The pixel size as shown of the first picture in the source; zero when it tells none.
CGSize displayedSize(const platform::ImageSource* source) {
    auto properties = source ? VRImageProperties::ofImageSource(*source) : std::nullopt;
    return properties ? properties->displayedSize() : CGSizeZero;
}

}  // namespace

std::string VRDataAsset::uniqueIDForData(const std::vector<std::uint8_t>& data) {
    const std::size_t n = data.size();
    if (n > 23) return hex(&data[n / 4], 4) + hex(&data[n / 2], 8) + hex(&data[3 * n / 4], 4);
    if (n >= 17) return hex(&data[n - 16], 16);
    return hex(data.data(), n);
}

VRFormatMediaType VRDataAsset::mediaTypeForData(const std::vector<std::uint8_t>& data) {
    if (data.empty()) return VRFormatMediaTypeVideo;
    switch (data[0]) {
        case 0x42:
        case 0x47:
        case 0x49:
        case 0x4D:
        case 0x89:
        case 0xFF:
            return VRFormatMediaTypePhoto;
        default:
            return VRFormatMediaTypeVideo;
    }
}

void VRDataAsset::_setUniqueID(std::string uniqueID) {
    _uniqueID = std::move(uniqueID);
    _path = FileManager::stringByAppendingPathComponent(
        FileManager::stringByAppendingPathComponent(VXHelper::documentDirectory(),
                                                    VRDataAssetDirectoryName),
        _uniqueID);
    _thumbnailPath = _path + "-thmb";
}

std::shared_ptr<VRDataAsset> VRDataAsset::dataAssetWithData(std::vector<std::uint8_t> data) {
    if (data.empty()) return nullptr;
    std::shared_ptr<VRDataAsset> asset(new VRDataAsset());
    asset->_setUniqueID(uniqueIDForData(data));
    asset->_mediaType = mediaTypeForData(data);
    if (asset->_mediaType == VRFormatMediaTypePhoto) {
        auto source = platform::ImageSource::createWithData(data);
        asset->_pixelSize = displayedSize(source.get());
    }
    asset->_tempData = std::move(data);
    return asset;
}

std::shared_ptr<VRDataAsset> VRDataAsset::dataAssetWithUniqueID(const std::string& uniqueID) {
    if (uniqueID.empty() || uniqueID.find('/') != std::string::npos) return nullptr;
    std::shared_ptr<VRDataAsset> asset(new VRDataAsset());
    asset->_setUniqueID(uniqueID);
    if (!FileManager::fileExistsAtPath(asset->_path)) return nullptr;
    asset->_mediaType = VRURLAsset::mediaTypeForPath(asset->_path);
    if (asset->_mediaType == VRFormatMediaTypePhoto) {
        auto source = platform::ImageSource::createWithURL(asset->_path);
        asset->_pixelSize = displayedSize(source.get());
    }
    return asset;
}

std::optional<std::vector<std::uint8_t>> VRDataAsset::data() const {
    if (_tempData) return _tempData;
    return FileManager::contentsAtPath(_path, nullptr, kMaxDataBytes);
}

bool VRDataAsset::isDataExist() const {
    return _tempData.has_value() || FileManager::fileExistsAtPath(_path);
}

std::string VRDataAsset::typeIdentifier() const {
    if (_tempData) return TypeIdentifiers::identifierForData(_tempData->data(), _tempData->size());
    std::ifstream in(_path, std::ios::binary);
    char head[64] = {};
    in.read(head, sizeof head);
    return TypeIdentifiers::identifierForData(reinterpret_cast<const std::uint8_t*>(head),
                                              static_cast<std::size_t>(in.gcount()));
}

bool VRDataAsset::isEqual(const VRAssetObject& other) const {
    auto* data = dynamic_cast<const VRDataAsset*>(&other);
    return data && data->_uniqueID == _uniqueID;
}

std::size_t VRDataAsset::hash() const {
    return std::hash<std::string>{}(_uniqueID) + 31;
}
