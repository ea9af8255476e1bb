#include "assets/VRAssetManager2.h"

#include "assets/VRDataAsset.h"
#include "assets/VRLibraryAsset.h"
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

std::pair<Data, std::string> urlAssetData(const VRAsset& asset, const VRURLAsset& url) {
    auto accessID = asset.startAccessing();
    Data data;
    std::string uti;
    const VRFormat format = VRFormat::formatFromURL(url.url());
    if (url.mediaType() == VRFormatMediaTypePhoto) {
        platform::ErrorRef error;
        data = platform::FileManager::contentsAtPath(url.url(), &error,
                                                     VRAssetManager2::maxImageDataBytes());
        if (!data)
            platform::logf("~~ ASSET: no data for %s: %s", url.url().c_str(),
                           error ? error->localizedDescription().c_str() : "unknown");
        // The type the name gives; Auto's own type (JPEG) would make bytes of a type no
        // format of ours names come out as JPEG at its default compression, not the setting's.
        uti = format.type() == VRFormatTypeAuto
                  ? TypeIdentifiers::preferredIdentifierForExtension(
                        platform::FileManager::pathExtension(url.url()))
                  : format.UTI();
    } else {
        platform::logf("~~ ASSET: no image data for %s of media type %llu", url.url().c_str(),
                       static_cast<unsigned long long>(url.mediaType()));
    }
    asset.stopAccessing(accessID);
    return {std::move(data), std::move(uti)};
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
    queue->addOperationWithBlock([asset, completion = std::move(completion)] {
        if (!asset) return completion(std::nullopt, "");
        const auto& object = asset->object();
        if (auto* data = dynamic_cast<const VRDataAsset*>(object.get()))
            return completion(data->data(), data->typeIdentifier());
        if (auto* url = dynamic_cast<const VRURLAsset*>(object.get())) {
            auto [bytes, uti] = urlAssetData(*asset, *url);
            return completion(std::move(bytes), std::move(uti));
        }
        completion(std::nullopt, "");
    });
}

std::optional<std::string> VRAssetManager2::urlForVideoAsset(const VRAssetRef& asset) const {
    auto* url = asset ? dynamic_cast<const VRURLAsset*>(asset->object().get()) : nullptr;
    if (!url) return std::nullopt;
    if (const auto& paired = url->pairedVideoURL()) {
        const std::string stem = platform::FileManager::stringByDeletingPathExtension(
            platform::FileManager::lastPathComponent(url->url()));
        return platform::FileManager::stringByAppendingPathComponent(
            VRFileStorage::ownTemporaryFolder(VXHelper::temporaryDirectory()),
            stem + "-livePhotoVideo." + platform::FileManager::pathExtension(*paired));
    }
    if (url->mediaType() == VRFormatMediaTypeVideo) return url->url();
    return std::nullopt;
}

void VRAssetManager2::requestAVAssetForAsset(const VRAssetRef& asset,
                                             const AVAssetCompletion& completion) {
    if (!completion) return;
    const auto path = urlForVideoAsset(asset);
    if (!path) return completion(nullptr);
    auto* url = dynamic_cast<const VRURLAsset*>(asset->object().get());
    const std::string& movie = url->pairedVideoURL().value_or(url->url());
    if (!platform::FileManager::fileExistsAtPath(movie)) {
        platform::logf("~~ ASSET: no movie at %s", movie.c_str());
        return completion(nullptr);
    }
    if (const auto& paired = url->pairedVideoURL()) {
        using platform::FileManager;
        FileManager::removeItemAtPath(*path);
        platform::ErrorRef error;
        if (!FileManager::linkItemAtPath(*paired, *path, &error) &&
            !FileManager::copyItemAtPath(*paired, *path, &error)) {
            platform::logf("~~ ASSET: no movie for the Live Photo %s: %s", url->url().c_str(),
                           error ? error->localizedDescription().c_str() : "unknown");
            return completion(nullptr);
        }
    }
    completion(AVAsset::assetWithURL(*path));
}
