#include "assets/VRAssetList.h"

#include <algorithm>

#include "platform/Log.h"

VRAssetList::VRAssetList(platform::PHFetchResult<platform::PHAsset> fetchResult, std::uint64_t flag,
                         LibraryAssetWrapper wrapper)
    : _count(fetchResult.count()),
      _fetch(std::make_shared<const platform::PHFetchResult<platform::PHAsset>>(
          std::move(fetchResult))),
      _assetFlag(flag),
      _reversed(true),
      _wrapper(std::move(wrapper)) {
    // Newest first; the same function maps back, since reversing twice is the identity.
    _indexFunc = [count = _count](std::size_t index) { return count - 1 - index; };
    platform::logf("~~~FETCH %d", static_cast<int>(_count));
}

VRAssetList::VRAssetList(std::vector<VRAssetRef> assets)
    : _count(assets.size()), _array(std::move(assets)) {
    _indexFunc = [](std::size_t index) { return index; };
    platform::logf("~~~ARRAY %d", static_cast<int>(_count));
}

VRAssetRef VRAssetList::_wrap(const platform::PHAsset* asset) const {
    if (!asset || !_wrapper) return nullptr;
    return _wrapper(*asset, _assetFlag);
}

VRAssetRef VRAssetList::assetAtIndex(std::size_t index) const {
    if (index >= _count) return nullptr;
    if (_fetch) return _wrap(_fetch->objectAtIndex(_indexFunc(index)));
    return _array[index];
}

std::size_t VRAssetList::indexOfAsset(const VRAsset& asset) const {
    if (_fetch) {
        if (asset.type() != VRAssetIdentifierTypeLibrary) return NSNotFound;
        const std::size_t index = _fetch->indexOfObject(asset.objectIdentifier());
        return index == NSNotFound ? NSNotFound : _indexFunc(index);
    }
    auto found = std::find_if(_array.begin(), _array.end(), [&](const VRAssetRef& element) {
        return element && element->isEqual(asset);
    });
    return found == _array.end() ? NSNotFound : static_cast<std::size_t>(found - _array.begin());
}

VRAssetRef VRAssetList::lastAsset() const {
    if (_fetch) return _wrap(_reversed ? _fetch->firstObject() : _fetch->lastObject());
    return _array.empty() ? nullptr : _array.back();
}

std::vector<VRAssetRef> VRAssetList::assetsStartingIndex(std::size_t index) const {
    if (_fetch || index >= _array.size()) return {};
    return {_array.begin() + static_cast<long>(index), _array.end()};
}

std::vector<platform::PHAsset> VRAssetList::photoAssetsAtPhotoIndexes(
    const std::set<std::size_t>& indexes) const {
    std::vector<platform::PHAsset> assets;
    if (!_fetch) return assets;
    for (std::size_t index : indexes)
        if (const platform::PHAsset* asset = _fetch->objectAtIndex(index)) assets.push_back(*asset);
    return assets;
}

std::vector<VRAssetRef> VRAssetList::allAssets() const {
    if (!_fetch) return _array;
    std::vector<VRAssetRef> assets;
    assets.reserve(_count);
    for (std::size_t index = 0; index < _count; ++index) assets.push_back(assetAtIndex(index));
    return assets;
}

void VRAssetList::replaceAssetAtIndex(std::size_t index, VRAssetRef asset) {
    if (_fetch || index >= _array.size()) return;
    _array[index] = std::move(asset);
}

void VRAssetList::removeAssetAtIndex(std::size_t index) {
    if (_fetch || index >= _array.size()) return;
    _array.erase(_array.begin() + static_cast<long>(index));
    _count = _array.size();
}

void VRAssetList::removeAssetsAtIndexes(const std::set<std::size_t>& indexes) {
    if (_fetch) return;
    // From the back, so that the indexes still to go keep their meaning.
    for (auto it = indexes.rbegin(); it != indexes.rend(); ++it)
        if (*it < _array.size()) _array.erase(_array.begin() + static_cast<long>(*it));
    _count = _array.size();
}

void VRAssetList::addAssets(const std::vector<VRAssetRef>& assets) {
    if (_fetch) return;
    _array.insert(_array.end(), assets.begin(), assets.end());
    _count = _array.size();
}
