#include "assets/VRPickerSelection.h"

#include "assets/VRAssetManager2.h"

#include "platform/UUID.h"

std::vector<VRImportItem> VRImportItemsForPickerResults(
    const std::vector<VRPickerResult>& results, const VRFetchAssetsWithLocalIdentifiers& fetch,
    const VRAssetList::LibraryAssetWrapper& wrapper) {
    std::vector<std::string> identifiers;
    for (const auto& result : results)
        if (result.assetIdentifier) identifiers.push_back(*result.assetIdentifier);
    const auto found = identifiers.empty() || !fetch ? platform::PHFetchResult<platform::PHAsset>()
                                                     : fetch(identifiers);

    std::vector<VRImportItem> items;
    items.reserve(results.size());
    for (const auto& result : results) {
        VRImportItem item;
        item.itemProvider = result.itemProvider;
        if (!result.assetIdentifier) {
            item.identifier = platform::UUIDString();
        } else {
            item.identifier = *result.assetIdentifier;
            const platform::PHAsset* asset =
                found.objectAtIndex(found.indexOfObject(*result.assetIdentifier));
            if (asset && wrapper) item.photoAsset = wrapper(*asset, 0);
            item.accessable = item.photoAsset != nullptr;
        }
        items.push_back(std::move(item));
    }
    return items;
}

std::optional<VRLoadingErrorMessage> VRLoadingErrorForLoadedCount(std::size_t loaded,
                                                                  std::size_t total) {
    if (loaded >= total) return std::nullopt;
    if (loaded > 0)
        return VRLoadingErrorMessage{"Loading Error",
                                     "Some selected media could not be loaded. Providing limited "
                                     "or full access to the media may resolve the issue.",
                                     "Continue"};
    return VRLoadingErrorMessage{"Loading Error",
                                 "Unable to load private media. Please provide limited or full "
                                 "access to the selected media and try again.",
                                 std::nullopt};
}

std::vector<VRImportItem> VRImportItemsForPickerResults(
    const std::vector<VRPickerResult>& results) {
    auto library = VRAssetManager2::defaultManager().photoLibrary();
    return VRImportItemsForPickerResults(
        results,
        [&library](const std::vector<std::string>& identifiers) {
            return library ? library->fetchAssetsWithLocalIdentifiers(identifiers, {})
                           : platform::PHFetchResult<platform::PHAsset>();
        },
        VRWrapLibraryAsset);
}
