// A photo, movie or Live Photo of the photo library as an asset: the library's own record as it
// was fetched. Its bytes are its resource files, which the asset manager reads.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "assets/VRAsset.h"
#include "assets/VRAssetObject.h"
#include "platform/PhotoLibrary.h"

class VRLibraryAsset : public VRAssetObject {
  public:
    static std::shared_ptr<VRLibraryAsset> assetWithPhotoAsset(platform::PHAsset asset);

    const platform::PHAsset& photoAsset() const { return _asset; }
    const std::string& localIdentifier() const { return _asset.localIdentifier; }
    // The file of the first resource of `type`, if the asset has one.
    std::optional<std::string> pathForResourceType(platform::PHAssetResourceType type) const;
    // The still of a photo or Live Photo, the movie of a video.
    std::optional<std::string> primaryPath() const;
    // The movie of a video, or the paired movie of a Live Photo.
    std::optional<std::string> moviePath() const;

    VRAssetIdentifierType assetType() const override { return VRAssetIdentifierTypeLibrary; }
    std::string uniqueID() const override { return _asset.localIdentifier; }
    // The original name of the first photo or video resource; empty when there is none (the
    // wrapper then answers "img").
    std::string originalFilename() const override;
    std::optional<platform::PlistDate> creationDate() const override { return _asset.creationDate; }
    std::optional<platform::PlistDate> modificationDate() const override {
        return _asset.modificationDate;
    }
    // Image 1, video 2, anything else 0.
    VRFormatMediaType mediaType() const override;
    CGSize pixelSize() const override {
        return {double(_asset.pixelWidth), double(_asset.pixelHeight)};
    }
    double duration() const override { return _asset.duration; }
    // Bit 3 of the subtypes.
    bool livePhoto() const override { return _asset.isLivePhoto(); }

    // Same local identifier.
    bool isEqual(const VRAssetObject& other) const override;
    std::size_t hash() const override;

  private:
    VRLibraryAsset() = default;
    platform::PHAsset _asset;
};

// A library asset as an asset of kind 1 with `flag`.
std::shared_ptr<VRAsset> VRWrapLibraryAsset(const platform::PHAsset& asset, std::uint64_t flag);
