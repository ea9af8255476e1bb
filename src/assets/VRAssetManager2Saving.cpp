// The saving half of the asset manager: results into numbered albums with their originals
// linked beside, items into albums, camera captures with their listeners, the store of unsaved
// items, and the permission requests.
#include <regex>
#include <set>

#include "assets/VRAssetManager2.h"
#include "assets/VRLibraryAsset.h"
#include "assets/VRLocalAsset.h"
#include "assets/VRURLAsset.h"
#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "storage/VRSettings.h"

using namespace platform;

namespace {

constexpr std::size_t kMaxAlbumNameLength = 255;

ErrorRef savingError(const std::string& why) {
    return Error::errorWithDomain(PHPhotosErrorDomain, PHPhotosErrorInvalidResource,
                                  {{NSLocalizedDescriptionKey, why}});
}

std::string describe(const ErrorRef& error) {
    return error ? error->localizedDescription() : "unknown";
}

// One creation: a photo, a photo with its paired movie, or a movie.
PHChangeRequest creationRequest(const VRAssetResource& resource, VRFormatMediaType mediaType,
                                bool paired, const std::string& album) {
    PHChangeRequest request;
    request.albumTitle = album;
    if (mediaType == VRFormatMediaTypePhoto) {
        request.resources.push_back({PHAssetResourceTypePhoto, resource.url, ""});
        if (paired && resource.pairedURL)
            request.resources.push_back({PHAssetResourceTypePairedVideo, *resource.pairedURL, ""});
    } else {
        request.resources.push_back({PHAssetResourceTypeVideo, resource.url, ""});
    }
    return request;
}

// The file of an asset that is not in the library, as a resource to save.
std::optional<VRAssetResource> fileResourceOfAsset(const VRAsset& asset) {
    const auto* object = asset.object().get();
    if (const auto* url = dynamic_cast<const VRURLAsset*>(object)) {
        if (url->pairedVideoURL())
            return VRAssetResource::resourceWithURL(url->url(), *url->pairedVideoURL(),
                                                    url->mediaType());
        return VRAssetResource::resourceWithURL(url->url(), url->mediaType());
    }
    if (const auto* local = dynamic_cast<const VRLocalAsset*>(object))
        return VRAssetResource::resourceWithURL(local->url(), local->mediaType());
    return std::nullopt;
}

}  // namespace

std::string VRAssetManager2::sourceAlbumName() const {
    std::lock_guard lock(_savingLock);
    return _sourceAlbumName;
}

void VRAssetManager2::setSourceAlbumName(std::string name) {
    std::lock_guard lock(_savingLock);
    _sourceAlbumName = std::move(name);
}

std::string VRAssetManager2::autoSaveAlbumName() const {
    std::lock_guard lock(_savingLock);
    return _autoSaveAlbumName;
}

void VRAssetManager2::setAutoSaveAlbumName(std::string name) {
    std::lock_guard lock(_savingLock);
    _autoSaveAlbumName = std::move(name);
}

OperationQueue& VRAssetManager2::savingQueue() {
    std::call_once(_savingQueueMade, [this] {
        _savingQueue = std::make_unique<OperationQueue>();
        _savingQueue->setName("savingQueue");
        _savingQueue->setMaxConcurrentOperationCount(1);
    });
    return *_savingQueue;
}

std::string VRAssetManager2::requestNextAlbumNameFor(const std::string& name) {
    // The repeated group keeps only its last repetition: "Album 19" gives 9, not 19.
    static const std::regex numbered(R"(^(.*)\s(\d)+$)");
    std::string stem = name;
    long number = 1;
    std::smatch match;
    // The regex engine recurses per character; a name longer than a folder name can be is no
    // album's name, so it is taken whole.
    if (name.size() <= kMaxAlbumNameLength && std::regex_match(name, match, numbered) &&
        match.size() == 3) {
        stem = match[1].str();
        number = std::stol(match[2].str());
        if (number == 0) number = 1;
    }
    auto library = photoLibrary();
    for (long n = number + 1;; ++n) {
        std::string candidate = stem + " " + std::to_string(n);
        if (!library || !library->albumWithTitle(candidate)) return candidate;
    }
}

std::optional<PHAssetCollection> VRAssetManager2::_albumWithName(const std::string& name) {
    auto library = photoLibrary();
    if (!library || name.empty()) return std::nullopt;
    return library->albumWithTitle(name);
}

