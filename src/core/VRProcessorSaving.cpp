// The saving tail of the processor: a written file becomes a library item or a stored result.
#include "assets/VRAssetManager2.h"
#include "core/VRProcessor.h"
#include "platform/Dispatch.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "results/ResultManager.h"
#include "storage/VRSettings.h"
#include "video/VRVideoResizer2.h"

namespace {

using platform::DispatchQueue;

// The flag of a result kept locally after the library refused it ("Stored locally").
constexpr std::uint64_t kStoredLocallyFlag = 2;

VRErrorRef saveError() {
    return VRError::errorWithCode(VRErrorCode::saveFailed);
}

}  // namespace

void VRProcessor::_clearMainURLForResource(const VRAssetResource& resource) {
    if (resource.url.empty()) return;
    platform::FileManager::removeItemAtPath(resource.url);
    VRVideoResizer2::removeEmptyJobFolderOfOutput(resource.url);
}

void VRProcessor::_clearPairedURLForResource(const VRAssetResource& resource) {
    if (!resource.pairedURL || resource.pairedURL->empty()) return;
    platform::FileManager::removeItemAtPath(*resource.pairedURL);
    VRVideoResizer2::removeEmptyJobFolderOfOutput(*resource.pairedURL);
}

void VRProcessor::_processingCompleteWithResource(const VRAssetResource& resource,
                                                  const VRAssetRef& originalAsset,
                                                  const CompletionOnMainThread& completion) {
    if (!VRSettings::isAutoSaveEnabled())
        return _processingSaveLocallyWithResource(resource, completion);
    _saveItemToPhotoLibraryWithResource(
        resource, originalAsset, [resource, completion](VRAssetRef asset, bool success) {
            if (!success) {
                platform::log("~~ PROCESSOR: the library refused the result: stored locally");
                return _processingSaveLocallyWithResource(
                    resource, [completion](VRAssetRef result, VRErrorRef error) {
                        if (result)
                            result = VRAsset::assetWithObject(result->object(), kStoredLocallyFlag);
                        completion(result, error);
                    });
            }
            // The library holds its own copies now.
            _clearMainURLForResource(resource);
            _clearPairedURLForResource(resource);
            if (!asset) platform::log("~~ PROCESSOR: the saved item can't be fetched back");
            // Queued before the completion, so the result is in the store when the run hears
            // of it.
            if (asset && !asset->objectIdentifier().empty())
                DispatchQueue::main().async([identifier = asset->objectIdentifier()] {
                    ResultManager::shared().addPhotoAssetResultWith(identifier);
                });
            completion(asset, nullptr);
        });
}

void VRProcessor::_saveItemToPhotoLibraryWithResource(const VRAssetResource& resource,
                                                      const VRAssetRef& originalAsset,
                                                      LibrarySaveCompletion completion) {
    if (resource.url.empty()) return completion(nullptr, false);
    VRAssetManager2& manager = VRAssetManager2::defaultManager();
    manager.saveToPhotoLibrary(
        resource, originalAsset,
        [&manager, completion](bool success, const std::string& localIdentifier) {
            VRAssetRef asset;
            if (success && !localIdentifier.empty())
                asset = manager.assetWithPhotoAssetIdentifier(localIdentifier);
            completion(asset, success);
        });
}

void VRProcessor::_processingSaveLocallyWithResource(const VRAssetResource& resource,
                                                     CompletionOnMainThread completion) {
    _clearPairedURLForResource(resource);
    if (resource.url.empty()) return completion(nullptr, saveError());
    DispatchQueue::main().async([resource, completion] {
        ResultManager& store = ResultManager::shared();
        store.addLocalAssetResultWith(resource.url, [&store, resource, completion](
                                                        bool success, std::size_t index) {
            VRAssetRef asset = success ? store.assetAt(static_cast<std::int64_t>(index)) : nullptr;
            // The store moved the file away from the folder its video job wrote it in.
            if (success) VRVideoResizer2::removeEmptyJobFolderOfOutput(resource.url);
            if (asset) return completion(asset, nullptr);
            platform::logf("~~ PROCESSOR: the result store refused %s", resource.url.c_str());
            _clearMainURLForResource(resource);
            completion(nullptr, saveError());
        });
    });
}
