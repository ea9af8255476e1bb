// An asset made from bytes in memory (a pasted image): named by a sample of its bytes, kept in
// memory until a caller stores it under documents/_vrdataassetsdir01.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "assets/VRAssetObject.h"

inline constexpr const char* VRDataAssetDirectoryName = "_vrdataassetsdir01";

class VRDataAsset : public VRAssetObject {
  public:
    // Null for no bytes. The media type is sniffed from the first byte, the pixel size of a
    // photo read from its properties (turned by its orientation). Nothing is written here.
    static std::shared_ptr<VRDataAsset> dataAssetWithData(std::vector<std::uint8_t> data);
    // The asset stored at documents/_vrdataassetsdir01/<uniqueID>; null when there is no file.
    static std::shared_ptr<VRDataAsset> dataAssetWithUniqueID(const std::string& uniqueID);

    // Above 23 bytes: lower-case hex of the 4 bytes at n/4, the 8 at n/2 and the 4 at 3n/4
    // (32 digits); 17 to 23 bytes: hex of the last 16; otherwise hex of all of them.
    static std::string uniqueIDForData(const std::vector<std::uint8_t>& data);
    // First byte 0x42, 0x47, 0x49, 0x4D, 0x89 or 0xFF: photo; anything else video.
    static VRFormatMediaType mediaTypeForData(const std::vector<std::uint8_t>& data);

    const std::string& path() const { return _path; }
    const std::string& thumbnailPath() const { return _thumbnailPath; }
    // The bytes kept in memory, else the file's contents; nothing when neither exists.
    std::optional<std::vector<std::uint8_t>> data() const;
    bool isDataExist() const;
    // The type identifier of the bytes by their signature ("" when unknown).
    std::string typeIdentifier() const;

    VRAssetIdentifierType assetType() const override { return VRAssetIdentifierTypeData; }
    std::string uniqueID() const override { return _uniqueID; }
    std::string originalFilename() const override { return "img"; }
    std::optional<platform::PlistDate> creationDate() const override { return _creationDate; }
    std::optional<platform::PlistDate> modificationDate() const override {
        return _modificationDate;
    }
    VRFormatMediaType mediaType() const override { return _mediaType; }
    CGSize pixelSize() const override { return _pixelSize; }
    double duration() const override { return 0; }

    bool isEqual(const VRAssetObject& other) const override;
    std::size_t hash() const override;

  private:
    VRDataAsset() = default;
    void _setUniqueID(std::string uniqueID);

    std::string _uniqueID;
    std::string _path;
    std::string _thumbnailPath;
    std::optional<std::vector<std::uint8_t>> _tempData;
    std::optional<platform::PlistDate> _creationDate;
    platform::PlistDate _modificationDate = platform::PlistDate::fromTimeIntervalSince1970(0);
    VRFormatMediaType _mediaType = VRFormatMediaTypeNone;
    CGSize _pixelSize;
};
