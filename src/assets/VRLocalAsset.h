// One stored result of the result store, as an asset: its file, its thumbnail and, for a Live
// Photo kept together, its movie. Size and duration are read from the file on first use.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "assets/VRAssetObject.h"
#include "assets/VRMediaAttributes.h"
#include "platform/Bitmap.h"

class VRLocalAsset : public VRAssetObject {
  public:
    static std::shared_ptr<VRLocalAsset> localAssetWithIdentifier(
        std::string identifier, VRFormatMediaType mediaType, std::string url,
        std::string thumbnailURL, std::optional<std::string> pairedVideoURL,
        platform::PlistDate creationDate);

    const std::string& identifier() const { return _identifier; }
    const std::string& url() const { return _url; }
    const std::string& thumbnailURL() const { return _thumbnailURL; }
    const std::optional<std::string>& pairedVideoURL() const { return _pairedVideoURL; }
    // The decoded thumbnail file; nothing when it can't be read.
    std::optional<platform::Bitmap> thumbnailImage() const;

    VRAssetIdentifierType assetType() const override { return VRAssetIdentifierTypeLocal; }
    std::string uniqueID() const override { return _identifier; }
    // The last path component of the file.
    std::string originalFilename() const override;
    std::optional<platform::PlistDate> creationDate() const override { return _creationDate; }
    // A stored result never changes after it was stored.
    std::optional<platform::PlistDate> modificationDate() const override { return _creationDate; }
    VRFormatMediaType mediaType() const override { return _mediaType; }
    // Read from the file on first use: 640 x 480 until then and when it can't be read.
    CGSize pixelSize() const override;
    // 0 for photos and unreadable movies.
    double duration() const override;

    // Same class and identifier.
    bool isEqual(const VRAssetObject& other) const override;
    std::size_t hash() const override;

  private:
    VRLocalAsset() = default;
    void _loadAttributes() const;

    std::string _identifier;
    VRFormatMediaType _mediaType = VRFormatMediaTypeNone;
    std::string _url;
    std::string _thumbnailURL;
    std::optional<std::string> _pairedVideoURL;
    platform::PlistDate _creationDate;
    VRLazyMediaAttributes _attributes;
};
