// Movies and library assets: a frame as image bytes, a library asset's movie, file facts and
// the cancelling of data requests.
#include <filesystem>

#include "assets/VRAssetManager2.h"
#include "assets/VRAssetManager2Internal.h"
#include "assets/VRLibraryAsset.h"
#include "assets/VRURLAsset.h"
#include "model/TypeIdentifiers.h"
#include "platform/FileManager.h"
#include "platform/ImageDestination.h"
#include "platform/Log.h"
#include "platform/UUID.h"
#include "storage/VRFileStorage.h"
#include "storage/VXHelperFiles.h"

using namespace platform;
using namespace vr_asset_manager;

std::optional<std::vector<std::uint8_t>> VRAssetManager2::imageForAVAsset(const AVAssetRef& movie) {
    auto frame = frameOfMovie(movie);
    if (!frame) return std::nullopt;
    // PNG, lossless: whoever takes these bytes encodes them once more, and a frame already
    // passed through the movie's codec should not lose a second time on the way.
    const std::string folder = VRFileStorage::ownTemporaryFolder(VXHelper::temporaryDirectory());
    FileManager::createDirectoryAtPath(folder, true, nullptr);
    const std::string path =
        FileManager::stringByAppendingPathComponent(folder, "frame-" + UUIDString() + ".png");
    ErrorRef error;
    auto destination = ImageDestination::createWithURL(path, "public.png", 1, &error);
    std::optional<std::vector<std::uint8_t>> bytes;
    if (destination) {
        destination->addImage(*frame, {});
        if (destination->finalize(&error)) bytes = FileManager::contentsAtPath(path, &error);
    }
    FileManager::removeItemAtPath(path);
    if (!bytes)
        logf("~~ ASSET: no image of the frame of %s: %s", movie->URL().c_str(),
             error ? error->localizedDescription().c_str() : "unknown");
    return bytes;
}

void VRAssetManager2::_requestAVAssetForPHAsset(const PHAsset& asset,
                                                const AVAssetCompletion& completion) {
    if (!completion) return;
    auto wrapper = VRAsset::assetWithObject(VRLibraryAsset::assetWithPhotoAsset(asset), 0);
    requestAVAssetForAsset(wrapper, completion);
}

void VRAssetManager2::requestInfoForAsset(const VRAssetRef& asset,
                                          const std::function<void(PlistDictionary)>& completion) {
    if (!completion) return;
    std::optional<std::string> path, paired;
    if (auto* library = libraryAssetOf(asset)) {
        path = library->primaryPath();
        if (library->livePhoto()) paired = library->moviePath();
    } else if (auto* url = urlAssetOf(asset)) {
        path = url->url();
        paired = url->pairedVideoURL();
    }
    PlistDictionary info;
    std::error_code error;
    const auto size = path ? std::filesystem::file_size(*path, error) : 0;
    if (!path || error) return completion(info);
    info["fileName"] = PlistValue(asset->originalFilename());
    info["path"] = PlistValue(*path);
    info["fileSize"] = PlistValue(static_cast<std::int64_t>(size));
    info["uniformTypeIdentifier"] = PlistValue(
        TypeIdentifiers::preferredIdentifierForExtension(FileManager::pathExtension(*path)));
    if (paired) info["pairedPath"] = PlistValue(*paired);
    completion(std::move(info));
}

std::shared_ptr<std::atomic<bool>> VRAssetManager2::_registerRequest(const std::string& key) {
    auto ticket = std::make_shared<std::atomic<bool>>(false);
    std::lock_guard lock(_requestsLock);
    assetsRequests.emplace(key, ticket);
    return ticket;
}

void VRAssetManager2::_finishRequest(const std::string& key,
                                     const std::shared_ptr<std::atomic<bool>>& ticket) {
    std::lock_guard lock(_requestsLock);
    auto [first, last] = assetsRequests.equal_range(key);
    for (auto it = first; it != last; ++it) {
        if (it->second == ticket) {
            assetsRequests.erase(it);
            return;
        }
    }
}

void VRAssetManager2::cancelRequestsForAsset(const VRAssetRef& asset) {
    if (!asset) return;
    std::lock_guard lock(_requestsLock);
    auto [first, last] = assetsRequests.equal_range(asset->objectIdentifier());
    for (auto it = first; it != last; ++it) *it->second = true;
}
