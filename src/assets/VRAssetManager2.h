// The one place that knows how to fetch the bytes of each kind of asset. The processor asks it
// for a photo's bytes on its own queue. Library, local and file assets join as they arrive.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "assets/VRAsset.h"
#include "assets/VRAssetResource.h"
#include "assets/VRAssetThumbnails.h"
#include "assets/VRCollection.h"
#include "assets/VRRequestSession.h"
#include "platform/AVAsset.h"
#include "platform/OperationQueue.h"
#include "platform/PhotoLibrary.h"

class VRDataAsset;
class VRURLAsset;

// The folders of the program's own items: unsaved results in the documents directory, drawn
// thumbnails of URL assets in the temporary directory.
inline constexpr const char* VRUnsavedItemsDirectoryName = "_vrunsaveditemsdir01";
inline constexpr const char* VRThumbnailsDirectoryName = "_vrthumbnailsdir01";
// The recents (every asset of the library by creation date) as a library collection.
inline constexpr const char* VRRecentsCollectionIdentifier = "vr-recents";
inline constexpr const char* VRRecentsCollectionTitle = "Recents";
// The flag of assets listed from the store of unsaved items.
inline constexpr std::uint64_t VRAssetFlagUnsaved = 2;

// What reloadAssets found: the assets still there (fresh records, in the given order), those
// of them whose files changed, and those that are gone.
struct VRReloadedAssets {
    std::vector<VRAssetRef> assets;
    std::vector<VRAssetRef> modified;
    std::vector<VRAssetRef> vanished;
};

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
    // bytes and sniffed type; library, URL and local assets read their file between
    // startAccessing and stopAccessing, a photo as it is with the type of its extension, a
    // movie as a frame in PNG (imageForAVAsset). A request cancelled before its turn, a gone
    // file and other kinds complete with nothing.
    void requestImageDataAsyncForAsset(const VRAssetRef& asset, platform::OperationQueue* queue,
                                       ImageDataCompletion completion);

    // requestAVAssetForAsset:completion:, answered at once on the calling thread: the movie of
    // a video asset (library or URL), or for a Live Photo its movie as a temporary link (a copy
    // where linking fails) at urlForVideoAsset, which the video stage may delete. Null for anything
    // else, for a missing file, and when the link cannot be made.
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

    // ---- What the main session decides, fed by it (this layer can't ask it) ----
    void setSourceImageEnabled(bool value) { _sourceImageEnabled = value; }
    bool sourceImageEnabled() const { return _sourceImageEnabled; }
    void setLoadImagesOnly(bool value) { _loadImagesOnly = value; }
    bool loadImagesOnly() const { return _loadImagesOnly; }

    // ---- Request options ----
    PHImageRequestOptions optionsForImageDataRequestSynchronous(bool synchronous) const;
    PHImageRequestOptions optionsForThumbnailRequestHighQuality(bool highQuality,
                                                                bool synchronous) const;
    // Images only when loadImagesOnly, else images and videos.
    platform::PHFetchOptions optionsForAssetReqest() const;

    // ---- Sessions ----
    // An empty name gets a generated one; a session of that name is ended first. The name.
    std::string beginSessionWithName(const std::string& name, PHImageContentMode contentMode,
                                     bool highQuality, bool synchronous,
                                     bool allowHighQualityCaching);
    void endSessionWithName(const std::string& name);
    VRRequestSessionRef sessionWithName(const std::string& name) const;
    void sessionWithNameSetTargetSize(const std::string& name, CGSize targetSize);
    void sessionWithNameStartCachingThumbnailsForPhotoAssets(
        const std::string& name, const std::vector<platform::PHAsset>& assets);
    void sessionWithNameStopCachingThumbnailsForPhotoAssets(
        const std::string& name, const std::vector<platform::PHAsset>& assets);
    // Library assets only; the others are drawn on request.
    void sessionWithNameStartCachingThumbnailsForAssets(const std::string& name,
                                                        const std::vector<VRAssetRef>& assets,
                                                        bool highQuality);
    void sessionWithNameStopCachingThumbnailsForAssets(const std::string& name,
                                                       const std::vector<VRAssetRef>& assets,
                                                       bool highQuality);
    static std::string _generateUniqueSessionName();

    // ---- Thumbnails ----
    using ThumbnailCompletion = std::function<void(std::optional<platform::Bitmap> image)>;
    // A missing session or asset completes with nothing. Delivered on the main queue.
    void sessionWithNameRequestThumbnailForAsset(const std::string& name, const VRAssetRef& asset,
                                                 ThumbnailCompletion completionOnMainThread);
    // The same through a temporary session.
    void requestThumbnailForAsset(const VRAssetRef& asset, CGSize targetSize, bool highQuality,
                                  PHImageContentMode contentMode, bool synchronous,
                                  ThumbnailCompletion completionOnMainThread);
    // By kind; on the calling thread for a synchronous session, else on a background queue.
    void _requestThumbnailForAsset(const VRAssetRef& asset, const VRRequestSession& session,
                                   ThumbnailCompletion completionOnInternalThread);
    std::optional<platform::Bitmap> _thumbnailForURLAsset(const VRURLAsset& asset,
                                                          CGSize targetSize, bool highQuality,
                                                          PHImageContentMode contentMode);
    std::optional<platform::Bitmap> _thumbnailForDataAsset(const VRDataAsset& asset,
                                                           CGSize targetSize, bool highQuality,
                                                           PHImageContentMode contentMode);
    // The folder of drawn thumbnails of URL assets, and a new file name in it.
    static std::string thumbnailURL();
    static std::string _generateThumbnailPath();
    // Drawn at `size` exactly (stretched), medium quality: a photo, or a frame of a movie.
    void requestPreviewImageForAsset(const VRAssetRef& asset, CGSize size,
                                     ThumbnailCompletion completionOnMainThread);

    // ---- Bytes of movies and library assets ----
    // A frame at a tenth of the movie's duration, upright, as PNG bytes; nothing for a movie
    // without a decodable video track.
    std::optional<std::vector<std::uint8_t>> imageForAVAsset(const AVAssetRef& movie);
    // The library asset's movie (a video's file, a Live Photo's paired movie), or null.
    void _requestAVAssetForPHAsset(const platform::PHAsset& asset,
                                   const AVAssetCompletion& completion);
    // Facts of the asset's files: "fileName", "uniformTypeIdentifier", "fileSize", "path" and,
    // for a Live Photo, "pairedPath"; empty for a missing asset or file.
    void requestInfoForAsset(const VRAssetRef& asset,
                             const std::function<void(platform::PlistDictionary)>& completion);
    // Image data requests of this asset that have not begun reading complete with nothing.
    void cancelRequestsForAsset(const VRAssetRef& asset);

    // ---- Lists ----
    // The recents first unless excluded, then the library's albums by title, with counts.
    std::vector<VRCollection> collectionsExcludingRecents(bool excludeRecents);
    // Collections of those types in the order given (type 1: as collectionsExcludingRecents).
    std::vector<VRCollection> collectionsWithTypes(const std::vector<VRCollectionType>& types);
    std::optional<VRCollection> collectionWithType(VRCollectionType type,
                                                   const std::string& localIdentifier);
    static bool isCameraRoll(const VRCollection& collection);
    // The newest asset of the collection and its count.
    VRAssetRef keyAssetForCollection(const VRCollection& collection, std::size_t* count);
    // Newest first. Unsaved items are URL assets of flag 2. `shapes`, when given, receives the
    // distinct pixel sizes by media type.
    std::vector<VRAssetRef> assetsForCollection(
        const VRCollection& collection,
        std::map<VRFormatMediaType, std::set<std::pair<double, double>>>* shapes);
    // Back to assets in the given order, keeping each flag; those not found are left out.
    // Local and file assets need their stores and are left out here.
    std::vector<VRAssetRef> assetsWithAssetIdentifiers(
        const std::vector<VRAssetIdentifier>& identifiers);
    // Rescans the library and fetches its assets anew.
    VRReloadedAssets reloadAssets(const std::vector<VRAssetRef>& assets);
    // Up to `count` of the newest photos of the library, for a first look at the program.
    std::vector<VRAssetRef> sampleAssets(std::size_t count);
    // Removes the stored bytes of data assets not among `assets`, in the background.
    void clearCachedDataForAllAssetsExceptAssets(const std::vector<VRAssetRef>& assets);
    // "_vrunsaveditemsdir01" in the documents directory.
    static std::string unsavedItemsDirectory();

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
    // Success when every item went in, the identifiers of the assets that did, in order, and
    // the library's error of the first item that did not (null on success).
    using AlbumCompletion =
        std::function<void(bool success, std::vector<std::string> addedLocalIdentifiers,
                           const platform::ErrorRef& error)>;

    // The album of the assets being processed, when they came from one; results then go to a
    // numbered album named after it.
    std::string sourceAlbumName() const;
    void setSourceAlbumName(std::string name);
    // The album every result goes to as it is (no numbering), when set. The first save into a
    // numbered album keeps that album's title here, so that the later results of a batch
    // share it; a batch run clears it when it begins.
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
    // sourceAlbumName, else after the media type's own album (which then becomes
    // autoSaveAlbumName); when the own album is disabled the result goes to the library's root. No
    // resource (or no file) fails at once on the calling thread; otherwise the completion runs on
    // the saving queue.
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
    // An image data request's ticket: cancelled tickets complete with nothing.
    std::shared_ptr<std::atomic<bool>> _registerRequest(const std::string& key);
    void _finishRequest(const std::string& key, const std::shared_ptr<std::atomic<bool>>& ticket);

    std::mutex _libraryLock;
    std::shared_ptr<platform::PhotoLibrary> _photoLibrary;
    std::atomic<bool> _sourceImageEnabled{false};
    std::atomic<bool> _loadImagesOnly{false};
    mutable std::mutex _sessionsLock;
    std::map<std::string, VRRequestSessionRef> requestSessions;
    std::mutex _requestsLock;
    std::multimap<std::string, std::shared_ptr<std::atomic<bool>>> assetsRequests;

    // Saving
    // One creation request, its error logged.
    platform::PHChangeResult _createAsset(const VRAssetResource& resource,
                                          VRFormatMediaType mediaType, bool paired,
                                          const std::string& toAppAlbum);
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
