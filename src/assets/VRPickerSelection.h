// What the home flow makes of the photo picker's answer: which picked items the library shows
// (used from there) and which must be imported as copies, and the message shown when some of
// them could not be loaded.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "assets/VRAssetList.h"
#include "assets/VRImportManager.h"
#include "platform/PhotoLibrary.h"

// One item as the picker returns it.
struct VRPickerResult {
    std::string itemProvider;  // the path of the picked file
    std::optional<std::string> assetIdentifier;
};

// The library's answer for identifiers: the assets it finds among them.
using VRFetchAssetsWithLocalIdentifiers =
    std::function<platform::PHFetchResult<platform::PHAsset>(const std::vector<std::string>&)>;

// One import item per result, in order. An item whose asset the library finds is `accessable`
// with that asset as its `photoAsset` (made by `wrapper`, flag 0); one the library doesn't
// show is not; one without an asset identifier gets a new UUID string as its identifier and
// isn't accessable either. The library is asked once, for all identifiers.
std::vector<VRImportItem> VRImportItemsForPickerResults(
    const std::vector<VRPickerResult>& results, const VRFetchAssetsWithLocalIdentifiers& fetch,
    const VRAssetList::LibraryAssetWrapper& wrapper);

// The same against the asset manager's photo library; with no library no item is accessable.
std::vector<VRImportItem> VRImportItemsForPickerResults(const std::vector<VRPickerResult>& results);

struct VRLoadingErrorMessage {
    std::string title;
    std::string message;
    // "Continue" goes on with what loaded; absent when nothing did.
    std::optional<std::string> button;
};

// The "Loading Error" message when fewer than `total` of the picked items loaded; nothing when
// all did.
std::optional<VRLoadingErrorMessage> VRLoadingErrorForLoadedCount(std::size_t loaded,
                                                                  std::size_t total);
