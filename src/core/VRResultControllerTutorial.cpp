// The results screen's part of the tutorial: the walk's step there, the note at the end of the
// run, the focus on the close button, and the prepared results of the samples.
#include <utility>

#include "assets/VRAssetManager2.h"
#include "assets/VRURLAsset.h"
#include "core/VRResultController.h"

bool VRResultController::_isTutorialRunning() const {
    return _services.tutorialState && _services.tutorialState() == 1;
}

void VRResultController::_didFinishProcessing() {
    if (!_isTutorialRunning() || !_services.tutorialStep ||
        _services.tutorialStep() != VRTutorial::kResultsStep || !_events.tutorialNote) {
        return;
    }
    VRBatchAlert note{VRBatchAlert::Kind::tutorialNote,
                      "",
                      VRTutorial::autoSaveNoteText(VRAssetManager2::VRAlbumNamePhotos,
                                                   VRAssetManager2::VRAlbumNameVideos,
                                                   VRAssetManager2::VRAlbumNameOriginals),
                      {VRTutorial::kAutoSaveNoteButton},
                      nullptr};
    std::weak_ptr<int> alive = _alive;
    note.answer = [this, alive](std::size_t) {
        // After the note the walk points at the way back to the main screen.
        if (!alive.expired() && _events.focusView) {
            _events.focusView(focusViewState(_closeButtonBounds));
        }
    };
    _events.tutorialNote(note);
}

std::optional<VRFocusViewState> VRResultController::focusViewState(CGRect closeButtonBounds) const {
    if (!_isTutorialRunning() || !_services.tutorialStep ||
        _services.tutorialStep() != VRTutorial::kResultsStep) {
        return std::nullopt;
    }
    return VRTutorial::closeButtonFocus(closeButtonBounds);
}

void VRResultController::focusViewDidRegisterTouch() {
    if (!focusViewState(CGRect{})) {
        return;
    }
    if (_services.setTutorialStep) {
        _services.setTutorialStep(VRTutorial::kBackOnMainStep);
    }
    if (_events.focusView) {
        _events.focusView(std::nullopt);
    }
    _backToMainScreenResettingSelection(false);
}

VRAssetRef VRResultController::_resultAssetForSampleAsset(const VRAsset& asset) {
    auto urlAsset = std::dynamic_pointer_cast<VRURLAsset>(asset.object());
    if (asset.type() != VRAssetIdentifierTypeURL || !urlAsset) {
        return nullptr;
    }
    std::string path = urlAsset->url();
    const std::size_t name = path.rfind('/');
    const std::size_t dot = path.rfind('.');
    const bool hasExtension =
        dot != std::string::npos && (name == std::string::npos || dot > name + 1);
    path.insert(hasExtension ? dot : path.size(), "-result");
    return VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(path));
}
