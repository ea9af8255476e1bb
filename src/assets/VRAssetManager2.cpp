#include "assets/VRAssetManager2.h"

#include "assets/VRAssetManager2Internal.h"
#include "assets/VRDataAsset.h"
#include "assets/VRLibraryAsset.h"
#include "assets/VRLocalAsset.h"
#include "assets/VRURLAsset.h"
#include "model/TypeIdentifiers.h"
#include "model/VRFormat.h"
#include "platform/FileManager.h"
#include "platform/ImageSource.h"
#include "platform/Log.h"
#include "storage/VRFileStorage.h"
#include "storage/VRSettings.h"
#include "storage/VXHelperFiles.h"

namespace {

using Data = std::optional<std::vector<std::uint8_t>>;

// The bytes of a photo file, with the type its name gives, or a frame of a movie file as PNG.
std::pair<Data, std::string> fileImageData(const VRAsset& asset, const std::string& path,
                                           VRFormatMediaType mediaType) {
    auto accessID = asset.startAccessing();
    Data data;
    std::string uti;
    const VRFormat format = VRFormat::formatFromURL(path);
    if (mediaType == VRFormatMediaTypePhoto) {
        platform::ErrorRef error;
        data = platform::FileManager::contentsAtPath(path, &error,
                                                     VRAssetManager2::maxImageDataBytes());
        if (!data)
            platform::logf("~~ ASSET: no data for %s: %s", path.c_str(),
                           error ? error->localizedDescription().c_str() : "unknown");
        // The type the name gives; Auto's own type (JPEG) would make bytes of a type no
        // format of ours names come out as JPEG at its default compression, not the setting's.
        uti = format.type() == VRFormatTypeAuto ? TypeIdentifiers::preferredIdentifierForExtension(
                                                      platform::FileManager::pathExtension(path))
                                                : format.UTI();
    } else if (mediaType == VRFormatMediaTypeVideo) {
        data = VRAssetManager2::defaultManager().imageForAVAsset(AVAsset::assetWithURL(path));
        uti = "public.png";
    } else {
        platform::logf("~~ ASSET: no image data for %s of media type %llu", path.c_str(),
                       static_cast<unsigned long long>(mediaType));
    }
    asset.stopAccessing(accessID);
    return {std::move(data), std::move(uti)};
}

// The still of a Live Photo or a photo, and the movie of a video or a Live Photo, whichever
// the asset has.
struct MovieSource {
    std::string still;
    std::string movie;
    bool live = false;
};

std::optional<MovieSource> movieSourceOf(const VRAssetRef& asset) {
    if (auto* url = vr_asset_manager::urlAssetOf(asset)) {
        if (const auto& paired = url->pairedVideoURL())
            return MovieSource{url->url(), *paired, true};
        if (url->mediaType() == VRFormatMediaTypeVideo) return MovieSource{"", url->url(), false};
        return std::nullopt;
    }
    if (auto* library = vr_asset_manager::libraryAssetOf(asset)) {
        auto movie = library->moviePath();
        if (!movie) return std::nullopt;
        if (library->livePhoto())
            return MovieSource{library->primaryPath().value_or(*movie), *movie, true};
        if (library->mediaType() == VRFormatMediaTypeVideo) return MovieSource{"", *movie, false};
    }
    return std::nullopt;
}

}  // namespace

VRAssetManager2& VRAssetManager2::defaultManager() {
    static VRAssetManager2* manager = new VRAssetManager2();
    return *manager;
}

std::shared_ptr<platform::PhotoLibrary> VRAssetManager2::photoLibrary() {
    std::lock_guard lock(_libraryLock);
    if (!_photoLibrary) {
        platform::ErrorRef error;
        _photoLibrary = platform::PhotoLibrary::open(
            platform::defaultPhotoLibraryLocations(VRSettings::libraryPath()), &error);
        if (!_photoLibrary)
            platform::logf("~~ ASSET: no photo library: %s",
                           error ? error->localizedDescription().c_str() : "unknown");
    }
    return _photoLibrary;
}

