// The one place that knows how to fetch the bytes of each kind of asset. The processor asks it
// for a photo's bytes on its own queue. Library, local and file assets join as they arrive.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "assets/VRAsset.h"
#include "assets/VRAssetResource.h"
#include "assets/VRAssetThumbnails.h"
#include "platform/AVAsset.h"
#include "platform/OperationQueue.h"
#include "platform/PhotoLibrary.h"

class VRAssetManager2 {
  public:
    static VRAssetManager2& defaultManager();

    // Bytes and their uniform type identifier, or nothing (a missing, unreadable or too large
    // file, an asset of no photo kind).
    using ImageDataCompletion =
        std::function<void(std::optional<std::vector<std::uint8_t>> data, std::string uti)>;

    // requestImageDataAsyncForAsset:operationQueue:withCompletion:. Without a completion
    // nothing happens. The completion runs as an operation of `queue` (the main operation queue
    // when null), also for a null asset, which completes with nothing. Data assets give their
    // bytes and sniffed type; URL assets read their file between startAccessing and
    // stopAccessing, with the type of their extension. A movie's frame as an image is not
    // offered yet: URL assets of other media types complete with nothing.
    void requestImageDataAsyncForAsset(const VRAssetRef& asset, platform::OperationQueue* queue,
                                       ImageDataCompletion completion);

    // requestAVAssetForAsset:completion:, answered at once on the calling thread: the movie of
    // a video asset, or for a Live Photo its movie as a temporary link (a copy where linking
    // fails) at urlForVideoAsset, which the video stage may delete. Null for anything else,
    // for a missing file, and when the link cannot be made.
    using AVAssetCompletion = std::function<void(AVAssetRef movie)>;
    void requestAVAssetForAsset(const VRAssetRef& asset, const AVAssetCompletion& completion);
    // Where the movie of a video asset is read from: its own file, or for a Live Photo the
    // temporary link of its movie ("<still's name>-livePhotoVideo.<movie's extension>" in this
    // process's folder of the temporary directory). Absent for other assets.
    std::optional<std::string> urlForVideoAsset(const VRAssetRef& asset) const;

    // The photo library every library request goes to: the one set, else the library at the
    // `libraryPath` setting (the pictures folder when empty), opened on first use. Null when
    // its catalogue can't be opened; library requests then find nothing.
    std::shared_ptr<platform::PhotoLibrary> photoLibrary();
    // Replaces the library (a command's --library, a test's own); null reopens the default.
    void setPhotoLibrary(std::shared_ptr<platform::PhotoLibrary> library);

    // The library asset with that local identifier as an asset of flag 0; null when it is gone
    // or there is no library.
    VRAssetRef assetWithPhotoAssetIdentifier(const std::string& localIdentifier);

    // createThumbnailForURL:thumbnailURL:targetSize:contentMode:synchronously:
    std::optional<platform::Bitmap> createThumbnailForURL(const std::string& url,
                                                          const std::string& thumbnailURL,
                                                          CGSize targetSize,
                                                          PHImageContentMode contentMode,
                                                          bool synchronously) {
        return VRCreateThumbnailForURL(url, thumbnailURL, targetSize, contentMode, synchronously);
    }

    // Files larger than this are not read into memory (the image source's own limit).
    static std::size_t maxImageDataBytes();

    VRAssetManager2(const VRAssetManager2&) = delete;
    VRAssetManager2& operator=(const VRAssetManager2&) = delete;

    // Saving

    // The program's own albums.
    static constexpr const char* VRAlbumNamePhotos = "Uwrp photos";
    static constexpr const char* VRAlbumNameVideos = "Uwrp videos";
    static constexpr const char* VRAlbumNameOriginals = "Uwrp originals";

    // Success, and the new asset's local identifier (empty on failure).
    using SaveCompletion = std::function<void(bool success, const std::string& localIdentifier)>;
    // Success when every item went in, and the identifiers of the assets that did, in order.
    using AlbumCompletion =
        std::function<void(bool success, std::vector<std::string> addedLocalIdentifiers)>;

    // The album of the assets being processed, when they came from one; results then go to a
    // numbered album named after it.
    std::string sourceAlbumName() const;
    void setSourceAlbumName(std::string name);
    // The album every result goes to as it is (no numbering), when set: a batch run sets it to
    // the numbered album of its first save so that all its results share one album.
    std::string autoSaveAlbumName() const;
    void setAutoSaveAlbumName(std::string name);
    // The serial queue of the saves: a numbered album is chosen and created in one step.
    platform::OperationQueue& savingQueue();

    // requestNextAlbumNameFor: the first free title of "<stem> <n>" from the name's number + 1
    // upward. The number is the name's LAST digit ("Album 19" tries "Album 10" first), 0 counts
    // as 1, and a name without a number tries "<name> 2" first. Looks titles up in the
    // library (synchronous); without a library the first candidate.
    std::string requestNextAlbumNameFor(const std::string& name);
    // _albumWithName: the library's album with exactly this title.
    std::optional<platform::PHAssetCollection> _albumWithName(const std::string& name);
    // _isAlbumWithNameEnabled: "Uwrp originals" follows isAlbumForOriginalsEnabled, "Uwrp photos"
    // and "Uwrp videos" follow areAlbumsForResultsEnabled; every other name is false.
    bool _isAlbumWithNameEnabled(const std::string& name) const;