bool VRAssetManager2::_isAlbumWithNameEnabled(const std::string& name) const {
    if (name == VRAlbumNameOriginals) return VRSettings::isAlbumForOriginalsEnabled();
    if (name == VRAlbumNamePhotos || name == VRAlbumNameVideos)
        return VRSettings::areAlbumsForResultsEnabled();
    return false;
}

std::shared_ptr<PhotoLibrary> VRAssetManager2::_libraryForSaving() {
    auto library = photoLibrary();
    // Asking for access makes the library's folder when it is missing; a refusal is reported
    // by the change itself.
    if (library) library->requestAuthorizationForAccessLevel(PHAccessLevelAddOnly);
    return library;
}

std::pair<std::string, bool> VRAssetManager2::_albumNameForSaving(
    VRFormatMediaType mediaType) const {
    std::lock_guard lock(_savingLock);
    if (!_autoSaveAlbumName.empty()) return {_autoSaveAlbumName, false};
    if (!_sourceAlbumName.empty()) return {_sourceAlbumName, true};
    return {mediaType == VRFormatMediaTypePhoto ? VRAlbumNamePhotos : VRAlbumNameVideos, true};
}

void VRAssetManager2::saveToPhotoLibrary(const std::optional<VRAssetResource>& resource,
                                         const VRAssetRef& originalAsset,
                                         SaveCompletion completionOnInternalThread) {
    auto complete = [completion = std::move(completionOnInternalThread)](
                        bool success, const std::string& localIdentifier) {
        if (completion) completion(success, localIdentifier);
    };
    if (!resource || resource->url.empty()) {
        logf("~~ ASSET: nothing to save");
        return complete(false, "");
    }
    const bool isPhoto = resource->mediaType == VRFormatMediaTypePhoto;
    const bool originalsEnabled = VRSettings::isAlbumForOriginalsEnabled();
    const auto choice = _albumNameForSaving(resource->mediaType);
    std::string album = choice.first;
    const bool numbered = choice.second;
    // The program's own album, switched off, leaves the result in the library's root.
    const bool ownAlbum = album == VRAlbumNamePhotos || album == VRAlbumNameVideos;
    if (ownAlbum && !_isAlbumWithNameEnabled(album)) album.clear();
    std::string originalIdentifier;
    if (originalAsset)
        if (auto* library = dynamic_cast<const VRLibraryAsset*>(originalAsset->object().get()))
            originalIdentifier = library->localIdentifier();

    savingQueue().addOperationWithBlock([this, resource = *resource, isPhoto, originalsEnabled,
                                         numbered, album, originalIdentifier, complete] {
        auto library = _libraryForSaving();
        if (!library) return complete(false, "");
        std::string title = album;
        if (!title.empty()) {
            // A missing album is made by the change itself.
            if (numbered)
                title = requestNextAlbumNameFor(title);
            else if (!_albumWithName(title))
                logf("~~ ASSET: album \"%s\" is made for the result", title.c_str());
        }
        PHChangeRequest request =
            creationRequest(resource, isPhoto ? VRFormatMediaTypePhoto : VRFormatMediaTypeVideo,
                            resource.pairedURL.has_value(), title);
        if (originalsEnabled && !originalIdentifier.empty()) {
            if (!_albumWithName(VRAlbumNameOriginals))
                logf("~~ ASSET: album \"%s\" is made for the originals", VRAlbumNameOriginals);
            request.albumAdditions.push_back({VRAlbumNameOriginals, {originalIdentifier}});
        }
        PHChangeResult result = library->performChangesAndWait(request);
        if (result.error) {
            logf("~~ ASSET: saving %s failed: %s", resource.url.c_str(),
                 describe(result.error).c_str());
            return complete(false, "");
        }
        // The later results of the batch go into the album this one opened.
        if (numbered && !title.empty()) {
            std::lock_guard lock(_savingLock);
            if (_autoSaveAlbumName.empty()) _autoSaveAlbumName = title;
        }
        complete(true, result.placeholderLocalIdentifier);
    });
}

PHChangeResult VRAssetManager2::_createAsset(const VRAssetResource& resource,
                                             VRFormatMediaType mediaType, bool paired,
                                             const std::string& toAppAlbum) {
    auto library = _libraryForSaving();
    PHChangeResult result;
    if (library)
        result = library->performChangesAndWait(
            creationRequest(resource, mediaType, paired, toAppAlbum));
    else
        result.error = savingError("There is no photo library");
    if (result.error)
        logf("~~ ASSET: saving %s failed: %s", resource.url.c_str(),
             describe(result.error).c_str());
    return result;
}