void VRAssetManager2::setPhotoLibrary(std::shared_ptr<platform::PhotoLibrary> library) {
    std::lock_guard lock(_libraryLock);
    _photoLibrary = std::move(library);
}

VRAssetRef VRAssetManager2::assetWithPhotoAssetIdentifier(const std::string& localIdentifier) {
    auto library = photoLibrary();
    if (!library) return nullptr;
    auto fetch = library->fetchAssetsWithLocalIdentifiers({localIdentifier}, {});
    const platform::PHAsset* asset = fetch.firstObject();
    if (!asset) return nullptr;
    return VRWrapLibraryAsset(*asset, 0);
}

std::size_t VRAssetManager2::maxImageDataBytes() {
    return platform::ImageSourceLimits{}.maxBytes;
}

void VRAssetManager2::requestImageDataAsyncForAsset(const VRAssetRef& asset,
                                                    platform::OperationQueue* queue,
                                                    ImageDataCompletion completion) {
    if (!completion) return;
    if (!queue) queue = &platform::OperationQueue::mainQueue();
    const std::string key = asset ? asset->objectIdentifier() : std::string();
    auto ticket = asset ? _registerRequest(key) : nullptr;
    queue->addOperationWithBlock([this, asset, key, ticket, completion = std::move(completion)] {
        if (!asset) return completion(std::nullopt, "");
        const bool cancelled = *ticket;
        _finishRequest(key, ticket);
        if (cancelled) return completion(std::nullopt, "");
        const auto& object = asset->object();
        if (auto* data = dynamic_cast<const VRDataAsset*>(object.get()))
            return completion(data->data(), data->typeIdentifier());
        std::optional<std::string> path;
        if (auto* library = vr_asset_manager::libraryAssetOf(asset))
            // A gone asset's files are gone too: the read below finds nothing.
            path = library->primaryPath();
        else if (auto* url = vr_asset_manager::urlAssetOf(asset))
            path = url->url();
        else if (auto* local = dynamic_cast<const VRLocalAsset*>(object.get()))
            path = local->url();
        if (!path) return completion(std::nullopt, "");
        auto [bytes, uti] = fileImageData(*asset, *path, asset->mediaType());
        completion(std::move(bytes), std::move(uti));
    });
}

std::optional<std::string> VRAssetManager2::urlForVideoAsset(const VRAssetRef& asset) const {
    auto source = movieSourceOf(asset);
    if (!source) return std::nullopt;
    if (!source->live) return source->movie;
    const std::string stem = platform::FileManager::stringByDeletingPathExtension(
        platform::FileManager::lastPathComponent(source->still));
    return platform::FileManager::stringByAppendingPathComponent(
        VRFileStorage::ownTemporaryFolder(VXHelper::temporaryDirectory()),
        stem + "-livePhotoVideo." + platform::FileManager::pathExtension(source->movie));
}

void VRAssetManager2::requestAVAssetForAsset(const VRAssetRef& asset,
                                             const AVAssetCompletion& completion) {
    if (!completion) return;
    const auto source = movieSourceOf(asset);
    const auto path = urlForVideoAsset(asset);
    if (!source || !path) return completion(nullptr);
    if (!platform::FileManager::fileExistsAtPath(source->movie)) {
        platform::logf("~~ ASSET: no movie at %s", source->movie.c_str());
        return completion(nullptr);
    }
    if (source->live) {
        using platform::FileManager;
        FileManager::removeItemAtPath(*path);
        platform::ErrorRef error;
        if (!FileManager::linkItemAtPath(source->movie, *path, &error) &&
            !FileManager::copyItemAtPath(source->movie, *path, &error)) {
            platform::logf("~~ ASSET: no movie for the Live Photo %s: %s", source->still.c_str(),
                           error ? error->localizedDescription().c_str() : "unknown");
            return completion(nullptr);
        }
    }
    completion(AVAsset::assetWithURL(*path));
}
