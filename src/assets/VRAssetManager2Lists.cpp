// Collections and the assets in them, identifiers back to assets, and the stores' sweeps.
#include <algorithm>
#include <filesystem>

#include "assets/VRAssetManager2.h"
#include "assets/VRAssetManager2Internal.h"
#include "assets/VRDataAsset.h"
#include "assets/VRLibraryAsset.h"
#include "assets/VRURLAsset.h"
#include "platform/Dispatch.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "storage/VXHelperFiles.h"

using namespace platform;
using namespace vr_asset_manager;

namespace {

platform::PHAssetCollection recentsCollection(std::size_t count) {
    return {VRRecentsCollectionIdentifier, VRRecentsCollectionTitle, count};
}

std::vector<VRAssetRef> wrap(std::vector<PHAsset> assets, std::uint64_t flag) {
    std::vector<VRAssetRef> wrapped;
    wrapped.reserve(assets.size());
    for (auto& asset : assets)
        wrapped.push_back(
            VRAsset::assetWithObject(VRLibraryAsset::assetWithPhotoAsset(std::move(asset)), flag));
    return wrapped;
}

// Files of the unsaved items, newest first (by modification time, then name).
std::vector<std::string> unsavedItemPaths() {
    namespace fs = std::filesystem;
    std::vector<std::pair<fs::file_time_type, std::string>> items;
    std::error_code error;
    for (const auto& entry :
         fs::directory_iterator(VRAssetManager2::unsavedItemsDirectory(), error)) {
        std::error_code ignored;
        if (!entry.is_regular_file(ignored)) continue;
        items.emplace_back(entry.last_write_time(ignored), entry.path().string());
    }
    std::sort(items.begin(), items.end(), [](const auto& a, const auto& b) {
        return a.first != b.first ? a.first > b.first : a.second < b.second;
    });
    std::vector<std::string> paths;
    for (auto& [time, path] : items) paths.push_back(std::move(path));
    return paths;
}

bool sameRecord(const PHAsset& a, const PHAsset& b) {
    return a.modificationDate == b.modificationDate && a.resources == b.resources &&
           a.pixelWidth == b.pixelWidth && a.pixelHeight == b.pixelHeight &&
           a.mediaSubtypes == b.mediaSubtypes;
}

}  // namespace

std::string VRAssetManager2::unsavedItemsDirectory() {
    return FileManager::stringByAppendingPathComponent(VXHelper::documentDirectory(),
                                                       VRUnsavedItemsDirectoryName);
}

std::vector<VRCollection> VRAssetManager2::collectionsExcludingRecents(bool excludeRecents) {
    std::vector<VRCollection> collections;
    auto library = photoLibrary();
    if (!library) return collections;
    const PHFetchOptions options = optionsForAssetReqest();
    if (!excludeRecents) {
        const std::size_t count = library->fetchAssetsWithOptions(options).count();
        collections.push_back(VRCollection::collectionWithObject(recentsCollection(count), count));
    }
    for (auto& album : library->fetchAlbums().objects()) {
        const std::size_t count =
            library->fetchAssetsInAssetCollection(album.localIdentifier, options).count();
        album.estimatedAssetCount = count;
        collections.push_back(VRCollection::collectionWithObject(std::move(album), count));
    }
    return collections;
}

std::vector<VRCollection> VRAssetManager2::collectionsWithTypes(
    const std::vector<VRCollectionType>& types) {
    std::vector<VRCollection> collections;
    for (VRCollectionType type : types) {
        switch (type) {
            case VRCollectionTypeAssetCollection: {
                auto albums = collectionsExcludingRecents(false);
                collections.insert(collections.end(), albums.begin(), albums.end());
                break;
            }
            case VRCollectionTypeUnsaved:
                collections.push_back(VRCollection::collectionWithObject(
                    VRUnsaved::collection(), unsavedItemPaths().size()));
                break;
            case VRCollectionTypeClipboard:
                collections.push_back(
                    VRCollection::collectionWithObject(VRClipboard::clipboard(), 0));
                break;
            case VRCollectionTypeTutorial:
                collections.push_back(
                    VRCollection::collectionWithObject(VRTutorialCollection::collection(), 0));
                break;
            default:
                break;
        }
    }
    return collections;
}

std::optional<VRCollection> VRAssetManager2::collectionWithType(
    VRCollectionType type, const std::string& localIdentifier) {
    if (type == VRCollectionTypeAssetCollection) {
        for (auto& collection : collectionsExcludingRecents(false))
            if (collection.objectIdentifier() == localIdentifier) return collection;
        return std::nullopt;
    }
    for (auto& collection : collectionsWithTypes({type}))
        if (collection.objectIdentifier() == localIdentifier) return collection;
    return std::nullopt;
}

bool VRAssetManager2::isCameraRoll(const VRCollection& collection) {
    return collection.type() == VRCollectionTypeAssetCollection &&
           collection.objectIdentifier() == VRRecentsCollectionIdentifier;
}

std::vector<VRAssetRef> VRAssetManager2::assetsForCollection(
    const VRCollection& collection,
    std::map<VRFormatMediaType, std::set<std::pair<double, double>>>* shapes) {
    std::vector<VRAssetRef> assets;
    if (collection.type() == VRCollectionTypeUnsaved) {
        for (const auto& path : unsavedItemPaths())
            if (auto asset =
                    VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(path), VRAssetFlagUnsaved))
                assets.push_back(std::move(asset));
    } else if (auto* album = collection.assetCollection()) {
        auto library = photoLibrary();
        if (!library) return assets;
        PHFetchOptions options = optionsForAssetReqest();
        options.newestFirst = true;
        assets = wrap(
            isCameraRoll(collection)
                ? library->fetchAssetsWithOptions(options).objects()
                : library->fetchAssetsInAssetCollection(album->localIdentifier, options).objects(),
            0);
    }
    if (shapes) {
        for (const auto& asset : assets) {
            const CGSize size = asset->pixelSize();
            (*shapes)[asset->mediaType()].insert({size.width, size.height});
        }
    }
    return assets;
}

