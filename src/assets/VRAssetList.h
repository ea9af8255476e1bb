// An ordered list of assets by index: either a fetch result of the library, shown newest first,
// or an array of assets. The library browser and the batch run address their items through it.
// Not locked: each list belongs to one thread's flow.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <vector>

#include "assets/VRAsset.h"
#include "assets/VRLibraryAsset.h"
#include "platform/PhotoLibrary.h"

class VRAssetList {
  public:
    // The platform's not-found index, 2^63 - 1.
    static constexpr std::size_t NSNotFound = 0x7FFFFFFFFFFFFFFF;

    // Wraps one library asset as a VRAsset of kind 1 with the list's flag.
    using LibraryAssetWrapper =
        std::function<VRAssetRef(const platform::PHAsset& asset, std::uint64_t flag)>;

    // initWithFetchResult:flag:. Reversed, so that index 0 is the fetch result's last (newest)
    // object; every asset made from it carries `flag`. Logs "~~~FETCH %d" with the count.
    VRAssetList(platform::PHFetchResult<platform::PHAsset> fetchResult, std::uint64_t flag,
                LibraryAssetWrapper wrapper = VRWrapLibraryAsset);
    // initWithArray:. In the array's order with flag 0. Logs "~~~ARRAY %d" with the count.
    explicit VRAssetList(std::vector<VRAssetRef> assets);

    std::size_t count() const { return _count; }
    std::uint64_t assetFlag() const { return _assetFlag; }
    bool reversed() const { return _reversed; }
    bool isFetchResult() const { return _fetch != nullptr; }

    // Null at or past the end.
    VRAssetRef assetAtIndex(std::size_t index) const;
    // The list index of an equal asset, NSNotFound when absent. A fetch result can hold only
    // library assets.
    std::size_t indexOfAsset(const VRAsset& asset) const;
    // The newest item of a fetch result, the last element of an array; null when empty.
    VRAssetRef lastAsset() const;
    // Arrays only: the elements from `index` on; empty for a fetch result or an index past the
    // end.
    std::vector<VRAssetRef> assetsStartingIndex(std::size_t index) const;
    // The fetch result's index of a list index (the reversal is its own inverse).
    std::size_t indexForPhotoAssetAtIndex(std::size_t index) const { return _indexFunc(index); }
    // The library assets at those fetch-result indexes, skipping those past the end; empty for
    // an array.
    std::vector<platform::PHAsset> photoAssetsAtPhotoIndexes(
        const std::set<std::size_t>& indexes) const;
    // Every asset in list order.
    std::vector<VRAssetRef> allAssets() const;

    // Changes of the array form, keeping the count in step. A fetch result is read-only and an
    // index past the end changes nothing.
    void replaceAssetAtIndex(std::size_t index, VRAssetRef asset);
    void removeAssetAtIndex(std::size_t index);
    void removeAssetsAtIndexes(const std::set<std::size_t>& indexes);
    void addAssets(const std::vector<VRAssetRef>& assets);

  private:
    VRAssetRef _wrap(const platform::PHAsset* asset) const;

    std::size_t _count = 0;
    // One of the two collections: the fetch result (shared, read-only) or the array.
    std::shared_ptr<const platform::PHFetchResult<platform::PHAsset>> _fetch;
    std::vector<VRAssetRef> _array;
    std::uint64_t _assetFlag = 0;
    std::function<std::size_t(std::size_t)> _indexFunc;
    bool _reversed = false;
    LibraryAssetWrapper _wrapper;
};
