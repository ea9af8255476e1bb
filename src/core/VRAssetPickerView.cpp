#include "core/VRAssetPickerView.h"

#include <algorithm>
#include <utility>

namespace {

bool containsAsset(const std::vector<VRAssetRef>& assets, const VRAsset& asset) {
    return std::any_of(assets.begin(), assets.end(),
                       [&](const VRAssetRef& a) { return a && a->isEqual(asset); });
}

}  // namespace

void VRAssetPickerView::setProcessingIndex(std::size_t index) {
    if (!_processing) {
        _processingIndex = index;
    }
}

VRAssetRef VRAssetPickerView::processingAsset() const {
    if (_processingIndex == NSNotFound || _processingIndex >= _assetList.size()) {
        return nullptr;
    }
    return _assetList[_processingIndex];
}

std::vector<VRAssetRef> VRAssetPickerView::pendingAssets() const {
    if (_processingIndex >= _assetList.size()) {
        return {};
    }
    return {_assetList.begin() + static_cast<std::ptrdiff_t>(_processingIndex), _assetList.end()};
}

void VRAssetPickerView::beginProcessing() {
    if (_processing || processingAsset() == nullptr) {
        return;
    }
    _processing = true;
    _processingProgress = 0.0;
}

void VRAssetPickerView::cancelProcessing() {
    _processingAutoScroll = true;
    _processing = false;
    _processingProgress = 0.0;
}

void VRAssetPickerView::updateProcessingAssetProgress(double progress) {
    if (_processing) {
        _processingProgress = progress;
    }
}

void VRAssetPickerView::commitProcessingAsset(const VRAssetRef& result,
                                              const std::function<void()>& completion) {
    if (_processing && result && _processingIndex < _assetList.size()) {
        _processing = false;
        _processingProgress = 0.0;
        const VRAssetRef& current = _assetList[_processingIndex];
        for (VRAssetRef& selected : _selectedAssets) {
            if (selected->isEqual(*current)) {
                selected = result;
            }
        }
        _assetList[_processingIndex] = result;
        _processingIndex =
            _processingIndex + 1 < _assetList.size() ? _processingIndex + 1 : NSNotFound;
    }
    if (completion) {
        completion();
    }
}

void VRAssetPickerView::setSelectedAssets(const std::vector<VRAssetRef>& assets) {
    std::vector<VRAssetRef> selected;
    for (const VRAssetRef& listed : _assetList) {
        if (containsAsset(assets, *listed) && !containsAsset(selected, *listed)) {
            selected.push_back(listed);
        }
    }
    _selectedAssets = std::move(selected);
}

bool VRAssetPickerView::isSelected(const VRAsset& asset) const {
    return containsAsset(_selectedAssets, asset);
}

std::size_t VRAssetPickerView::selectedAssetsCountForMediaType(VRFormatMediaType mediaType) const {
    return static_cast<std::size_t>(
        std::count_if(_selectedAssets.begin(), _selectedAssets.end(),
                      [&](const VRAssetRef& a) { return a->mediaType() == mediaType; }));
}

std::vector<std::size_t> VRAssetPickerView::removeSelectedAssetsAnimated(bool /*animated*/) {
    std::vector<std::size_t> removed;
    std::vector<VRAssetRef> kept;
    std::size_t removedBeforeCursor = 0;
    for (std::size_t i = 0; i < _assetList.size(); ++i) {
        if (isSelected(*_assetList[i])) {
            removed.push_back(i);
            if (i < _processingIndex) {
                ++removedBeforeCursor;
            }
        } else {
            kept.push_back(_assetList[i]);
        }
    }
    _assetList = std::move(kept);
    _selectedAssets.clear();
    // The cursor follows its asset: removals before it shift it down; a removed pending asset
    // at the cursor leaves it on the next one.
    if (_processingIndex != NSNotFound) {
        _processingIndex -= removedBeforeCursor;
        if (_processingIndex >= _assetList.size()) {
            _processingIndex = NSNotFound;
        }
    }
    return removed;
}

void VRAssetPickerView::reloadAssetList(std::vector<VRAssetRef> list,
                                        const std::vector<VRAssetRef>& selected) {
    _assetList = std::move(list);
    setSelectedAssets(selected);
}

void VRAssetPickerView::setAssetList(std::vector<VRAssetRef> list, std::size_t processingIndex) {
    _assetList = std::move(list);
    _processingIndex = processingIndex;
    _selectedAssets.clear();
}
