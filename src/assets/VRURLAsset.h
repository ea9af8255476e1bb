// An asset made from a file path: the kind the command line hands in, and the form a result
// file takes when handed back. Its size, duration and dates are read from the file on first use.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "assets/VRAssetObject.h"
#include "assets/VRMediaAttributes.h"

class VRURLAsset : public VRAssetObject {
  public:
    // urlAssetWithURL: the media type comes from the extension (movie 2, image 1, else 0).
    static std::shared_ptr<VRURLAsset> urlAssetWithURL(const std::string& path);
    // A Live Photo given as two files, standing in for the library's: the still at `path` and
    // its movie at `pairedVideoURL`.
    static std::shared_ptr<VRURLAsset> livePhotoAssetWithURL(const std::string& path,
                                                             const std::string& pairedVideoURL);
    // urlAssetWithUniqueID: the unique ID is the path.
    static std::shared_ptr<VRURLAsset> urlAssetWithUniqueID(const std::string& uniqueID) {
        return urlAssetWithURL(uniqueID);
    }
    // The media type of a path by its extension's type identifier.
    static VRFormatMediaType mediaTypeForPath(const std::string& path);

    const std::string& url() const { return _url; }
    // The movie of a Live Photo; absent for every other URL asset.
    const std::optional<std::string>& pairedVideoURL() const { return _pairedVideoURL; }
    bool livePhoto() const override { return _pairedVideoURL.has_value(); }
    bool isDataExist() const;
    // A new object on the same path, whose attributes are loaded anew.
    std::shared_ptr<VRURLAsset> copy() const { return urlAssetWithURL(_url); }

    VRAssetIdentifierType assetType() const override { return VRAssetIdentifierTypeURL; }
    std::string uniqueID() const override { return _url; }
    // The last path component.
    std::string originalFilename() const override;
    // The file's creation date, else the moment this object was made.
    std::optional<platform::PlistDate> creationDate() const override;
    std::optional<platform::PlistDate> modificationDate() const override { return creationDate(); }
    VRFormatMediaType mediaType() const override { return _mediaType; }
    // Photo: the displayed size from the image properties; video: the first video track's
    // natural size turned by its transform. 640 x 480 until read, and when unreadable.
    CGSize pixelSize() const override;
    double duration() const override;

    bool isEqual(const VRAssetObject& other) const override;
    std::size_t hash() const override;

  private:
    VRURLAsset() = default;
    void _loadAttributes() const;

    std::string _url;
    std::optional<std::string> _pairedVideoURL;
    VRFormatMediaType _mediaType = VRFormatMediaTypeNone;
    platform::PlistDate _assetCreationDate;
    VRLazyMediaAttributes _attributes;
    mutable std::optional<platform::PlistDate> _creationDate;
};