void VRAssetManager2::_saveResource(const VRAssetResource& resource, VRFormatMediaType mediaType,
                                    bool paired, const std::string& toAppAlbum,
                                    const SaveCompletion& completion) {
    const PHChangeResult result = _createAsset(resource, mediaType, paired, toAppAlbum);
    if (completion)
        completion(!result.error, result.error ? "" : result.placeholderLocalIdentifier);
}

void VRAssetManager2::_saveItemsWithResources(const std::vector<VRAssetResource>& resources,
                                              const std::string& toAppAlbum,
                                              std::vector<std::string> addedLocalIdentifiers,
                                              const AlbumCompletion& completion) {
    ErrorRef firstError;
    for (const auto& resource : resources) {
        const PHChangeResult result =
            _createAsset(resource, resource.mediaType, resource.pairedURL.has_value(), toAppAlbum);
        if (!result.error)
            addedLocalIdentifiers.push_back(result.placeholderLocalIdentifier);
        else if (!firstError)
            firstError = result.error;
    }
    if (completion) completion(!firstError, std::move(addedLocalIdentifiers), firstError);
}

void VRAssetManager2::_addAssets(const std::vector<VRAssetRef>& assets,
                                 const std::string& toAppAlbum,
                                 std::vector<std::string> addedLocalIdentifiers,
                                 const AlbumCompletion& completion) {
    ErrorRef firstError;
    std::vector<std::string> libraryIdentifiers;
    std::vector<VRAssetResource> files;
    for (const auto& asset : assets) {
        if (!asset) continue;
        if (auto* library = dynamic_cast<const VRLibraryAsset*>(asset->object().get())) {
            libraryIdentifiers.push_back(library->localIdentifier());
        } else if (auto resource = fileResourceOfAsset(*asset)) {
            files.push_back(*resource);
        } else {
            logf("~~ ASSET: an asset of kind %llu can't go into an album",
                 static_cast<unsigned long long>(asset->type()));
            if (!firstError) firstError = savingError("An asset of this kind can't be saved");
        }
    }
    if (!libraryIdentifiers.empty()) {
        auto library = _libraryForSaving();
        PHChangeResult result;
        if (library) result = library->performChangesAndWait({toAppAlbum, {}, libraryIdentifiers});
        if (!library) result.error = savingError("There is no photo library");
        if (result.error) {
            logf("~~ ASSET: adding to \"%s\" failed: %s", toAppAlbum.c_str(),
                 describe(result.error).c_str());
            if (!firstError) firstError = result.error;
        } else {
            addedLocalIdentifiers.insert(addedLocalIdentifiers.end(), libraryIdentifiers.begin(),
                                         libraryIdentifiers.end());
        }
    }
    _saveItemsWithResources(files, toAppAlbum, std::move(addedLocalIdentifiers),
                            [&](bool, std::vector<std::string> identifiers, const ErrorRef& error) {
                                if (!firstError) firstError = error;
                                if (completion)
                                    completion(!firstError, std::move(identifiers), firstError);
                            });
}

void VRAssetManager2::saveToAlbum(const std::string& album, std::vector<VRAssetResource> resources,
                                  AlbumCompletion completion) {
    savingQueue().addOperationWithBlock(
        [this, album, resources = std::move(resources), completion = std::move(completion)] {
            _saveItemsWithResources(resources, album, {}, completion);
        });
}

void VRAssetManager2::addToAlbum(const std::string& album, std::vector<VRAssetRef> assets,
                                 AlbumCompletion completion) {
    savingQueue().addOperationWithBlock(
        [this, album, assets = std::move(assets), completion = std::move(completion)] {
            _addAssets(assets, album, {}, completion);
        });
}

bool VRAssetManager2::cameraAssetSaving() const {
    std::lock_guard lock(_savingLock);
    return _cameraAssetSaving;
}

std::vector<VRAssetRef> VRAssetManager2::cameraAssets() const {
    std::lock_guard lock(_savingLock);
    return _cameraAssets;
}

