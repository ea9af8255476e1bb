// The photo library the asset manager reads and saves into: assets with their resources,
// albums, fetches with positional access, changes and thumbnails. On Linux it is a folder of
// pictures (each folder directly under the root an album) indexed by a catalogue, so that
// results appear as ordinary files that the desktop's other tools also see.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Bitmap.h"
#include "platform/Error.h"
#include "platform/PlistValue.h"

namespace platform {

// The library's error domain and its codes.
inline constexpr const char* PHPhotosErrorDomain = "PHPhotosErrorDomain";
inline constexpr std::int64_t PHPhotosErrorAccessUserDenied = 3311;
inline constexpr std::int64_t PHPhotosErrorInvalidResource = 3302;
// The asset or album was deleted, or never existed: every request for it answers this.
inline constexpr std::int64_t PHPhotosErrorIdentifierNotFound = 3201;
inline constexpr std::int64_t PHPhotosErrorOperationInterrupted = 3104;

enum PHAssetMediaType : std::int32_t {
    PHAssetMediaTypeUnknown = 0,
    PHAssetMediaTypeImage = 1,
    PHAssetMediaTypeVideo = 2,
};

// Bit set of mediaSubtypes; bit 3 marks a Live Photo.
enum PHAssetMediaSubtype : std::uint32_t {
    PHAssetMediaSubtypeNone = 0,
    PHAssetMediaSubtypePhotoLive = 1u << 3,
};

enum PHAssetResourceType : std::int32_t {
    PHAssetResourceTypePhoto = 1,
    PHAssetResourceTypeVideo = 2,
    PHAssetResourceTypePairedVideo = 9,
};

enum PHAuthorizationStatus : std::int32_t {
    PHAuthorizationStatusNotDetermined = 0,
    PHAuthorizationStatusRestricted = 1,
    PHAuthorizationStatusDenied = 2,
    PHAuthorizationStatusAuthorized = 3,
};

enum PHAccessLevel : std::int32_t {
    PHAccessLevelAddOnly = 1,
    PHAccessLevelReadWrite = 2,
};

// One file of an asset.
struct PHAssetResource {
    PHAssetResourceType type = PHAssetResourceTypePhoto;
    std::string originalFilename;  // the file's name as saved
    std::string path;              // absolute path of the file
    friend bool operator==(const PHAssetResource&, const PHAssetResource&) = default;
};

struct PHLocation {
    double latitude = 0;
    double longitude = 0;
    friend bool operator==(const PHLocation&, const PHLocation&) = default;
};

// One photo, movie or Live Photo of the library, as read when it was fetched.
struct PHAsset {
    std::string localIdentifier;
    PHAssetMediaType mediaType = PHAssetMediaTypeUnknown;
    std::uint32_t mediaSubtypes = PHAssetMediaSubtypeNone;
    // Sides as displayed, after the photo's orientation or the movie's rotation.
    std::uint32_t pixelWidth = 0;
    std::uint32_t pixelHeight = 0;
    double duration = 0;  // seconds; 0 for photos
    // The photo's EXIF or the movie's QuickTime date, else the file's modification time.
    std::optional<PlistDate> creationDate;
    std::optional<PlistDate> modificationDate;
    std::optional<PHLocation> location;
    // Photo first; a Live Photo has its paired video second.
    std::vector<PHAssetResource> resources;

    bool isLivePhoto() const { return mediaSubtypes & PHAssetMediaSubtypePhotoLive; }
};

// An album: on Linux a folder directly under the library's root.
struct PHAssetCollection {
    std::string localIdentifier;
    std::string localizedTitle;
    std::size_t estimatedAssetCount = 0;
};

// The answer of a fetch: objects in the fetch's order with positional access.
template <class T>
class PHFetchResult {
  public:
    PHFetchResult() = default;
    explicit PHFetchResult(std::vector<T> objects) : _objects(std::move(objects)) {}

    std::size_t count() const { return _objects.size(); }
    // Null past the end.
    const T* objectAtIndex(std::size_t index) const {
        return index < _objects.size() ? &_objects[index] : nullptr;
    }
    const T* firstObject() const { return objectAtIndex(0); }
    const T* lastObject() const { return _objects.empty() ? nullptr : &_objects.back(); }
    // The position of the object with that identifier, or NSNotFound (2^63 - 1).
    std::size_t indexOfObject(const std::string& localIdentifier) const {
        for (std::size_t i = 0; i < _objects.size(); ++i)
            if (_objects[i].localIdentifier == localIdentifier) return i;
        return 0x7FFFFFFFFFFFFFFF;
    }
    const std::vector<T>& objects() const& { return _objects; }
    // A temporary result hands its objects over, so that `for (x : fetch().objects())` is safe.
    std::vector<T> objects() && { return std::move(_objects); }

