// The selection, share and clear rules of the batch run, and the way back to the session.
#include <set>
#include <utility>

#include "core/VRResultController.h"
#include "platform/Log.h"

namespace {

std::string countWords(std::size_t count, const char* noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace

void VRResultController::setSelectedAssets(const std::vector<VRAssetRef>& assets) {
    _picker.setSelectedAssets(assets);
    _updateShareButtonState();
}

void VRResultController::_selectionAction() {
    if (_picker.selectedAssets().empty()) {
        setSelectedAssets(_picker.assetList());
    }
}

void VRResultController::_selectionReset() {
    setSelectedAssets({});
}

std::string VRResultController::selectionTitle() const {
    std::string title;
    const std::pair<VRFormatMediaType, const char*> parts[] = {
        {VRFormatMediaTypePhoto, "photo"},
        {VRFormatMediaTypeVideo, "video"},
        {VRFormatMediaTypeNone, "item"},
    };
    for (const auto& [mediaType, noun] : parts) {
        std::size_t count = _picker.selectedAssetsCountForMediaType(mediaType);
        if (count > 0) {
            title += (title.empty() ? "" : " / ") + countWords(count, noun);
        }
    }
    return title.empty() ? "Select all items" : title + " selected";
}

VRResultController::SelectionBar VRResultController::selectionBar() const {
    const bool none = _picker.selectedAssets().empty();
    SelectionBar bar{selectionTitle(), none, none, std::nullopt};
    if (none) bar.note = kNoItemsSelectedText;
    return bar;
}

void VRResultController::_didTapDeleteButton() {
    platform::log("~~ clear button touch");
    // Asked without holding the asset, so that a cleared one is gone before the next starts.
    const bool clearsCurrent =
        _picker.processingAsset() && _picker.isSelected(*_picker.processingAsset());
    if (clearsCurrent) {
        _cancelProcessingPendingAssets();
    }
    // Stored results sit before the cursor; they leave the store as well as the list.
    std::size_t storedCount = std::min(_picker.processingIndex(), _picker.assetList().size());
    std::vector<std::size_t> removed = _picker.removeSelectedAssetsAnimated(true);
    std::set<std::size_t> storedIndexes;
    for (std::size_t index : removed) {
        if (index < storedCount) {
            storedIndexes.insert(index);
        }
    }
    if (!storedIndexes.empty()) {
        _services.removeStoredResults(storedIndexes);
    }
    if (_events.listChanged) {
        _events.listChanged();
    }
    if (clearsCurrent) {
        _startProcessingPendingAssetsWithSize(CGSize{0.0, 0.0});
    } else if (_picker.assetList().empty()) {
        // assetPickerView:didBecomeEmpty:
        _finishProcessing();
    }
    _updateSettingsRecentAssetsForRemoval(true);
    _updateShareButtonState();
}

void VRResultController::_didTouchWarningOfAsset(const VRAsset& asset) {
    if (asset.flag() != 2) {
        return;
    }
    _emitAlert({VRBatchAlert::Kind::storedLocally,
                "Stored locally",
                "Media has been saved to local app storage after unsuccessful attempt to be "
                "saved to Photo Library for some reason(unsupported format, size, etc)",
                {"Ok"},
                [](std::size_t) {}});
}

void VRResultController::_backToMainScreenResettingSelection(bool reset) {
    if (_buttonState == VRProcessingState::processing) {
        _cancelProcessingPendingAssets();
    }
    if (_events.didFinishWithAssets) {
        _events.didFinishWithAssets(reset ? std::vector<VRAssetRef>{} : _picker.pendingAssets(),
                                    _reloadCount != 0, _settingsUpdated);
    }
}

std::string VRResultController::sharingMessage(std::int64_t outcome, const std::string& appName) {
    switch (outcome) {
        case 1:
            return "Success";
        case 2:
            return "An error occurred while sharing: The device may lack free space, or "
                   "connection is not available, or this media already exists at the target "
                   "location.";
        case 3:
            return "An error occurred while sharing: No access to Photos (Settings / " + appName +
                   " / Photos).";
        case 4:
            return "An error occurred while sharing: Selection is empty. Please try again.";
        default:
            return "Cancelled";
    }
}
