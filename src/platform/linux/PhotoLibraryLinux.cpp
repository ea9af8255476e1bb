#include "platform/linux/PhotoLibraryLinux.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/linux/Thumbnail.h"

namespace platform {

std::shared_ptr<PhotoLibrary> PhotoLibrary::open(const PhotoLibraryLocations& locations,
                                                 ErrorRef* error) {
    const std::string& catalogPath = locations.catalogPath;
    const std::string folder = catalogPath.substr(0, catalogPath.rfind('/'));
    // The data folder may not exist yet on a first start.
    for (std::size_t slash = 1; slash != std::string::npos; slash = folder.find('/', slash + 1))
        mkdir(folder.substr(0, slash).c_str(), 0755);
    mkdir(folder.c_str(), 0755);
    auto catalog = photolibrary::Catalog::open(catalogPath, error);
    if (!catalog) return nullptr;
    auto library =
        std::make_shared<photolibrary::FolderPhotoLibrary>(locations, std::move(catalog));
    if (auto e = library->rescan()) {
        if (error) *error = e;
        return nullptr;
    }
    return library;
}

PHAuthorizationStatus PhotoLibrary::authorizationStatusAt(const PhotoLibraryLocations& locations,
                                                          PHAccessLevel level) {
    struct stat st {};
    if (stat(locations.root.c_str(), &st) != 0) {
        return errno == ENOENT ? PHAuthorizationStatusNotDetermined : PHAuthorizationStatusDenied;
    }
    if (!S_ISDIR(st.st_mode)) return PHAuthorizationStatusDenied;
    // Reading the library needs to list it; adding to it needs to write into it.
    const int mode = level == PHAccessLevelAddOnly ? (W_OK | X_OK) : (R_OK | X_OK);
    return access(locations.root.c_str(), mode) == 0 ? PHAuthorizationStatusAuthorized
                                                     : PHAuthorizationStatusDenied;
}

namespace photolibrary {
namespace {

ErrorRef goneError(const std::string& id) {
    return Error::errorWithDomain(PHPhotosErrorDomain, PHPhotosErrorIdentifierNotFound,
                                  {{NSLocalizedDescriptionKey, "The asset " + id + " is gone"}});
}

}  // namespace

FolderPhotoLibrary::FolderPhotoLibrary(PhotoLibraryLocations locations,
                                       std::unique_ptr<Catalog> catalog)
    : _locations(std::move(locations)), _catalog(std::move(catalog)) {}

PHAuthorizationStatus FolderPhotoLibrary::authorizationStatusForAccessLevel(
    PHAccessLevel level) const {
    return PhotoLibrary::authorizationStatusAt(_locations, level);
}

PHAuthorizationStatus FolderPhotoLibrary::requestAuthorizationForAccessLevel(PHAccessLevel level) {
    if (authorizationStatusForAccessLevel(level) == PHAuthorizationStatusNotDetermined) {
        const std::string& root = _locations.root;
        for (std::size_t slash = 1; slash != std::string::npos; slash = root.find('/', slash + 1))
            mkdir(root.substr(0, slash).c_str(), 0755);
        mkdir(root.c_str(), 0755);
    }
    return authorizationStatusForAccessLevel(level);
}

PHFetchResult<PHAsset> FolderPhotoLibrary::fetchAssetsWithOptions(const PHFetchOptions& options) {
    std::lock_guard lock(_mutex);
    return PHFetchResult<PHAsset>(_catalog->assets({}, options));
}

PHFetchResult<PHAsset> FolderPhotoLibrary::fetchAssetsInAssetCollection(
    const std::string& collectionLocalIdentifier, const PHFetchOptions& options) {
    std::lock_guard lock(_mutex);
    for (const auto& [title, id] : _catalog->albums()) {
        if (id == collectionLocalIdentifier)
            return PHFetchResult<PHAsset>(_catalog->assets({title, std::nullopt}, options));
    }
    return {};
}

PHFetchResult<PHAsset> FolderPhotoLibrary::fetchAssetsWithLocalIdentifiers(
    const std::vector<std::string>& localIdentifiers, const PHFetchOptions& options) {
    std::lock_guard lock(_mutex);
    return PHFetchResult<PHAsset>(_catalog->assets({std::nullopt, localIdentifiers}, options));
}

PHFetchResult<PHAssetCollection> FolderPhotoLibrary::fetchAlbums() {
    std::lock_guard lock(_mutex);
    std::vector<PHAssetCollection> albums;
    for (const auto& [title, id] : _catalog->albums())
        albums.push_back({id, title, _catalog->countInAlbum(title)});
    std::sort(albums.begin(), albums.end(),
              [](const auto& a, const auto& b) { return a.localizedTitle < b.localizedTitle; });
    return PHFetchResult<PHAssetCollection>(std::move(albums));
}

std::optional<PHAssetCollection> FolderPhotoLibrary::albumWithTitle(const std::string& title) {
    std::lock_guard lock(_mutex);
    auto albums = _catalog->albums();
    auto it = albums.find(title);
    if (it == albums.end()) return std::nullopt;
    return PHAssetCollection{it->second, title, _catalog->countInAlbum(title)};
}

std::optional<Bitmap> FolderPhotoLibrary::requestThumbnail(const std::string& localIdentifier,
                                                           std::uint32_t maxSide, ErrorRef* error) {
    std::string path;
    bool movie = false;
    {
        std::lock_guard lock(_mutex);
        // A photo's (or Live Photo's) still, else a movie's file.
        for (const auto role : {PHAssetResourceTypePhoto, PHAssetResourceTypeVideo}) {
            for (const auto& f : _catalog->filesOfAsset(localIdentifier)) {
                if (f.role == role && access(f.path.c_str(), R_OK) == 0) {
                    path = f.path;
                    movie = role == PHAssetResourceTypeVideo;
                    break;
                }
            }
            if (!path.empty()) break;
        }
        if (path.empty()) {
            if (error) *error = goneError(localIdentifier);
            return std::nullopt;
        }
    }
    return movie ? thumbnails::thumbnailForMovie(_locations.thumbnailsCache, path, maxSide, error)
                 : thumbnails::thumbnailForFile(_locations.thumbnailsCache, path, maxSide, error);
}

}  // namespace photolibrary
}  // namespace platform
