// The run part of the result list: stored results followed by pending assets, the processing
// cursor over them, the one asset in work with its progress, and the selection. Headless; the
// batch run (VRResultController) drives it on the main thread and a front end draws from it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "assets/VRAsset.h"
#include "model/VRFormatMediaType.h"

class VRAssetPickerView {
  public:
    static constexpr std::size_t NSNotFound = 0x7FFFFFFFFFFFFFFF;

    const std::vector<VRAssetRef>& assetList() const { return _assetList; }
    // Everything from here to the end is pending; NSNotFound when nothing is left to do.
    std::size_t processingIndex() const { return _processingIndex; }
    // Ignored while an asset is in work.
    void setProcessingIndex(std::size_t index);
    bool processing() const { return _processing; }
    double processingProgress() const { return _processingProgress; }
    bool processingAutoScroll() const { return _processingAutoScroll; }

    // The asset at the cursor; null when the cursor is NSNotFound or past the end.
    VRAssetRef processingAsset() const;
    // The tail from the cursor; empty when it is past the end.
    std::vector<VRAssetRef> pendingAssets() const;

    // Marks the asset at the cursor as in work with progress 0. Nothing when one already is or
    // the cursor points at nothing.
    void beginProcessing();
    // Back to pending, the cursor unchanged (a resume retries the same asset).
    void cancelProcessing();
    void updateProcessingAssetProgress(double progress);
    // Puts `result` in place of the asset in work (in the selection too) and moves the cursor
    // on, to NSNotFound after the last. With nothing in work it only calls the completion.
    void commitProcessingAsset(const VRAssetRef& result, const std::function<void()>& completion);

    const std::vector<VRAssetRef>& selectedAssets() const { return _selectedAssets; }
    // Keeps only the listed assets, in list order, without repeats.
    void setSelectedAssets(const std::vector<VRAssetRef>& assets);
    bool isSelected(const VRAsset& asset) const;
    // Selected assets of that media type (VRFormatMediaTypeNone counts those of no type).
    std::size_t selectedAssetsCountForMediaType(VRFormatMediaType mediaType) const;
    // Removes the selected assets and empties the selection; the cursor keeps pointing at the
    // same pending asset, or at the one after a removed one. Returns the list positions that
    // were removed, ascending.
    std::vector<std::size_t> removeSelectedAssetsAnimated(bool animated);
    // A new list and selection (the return from a pause in the background).
    void reloadAssetList(std::vector<VRAssetRef> list, const std::vector<VRAssetRef>& selected);
    // The list as built once: stored results then pending assets, the cursor on the first
    // pending one.
    void setAssetList(std::vector<VRAssetRef> list, std::size_t processingIndex);

  private:
    std::vector<VRAssetRef> _assetList;
    std::size_t _processingIndex = NSNotFound;
    bool _processing = false;
    double _processingProgress = 0.0;
    bool _processingAutoScroll = true;
    std::vector<VRAssetRef> _selectedAssets;
};