void VRAssetManager2::addListenerWithKey(const std::string& key, CameraListenerBlock beginningBlock,
                                         CameraListenerBlock completionBlock) {
    std::lock_guard lock(_savingLock);
    _beginningBlocks[key] = std::move(beginningBlock);
    _competionBlocks[key] = std::move(completionBlock);
}

void VRAssetManager2::removeListenerWithKey(const std::string& key) {
    std::lock_guard lock(_savingLock);
    _beginningBlocks.erase(key);
    _competionBlocks.erase(key);
}

void VRAssetManager2::_notifyCameraListeners(bool beginning) {
    std::vector<CameraListenerBlock> blocks;
    {
        // Called outside the lock: a listener may add or remove listeners.
        std::lock_guard lock(_savingLock);
        for (const auto& [key, block] : beginning ? _beginningBlocks : _competionBlocks)
            if (block) blocks.push_back(block);
    }
    for (const auto& block : blocks) block();
}

void VRAssetManager2::saveImageFromCamera(const std::string& imagePath,
                                          CameraErrorBlock errorBlock) {
    {
        std::lock_guard lock(_savingLock);
        _cameraAssetSaving = true;
    }
    _notifyCameraListeners(true);
    auto finish = [this, errorBlock = std::move(errorBlock)](const ErrorRef& error,
                                                             VRAssetRef asset) {
        {
            std::lock_guard lock(_savingLock);
            if (asset) _cameraAssets.push_back(std::move(asset));
            _cameraAssetSaving = false;
        }
        if (error) {
            logf("~~ ASSET: the camera's picture was not saved: %s", describe(error).c_str());
            if (errorBlock) errorBlock(error);
        }
        _notifyCameraListeners(false);
    };
    auto library = _libraryForSaving();
    if (!library) return finish(savingError("There is no photo library"), nullptr);
    const VRFormatMediaType mediaType = VRURLAsset::mediaTypeForPath(imagePath);
    PHChangeRequest request;
    request.resources.push_back(
        {mediaType == VRFormatMediaTypeVideo ? PHAssetResourceTypeVideo : PHAssetResourceTypePhoto,
         imagePath, ""});
    library->performChanges(std::move(request), [this, finish](const PHChangeResult& result) {
        if (result.error) return finish(result.error, nullptr);
        VRAssetRef asset = assetWithPhotoAssetIdentifier(result.placeholderLocalIdentifier);
        finish(asset ? nullptr : savingError("The saved picture is gone"), asset);
    });
}

void VRAssetManager2::syncUnsavedAssets(const std::vector<VRAssetRef>& assets) {
    std::set<std::string> kept;
    for (const auto& asset : assets) {
        if (!asset || asset->type() != VRAssetIdentifierTypeURL || asset->flag() != 2) continue;
        if (auto* url = dynamic_cast<const VRURLAsset*>(asset->object().get()))
            kept.insert(FileManager::lastPathComponent(url->url()));
    }
    const std::string folder = unsavedItemsDirectory();
    const auto names = FileManager::contentsOfDirectoryAtPath(folder);
    if (!names) return;
    for (const auto& name : *names) {
        const std::string path = FileManager::stringByAppendingPathComponent(folder, name);
        bool isDirectory = false;
        if (kept.count(name) || !FileManager::fileExistsAtPath(path, &isDirectory) || isDirectory)
            continue;
        ErrorRef error;
        if (!FileManager::removeItemAtPath(path, &error))
            logf("~~ ASSET: %s stays: %s", path.c_str(), describe(error).c_str());
    }
}

void VRAssetManager2::_requestPermission(PHAccessLevel level, PermissionCompletion completion) {
    DispatchQueue::global().async([this, level, completion = std::move(completion)] {
        auto library = photoLibrary();
        const bool authorized = library && library->requestAuthorizationForAccessLevel(level) ==
                                               PHAuthorizationStatusAuthorized;
        if (completion)
            DispatchQueue::main().async([completion, authorized] { completion(authorized); });
    });
}

void VRAssetManager2::requestPhotoAccessPermissionWithCompletion(
    PermissionCompletion completionOnMainThread) {
    _requestPermission(PHAccessLevelReadWrite, std::move(completionOnMainThread));
}

void VRAssetManager2::requestPhotoAccessToSavePermissionWithCompletion(
    PermissionCompletion completionOnMainThread) {
    _requestPermission(PHAccessLevelAddOnly, std::move(completionOnMainThread));
}