  private:
    std::vector<T> _objects;
};

// Limits of a fetch. Assets come by creation date, oldest first unless `newestFirst`.
struct PHFetchOptions {
    // Media types to include; empty includes all.
    std::vector<PHAssetMediaType> mediaTypes;
    std::size_t fetchLimit = 0;  // 0: no limit
    bool newestFirst = false;
};

// One file handed to a creation request; it is copied into the album's folder.
struct PHAssetResourceCreation {
    PHAssetResourceType type = PHAssetResourceTypePhoto;
    std::string fileURL;           // the path of the file to take
    std::string originalFilename;  // the name to save under; empty: the file's own name
};

// Existing assets that one change adds to a further album (made when missing).
struct PHAlbumAddition {
    std::string albumTitle;
    std::vector<std::string> assetLocalIdentifiers;
};

// What one performChanges does, in this order: create the album titled `albumTitle` when it
// is missing, create an asset from `resources` in it (a Live Photo: a photo and a paired video
// written as one pair), add the assets of `addAssetLocalIdentifiers` to that album, then each
// addition of `albumAdditions` (a result saved with its original added to another album).
// Adding links the asset's files into the album's folder, a copy only across file systems.
struct PHChangeRequest {
    std::string albumTitle;  // empty: no album, the new asset goes to the root
    std::vector<PHAssetResourceCreation> resources;
    std::vector<std::string> addAssetLocalIdentifiers;
    std::vector<PHAlbumAddition> albumAdditions = {};
};

struct PHChangeResult {
    ErrorRef error;                          // null on success
    std::string placeholderLocalIdentifier;  // the created asset, if one was requested
    std::string albumLocalIdentifier;        // the album, if one was named
};

// Where a library lives. The catalogue and thumbnail folders are created on first use.
struct PhotoLibraryLocations {
    std::string root;             // the pictures folder
    std::string catalogPath;      // the SQLite catalogue
    std::string thumbnailsCache;  // the freedesktop cache, holding normal/ large/ x-large/
};

class PhotoLibrary : public std::enable_shared_from_this<PhotoLibrary> {
  public:
    using ChangeCompletion = std::function<void(const PHChangeResult&)>;
    using ImageCompletion = std::function<void(std::optional<Bitmap>, const ErrorRef&)>;

    // Opens the catalogue and brings it up to date with the files under the root. Null with
    // an error when the catalogue cannot be opened. A missing root is not an error: the
    // library is empty and its status is "not determined".
    static std::shared_ptr<PhotoLibrary> open(const PhotoLibraryLocations& locations,
                                              ErrorRef* error = nullptr);

    // The status of the library at `locations`, as authorizationStatusForAccessLevel answers
    // it, without opening the catalogue: cheap enough for every start of the program.
    static PHAuthorizationStatus authorizationStatusAt(const PhotoLibraryLocations& locations,
                                                       PHAccessLevel level);

    virtual ~PhotoLibrary() = default;

    virtual const PhotoLibraryLocations& locations() const = 0;

    // Not determined while the root doesn't exist, denied when it can't be read (or, for
    // add-only access, written), authorized otherwise.
    virtual PHAuthorizationStatus authorizationStatusForAccessLevel(PHAccessLevel level) const = 0;
    // Creates the root when it is missing, then answers the status. Called on the caller's
    // thread.
    virtual PHAuthorizationStatus requestAuthorizationForAccessLevel(PHAccessLevel level) = 0;

    // Brings the catalogue up to date with files added, changed, renamed or deleted by others.
    virtual ErrorRef rescan() = 0;

    // Every asset (the recents).
    virtual PHFetchResult<PHAsset> fetchAssetsWithOptions(const PHFetchOptions& options) = 0;
    // The assets of an album; empty for an album that is gone.
    virtual PHFetchResult<PHAsset> fetchAssetsInAssetCollection(
        const std::string& collectionLocalIdentifier, const PHFetchOptions& options) = 0;
    // The assets that still exist among those identifiers, in the fetch's order.
    virtual PHFetchResult<PHAsset> fetchAssetsWithLocalIdentifiers(
        const std::vector<std::string>& localIdentifiers, const PHFetchOptions& options) = 0;
    // Albums by title.
    virtual PHFetchResult<PHAssetCollection> fetchAlbums() = 0;
    // The album with exactly this title, if there is one.
    virtual std::optional<PHAssetCollection> albumWithTitle(const std::string& title) = 0;

    // Applies one change inside one catalogue transaction. Files are written under free names,
    // never over an existing file; on failure the files already written are removed.
    virtual PHChangeResult performChangesAndWait(const PHChangeRequest& request) = 0;
    // The same on a background queue; the completion runs on that queue.
    void performChanges(PHChangeRequest request, ChangeCompletion completion);

    // A thumbnail whose longer side is at least min(maxSide, 512) when the picture is that
    // large, through the shared freedesktop cache (made when missing or stale). A movie's is
    // its frame at a tenth of its duration, at most one second in; an asset that is gone
    // answers PHPhotosErrorIdentifierNotFound. Synchronous.
    virtual std::optional<Bitmap> requestThumbnail(const std::string& localIdentifier,
                                                   std::uint32_t maxSide, ErrorRef* error) = 0;
    // The same on a background queue; the completion runs on that queue.
    void requestImage(std::string localIdentifier, std::uint32_t maxSide,
                      ImageCompletion completion);
};

// The pictures folder when no setting or option names one: under a home root HOME/Pictures;
// else XDG_PICTURES_DIR of `userDirsFile` ($XDG_CONFIG_HOME/user-dirs.dirs) with $HOME
// expanded; else HOME/Pictures for the user's home `userHome`.
std::string defaultPhotoLibraryRoot(const std::optional<std::string>& homeRoot,
                                    const std::string& userHome, const std::string& userDirsFile);

// The locations for the running program: the root (from `libraryPath` when given, else the
// default above), the catalogue in the data directory, and the thumbnail cache
// ($XDG_CACHE_HOME/thumbnails, or HOME/cache/thumbnails under a home root).
PhotoLibraryLocations defaultPhotoLibraryLocations(const std::optional<std::string>& libraryPath);

// The library's Live Photo rule for two files outside it: a still and a movie of one stem in
// one folder whose pairing keys (the still's XMP content identifier, the movie's QuickTime
// one) are present and equal. Reads both files' metadata.
bool isLivePhotoPair(const std::string& stillPath, const std::string& moviePath);

}  // namespace platform