    // saveToPhotoLibrary:originalAsset:withCompletionOnInternalThread: saves a result on the
    // saving queue as one change: the photo (with its paired movie for a Live Photo) or movie
    // into its album, and a library original linked into "Uwrp originals" when that album is
    // enabled. The album is autoSaveAlbumName, else the next numbered album after
    // sourceAlbumName, else after the media type's own album; when the own album is disabled
    // the result goes to the library's root. No resource (or no file) fails at once on the
    // calling thread; otherwise the completion runs on the saving queue.
    void saveToPhotoLibrary(const std::optional<VRAssetResource>& resource,
                            const VRAssetRef& originalAsset,
                            SaveCompletion completionOnInternalThread);
    // saveToAlbum:resources:completion: saves each resource (a Live Photo as one pair) into the
    // album, made when missing, on the saving queue; a failed item doesn't stop the others.
    // The completion runs on the saving queue.
    void saveToAlbum(const std::string& album, std::vector<VRAssetResource> resources,
                     AlbumCompletion completion);
    // addToAlbum:assets:completion: puts assets into the album on the saving queue: library
    // assets are linked there, assets of files (URL and local assets) saved from their files;
    // other kinds fail. The completion runs on the saving queue.
    void addToAlbum(const std::string& album, std::vector<VRAssetRef> assets,
                    AlbumCompletion completion);

    // The steps of the saves, synchronous on the calling thread (the saving queue); the
    // completion runs before they return. An empty album saves into the library's root.
    // _saveResource:mediaType:paired:toAppAlbum:completion: one creation: a photo from `url`
    // (with `pairedURL` as its paired movie when `paired`), or a movie.
    void _saveResource(const VRAssetResource& resource, VRFormatMediaType mediaType, bool paired,
                       const std::string& toAppAlbum, const SaveCompletion& completion);
    // _saveItemsWithResources:toAppAlbum:addedLocalIdentifiers:completion: one creation per
    // resource, the new identifiers appended to `addedLocalIdentifiers`.
    void _saveItemsWithResources(const std::vector<VRAssetResource>& resources,
                                 const std::string& toAppAlbum,
                                 std::vector<std::string> addedLocalIdentifiers,
                                 const AlbumCompletion& completion);
    // _addAssets:toAppAlbum:addedLocalIdentifiers:completion: library assets linked in one
    // change, then the assets of files saved as new creations.
    void _addAssets(const std::vector<VRAssetRef>& assets, const std::string& toAppAlbum,
                    std::vector<std::string> addedLocalIdentifiers,
                    const AlbumCompletion& completion);

    // Camera saving. The blocks of the listeners run on the thread that saves: the beginning
    // blocks on the caller's, the completion blocks on the library's change queue.
    using CameraErrorBlock = std::function<void(const platform::ErrorRef& error)>;
    using CameraListenerBlock = std::function<void()>;
    // saveImageFromCamera:errorBlock: saves a captured file (a still, or a movie by its
    // extension) into the library's root, and appends the new asset (flag 0) to cameraAssets;
    // a failure goes to the error block. The listeners' beginning blocks run first and their
    // completion blocks last, also after a failure.
    void saveImageFromCamera(const std::string& imagePath, CameraErrorBlock errorBlock);
    bool cameraAssetSaving() const;
    std::vector<VRAssetRef> cameraAssets() const;
    // addListenerWithKey:forSavingImagesFromCamera:completionBlock:; a key added again replaces
    // its blocks.
    void addListenerWithKey(const std::string& key, CameraListenerBlock beginningBlock,
                            CameraListenerBlock completionBlock);
    void removeListenerWithKey(const std::string& key);

    // syncUnsavedAssets: keeps in the store of unsaved items the files named by the URL assets
    // of flag 2 (unsaved) and removes every other file there; folders stay. Synchronous.
    void syncUnsavedAssets(const std::vector<VRAssetRef>& assets);
    // "_vrunsaveditemsdir01" in the documents directory.
    static std::string unsavedItemsDirectory();

    // requestPhotoAccessPermissionWithCompletion: (read and write) and
    // requestPhotoAccessToSavePermissionWithCompletion: (adding only): asks the library, which
    // may create its folder, off the main queue; the answer (authorized or not) arrives on the
    // main queue. No library answers false.
    using PermissionCompletion = std::function<void(bool authorized)>;
    void requestPhotoAccessPermissionWithCompletion(PermissionCompletion completionOnMainThread);
    void requestPhotoAccessToSavePermissionWithCompletion(
        PermissionCompletion completionOnMainThread);

  private:
    VRAssetManager2() = default;

    std::mutex _libraryLock;
    std::shared_ptr<platform::PhotoLibrary> _photoLibrary;

    // Saving
    // The album a result goes to, and whether a numbered album follows from it.
    std::pair<std::string, bool> _albumNameForSaving(VRFormatMediaType mediaType) const;
    std::shared_ptr<platform::PhotoLibrary> _libraryForSaving();
    void _requestPermission(platform::PHAccessLevel level, PermissionCompletion completion);
    void _notifyCameraListeners(bool beginning);

    mutable std::mutex _savingLock;
    std::string _sourceAlbumName;
    std::string _autoSaveAlbumName;
    std::once_flag _savingQueueMade;
    std::unique_ptr<platform::OperationQueue> _savingQueue;
    std::map<std::string, CameraListenerBlock> _beginningBlocks;
    std::map<std::string, CameraListenerBlock> _competionBlocks;
    std::vector<VRAssetRef> _cameraAssets;
    bool _cameraAssetSaving = false;
};