VRAssetRef VRAssetManager2::keyAssetForCollection(const VRCollection& collection,
                                                  std::size_t* count) {
    auto assets = assetsForCollection(collection, nullptr);
    if (count) *count = assets.size();
    return assets.empty() ? nullptr : assets.front();
}

std::vector<VRAssetRef> VRAssetManager2::assetsWithAssetIdentifiers(
    const std::vector<VRAssetIdentifier>& identifiers) {
    std::vector<std::string> libraryIdentifiers;
    for (const auto& identifier : identifiers)
        if (identifier.type() == VRAssetIdentifierTypeLibrary)
            libraryIdentifiers.push_back(identifier.objectIdentifier());
    std::map<std::string, PHAsset> found;
    if (!libraryIdentifiers.empty()) {
        if (auto library = photoLibrary()) {
            for (auto& asset :
                 library->fetchAssetsWithLocalIdentifiers(libraryIdentifiers, {}).objects())
                found.emplace(asset.localIdentifier, std::move(asset));
        }
    }
    std::vector<VRAssetRef> assets;
    for (const auto& identifier : identifiers) {
        std::shared_ptr<VRAssetObject> object;
        switch (identifier.type()) {
            case VRAssetIdentifierTypeLibrary: {
                auto it = found.find(identifier.objectIdentifier());
                if (it != found.end()) object = VRLibraryAsset::assetWithPhotoAsset(it->second);
                break;
            }
            case VRAssetIdentifierTypeURL:
                if (FileManager::fileExistsAtPath(identifier.objectIdentifier()))
                    object = VRURLAsset::urlAssetWithUniqueID(identifier.objectIdentifier());
                break;
            case VRAssetIdentifierTypeData:
                object = VRDataAsset::dataAssetWithUniqueID(identifier.objectIdentifier());
                break;
            default:
                // Local and file assets are rebuilt by their own stores.
                break;
        }
        if (auto asset = object ? VRAsset::assetWithObject(object, identifier.flag()) : nullptr)
            assets.push_back(std::move(asset));
    }
    return assets;
}

VRReloadedAssets VRAssetManager2::reloadAssets(const std::vector<VRAssetRef>& assets) {
    VRReloadedAssets result;
    auto library = photoLibrary();
    if (library) {
        if (auto error = library->rescan())
            logf("~~ ASSET: the library's rescan failed: %s",
                 error->localizedDescription().c_str());
    }
    std::vector<std::string> identifiers;
    for (const auto& asset : assets)
        if (auto* photo = libraryAssetOf(asset)) identifiers.push_back(photo->localIdentifier());
    std::map<std::string, PHAsset> fresh;
    if (library && !identifiers.empty())
        for (auto& asset : library->fetchAssetsWithLocalIdentifiers(identifiers, {}).objects())
            fresh.emplace(asset.localIdentifier, std::move(asset));
    for (const auto& asset : assets) {
        auto* photo = libraryAssetOf(asset);
        if (!photo) {
            result.assets.push_back(asset);
            continue;
        }
        auto it = fresh.find(photo->localIdentifier());
        if (it == fresh.end()) {
            result.vanished.push_back(asset);
            continue;
        }
        if (sameRecord(it->second, photo->photoAsset())) {
            result.assets.push_back(asset);
            continue;
        }
        auto renewed = VRAsset::assetWithObject(VRLibraryAsset::assetWithPhotoAsset(it->second),
                                                asset->flag());
        result.assets.push_back(renewed);
        result.modified.push_back(renewed);
    }
    return result;
}

std::vector<VRAssetRef> VRAssetManager2::sampleAssets(std::size_t count) {
    auto library = photoLibrary();
    if (!library || count == 0) return {};
    PHFetchOptions options;
    options.mediaTypes = {PHAssetMediaTypeImage};
    options.newestFirst = true;
    options.fetchLimit = count;
    return wrap(library->fetchAssetsWithOptions(options).objects(), 0);
}

void VRAssetManager2::clearCachedDataForAllAssetsExceptAssets(
    const std::vector<VRAssetRef>& assets) {
    std::set<std::string> kept;
    for (const auto& asset : assets)
        if (auto* data = asset ? dynamic_cast<const VRDataAsset*>(asset->object().get()) : nullptr)
            kept.insert(data->path());
    const std::string folder = FileManager::stringByAppendingPathComponent(
        VXHelper::documentDirectory(), VRDataAssetDirectoryName);
    DispatchQueue::global(DispatchQoS::utility).async([kept, folder] {
        auto names = FileManager::contentsOfDirectoryAtPath(folder);
        if (!names) return;
        for (const auto& name : *names) {
            const std::string path = FileManager::stringByAppendingPathComponent(folder, name);
            // Thumbnails are left alone: they are small and rebuilt from nothing else.
            if (name.size() >= 5 && name.compare(name.size() - 5, 5, "-thmb") == 0) continue;
            if (kept.count(path)) continue;
            if (FileManager::removeItemAtPath(path))
                logf("~~ Removed data for %s", path.c_str());
            else
                logf("~~ Unable to remove cached data for path %s", path.c_str());
        }
    });
}
