// The photo library as a folder of pictures: the files under the root, indexed by the
// catalogue, with each folder directly under the root an album.
#pragma once

#include <functional>
#include <mutex>

#include "platform/PhotoLibrary.h"
#include "platform/linux/PhotoLibraryCatalog.h"
#include "platform/linux/PhotoLibraryScan.h"

namespace platform::photolibrary {

class FolderPhotoLibrary final : public PhotoLibrary {
  public:
    FolderPhotoLibrary(PhotoLibraryLocations locations, std::unique_ptr<Catalog> catalog);

    const PhotoLibraryLocations& locations() const override { return _locations; }
    PHAuthorizationStatus authorizationStatusForAccessLevel(PHAccessLevel level) const override;
    PHAuthorizationStatus requestAuthorizationForAccessLevel(PHAccessLevel level) override;
    ErrorRef rescan() override;
    PHFetchResult<PHAsset> fetchAssetsWithOptions(const PHFetchOptions& options) override;
    PHFetchResult<PHAsset> fetchAssetsInAssetCollection(
        const std::string& collectionLocalIdentifier, const PHFetchOptions& options) override;
    PHFetchResult<PHAsset> fetchAssetsWithLocalIdentifiers(
        const std::vector<std::string>& localIdentifiers, const PHFetchOptions& options) override;
    PHFetchResult<PHAssetCollection> fetchAlbums() override;
    std::optional<PHAssetCollection> albumWithTitle(const std::string& title) override;
    PHChangeResult performChangesAndWait(const PHChangeRequest& request) override;
    std::optional<Bitmap> requestThumbnail(const std::string& localIdentifier,
                                           std::uint32_t maxSide, ErrorRef* error) override;

    // Runs in rescan() between the walk of the root and the catalogue's write lock, where
    // another writer's changes can slip in; tests make one there.
    void setAfterWalkForTesting(std::function<void()> hook) { _afterWalk = std::move(hook); }
    // Runs before each file is placed under a name found free, with that name's path: tests
    // take the name there, as a file manager could.
    void setBeforePlaceForTesting(std::function<void(const std::string&)> hook) {
        _beforePlace = std::move(hook);
    }

  private:
    // Inside a transaction (PhotoLibraryScan.cpp).
    ErrorRef _rescanLocked(const Walk& walk, FactsCache& cache);
    // Inside a transaction; files written are listed in `written` (PhotoLibraryChanges.cpp).
    ErrorRef _createAlbumLocked(const std::string& title, std::string& albumId);
    ErrorRef _createAssetLocked(const PHChangeRequest& request, std::vector<std::string>& written,
                                std::string& assetId);
    ErrorRef _addAssetLocked(const std::string& assetId, const std::string& title,
                             std::vector<std::string>& written);
    ErrorRef _placeUnderFreeName(const std::string& folder, const std::string& stem,
                                 const std::vector<std::string>& sources,
                                 const std::vector<std::string>& extensions, bool link,
                                 std::vector<std::string>& written);

    PhotoLibraryLocations _locations;
    std::mutex _mutex;  // one connection: one user at a time
    std::unique_ptr<Catalog> _catalog;
    std::function<void()> _afterWalk;
    std::function<void(const std::string&)> _beforePlace;
};

// Album titles that can be folder names: not empty, no "/", no NUL, not starting with ".".
bool isValidAlbumTitle(const std::string& title);

// "stem.ext" when free, then "stem 2.ext", "stem 3.ext", ... : the first name of `stem` for
// which every extension in `extensions` is free in `folder` (a Live Photo keeps one stem).
std::string freeStem(const std::string& folder, const std::string& stem,
                     const std::vector<std::string>& extensions, int firstNumber = 1);

// Puts a copy of `source` at `target` without ever replacing a file: a hard link when
// `link` is set and both lie on one file system, else a copy through a hidden temporary
// name. EEXIST when `target` is taken.
ErrorRef placeFile(const std::string& source, const std::string& target, bool link);

}  // namespace platform::photolibrary
