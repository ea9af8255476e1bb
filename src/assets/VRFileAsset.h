// A file chosen by path from outside the library, reachable only while somebody holds an access
// to it, with thumbnails of several widths cached in its own folder of the application files.
// The picker hands these in; the asset manager and the processor read them through VRAsset's
// startAccessing/stopAccessing bracket. All state lives on one serial queue shared by every
// file asset, so none of these operations may be called from that queue.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "assets/VRAssetObject.h"
#include "platform/Bitmap.h"

namespace platform {
class DispatchQueue;
}

class VRFileAsset : public VRAssetObject, public std::enable_shared_from_this<VRFileAsset> {
  public:
    // One stored thumbnail, named by its width in its asset's folder.
    struct Thumbnail {
        long width = 0;
    };
    using ThumbnailCompletion = std::function<void(std::optional<platform::Bitmap>)>;

    // The file at `path`; its identifier is the path. The media type comes from the extension.
    static std::shared_ptr<VRFileAsset> fileAssetWithURL(const std::string& path);

    // "com.vorela.unwarp.file-asset.queue", made once and shared by all file assets.
    static platform::DispatchQueue& queue();
    // Removes the whole application-files folder with the thumbnails of every file asset.
    static void clearAllResources();

    const std::string& identifier() const { return _identifier; }
    // The file while at least one access is open; nothing otherwise.
    std::optional<std::string> url() const;
    // Whether the file is there, looked at under a temporary access of its own.
    bool isDataExist() const;

    // Opens an access under a new ID and answers it, or nothing when the file can't be
    // opened. A failed first opening keeps its ID among the open ones on purpose, so that the
    // file counts as held while the caller treats it as unreachable.
    std::optional<std::string> startAccessing() override;
    void stopAccessingWithAccessID(const std::string& accessID);
    void stopAccessing(const std::string& accessID) override {
        stopAccessingWithAccessID(accessID);
    }

    // A thumbnail for `size` (its width decides): a stored one of 0.8 to 1.5 times the width
    // when there is one, else a new one made from the nearest larger stored thumbnail or, when
    // none is larger, from the file. Runs on the queue with the asset held weakly; the
    // completion runs afterwards on a global queue (so it may ask the asset again), with
    // nothing when no thumbnail could be had. It doesn't run when the asset is gone.
    void createThumbnailOfSize(CGSize size, ThumbnailCompletion completion);

    // copyWithZone: a new object with the same fields, its thumbnails and open accesses
    // included.
    std::shared_ptr<VRFileAsset> copy() const;

    VRAssetIdentifierType assetType() const override { return VRAssetIdentifierTypeFile; }
    std::string uniqueID() const override { return _identifier; }
    // The last path component of the file, whether accessed or not.
    std::string originalFilename() const override;
    // The file's creation date, else the moment this object was made.
    std::optional<platform::PlistDate> creationDate() const override;
    std::optional<platform::PlistDate> modificationDate() const override { return creationDate(); }
    VRFormatMediaType mediaType() const override { return _mediaType; }
    // Read under a temporary access on first use: 640 x 480 until then and while the file
    // can't be opened.
    CGSize pixelSize() const override;
    double duration() const override;

    // Same class and identifier.
    bool isEqual(const VRAssetObject& other) const override;
    std::size_t hash() const override;

  private:
    VRFileAsset() = default;

    // These run on the queue. An absent ID is the asset's own internal access (_uniqueID).
    bool _openAccess(const std::optional<std::string>& accessID) const;
    void _closeAccess(const std::optional<std::string>& accessID) const;
    void _loadAttributesIfNeeded() const;
    // The reading itself, for callers that hold an access already.
    void _readAttributes() const;
    std::string _thumbnailFolder() const;
    std::optional<platform::Bitmap> _thumbnailOfSize(CGSize size);

    std::string _identifier;
    VRFormatMediaType _mediaType = VRFormatMediaTypeNone;
    std::string _originalURL;
    std::string _uniqueID;
    platform::PlistDate _assetCreationDate;
    // The fields below are read and written on the queue only.
    mutable std::set<std::string> _accessIDs;
    std::vector<Thumbnail> _thumbnails;  // widths in descending order
    mutable bool _attributesLoaded = false;
    mutable CGSize _pixelSize{640, 480};
    mutable std::optional<double> _duration;
    mutable std::optional<platform::PlistDate> _creationDate;
};
