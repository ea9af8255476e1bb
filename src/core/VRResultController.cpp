#include "core/VRResultController.h"

#include <algorithm>
#include <set>
#include <utility>

#include "core/ErrorMessages.h"
#include "model/VXHelperSize.h"
#include "platform/Dispatch.h"
#include "platform/Log.h"

namespace {

constexpr CGSize kSizeZero{0.0, 0.0};

std::size_t digitsOf(std::size_t count) {
    std::size_t digits = 1;
    for (; count >= 10; count /= 10) {
        ++digits;
    }
    return digits;
}

// The sizes of a limit error: the one that broke the limit, then the usable ones, best first.
std::vector<CGSize> correctingSizes(const platform::PlistDictionary& info) {
    std::vector<CGSize> sizes;
    auto found = info.find(VRErrorUserInfoCorrectingSizesKey);
    if (found == info.end() || !found->second.array()) {
        return sizes;
    }
    for (const platform::PlistValue& entry : *found->second.array()) {
        if (entry.array()) {
            sizes.push_back(VXHelper::sizeWithSizeArray(*entry.array()));
        }
    }
    return sizes;
}

CGSize exceedingSize(const platform::PlistDictionary& info) {
    auto found = info.find(VRErrorUserInfoExceedingSizeKey);
    if (found == info.end() || !found->second.array()) {
        return kSizeZero;
    }
    return VXHelper::sizeWithSizeArray(*found->second.array());
}

}  // namespace

std::optional<std::string> VRProcessingButtonTitle(VRProcessingState state) {
    switch (state) {
        case VRProcessingState::results:
            return "Results";
        case VRProcessingState::resume:
            return "Resume";
        case VRProcessingState::processing:
            return "Processing";
        case VRProcessingState::none:
            break;
    }
    return std::nullopt;
}

VRResultController::VRResultController(std::vector<VRAssetRef> assets, VXTemplateRef tpl,
                                       std::shared_ptr<const VRAdjustState> adjustState,
                                       VRResultControllerEvents events, VRBatchServices services)
    : _assets(std::move(assets)),
      _tpl(std::move(tpl)),
      _adjustState(std::move(adjustState)),
      _events(std::move(events)),
      _services(std::move(services)),
      _digits(digitsOf(_assets.size())) {
    if (_services.beginAutoSaveBatch) _services.beginAutoSaveBatch();
}

VRResultController::~VRResultController() {
    platform::log("~~ ~~ result controller is deallocated");
    _alive.reset();
    if (_services.processor) {
        _services.processor->cancelProcessingAssets();
    }
}

void VRResultController::loadView() {
    if (_viewLoaded) {
        return;
    }
    _viewLoaded = true;
    std::vector<VRAssetRef> list = _services.storedResults();
    std::size_t index = list.size();
    _isEmptyResults = _assets.empty() && list.empty();
    list.insert(list.end(), _assets.begin(), _assets.end());
    _assets.clear();
    _picker.setAssetList(std::move(list), index);
}

void VRResultController::viewDidAppear() {
    loadView();
    if (_processingStarted) {
        return;
    }
    _processingStarted = true;
    _pushTransitionFinished = true;
    if (_isTutorialRunning() && _services.setTutorialStep) {
        _services.setTutorialStep(VRTutorial::kResultsStep);
    }
    _picker.beginProcessing();
    _startProcessingPendingAssetsWithSize(kSizeZero);
}

void VRResultController::_setButtonState(VRProcessingState state) {
    if (state == _buttonState) {
        return;
    }
    _buttonState = state;
    if (_events.buttonState) {
        _events.buttonState(state, VRProcessingButtonTitle(state).value_or(""));
    }
}

void VRResultController::_emitAlert(const VRBatchAlert& alert) {
    if (_events.alert) {
        _events.alert(alert);
    }
}

void VRResultController::touchProcessingButton() {
    if (_buttonState == VRProcessingState::processing) {
        processingButtonDidChangeState(VRProcessingState::resume);
    } else if (_buttonState == VRProcessingState::resume) {
        processingButtonDidChangeState(VRProcessingState::processing);
    }
}

void VRResultController::processingButtonDidChangeState(VRProcessingState state) {
    if (state == VRProcessingState::processing) {
        _startProcessingPendingAssetsWithSize(kSizeZero);
    } else {
        _cancelProcessingPendingAssets();
    }
}

void VRResultController::_startProcessingPendingAssetsWithSize(CGSize size) {
    _processingCancelled = false;
    VRAssetRef asset = _picker.processingAsset();
    if (!asset) {
        _finishProcessing();
        _screenAutoLockDisabled = false;
        if (_pushTransitionFinished) {
            _didFinishProcessing();
        }
        return;
    }
    asset = asset->copy();
    _picker.beginProcessing();
    _setButtonState(VRProcessingState::processing);
    _screenAutoLockDisabled = true;
    VRAdjustAssetStateRef state =
        _adjustState ? _adjustState->stateWithKey(asset->objectIdentifier()) : nullptr;
    std::uint64_t run = ++_run;
    std::weak_ptr<int> alive = _alive;
    _services.processor->processAsset(
        asset, _tpl, state, size,
        [this, alive, run](double progress) {
            if (alive.expired() || run != _run) {
                return;
            }
            _picker.updateProcessingAssetProgress(progress);
            if (_events.progress) {
                _events.progress(_picker.processingIndex(), progress);
            }
        },
        [this, alive, run, asset](VRAssetRef result, VRErrorRef error) {
            if (!alive.expired()) {
                _didCompleteAsset(run, asset, result, error);
            }
        });
}

void VRResultController::_didCompleteAsset(std::uint64_t run, const VRAssetRef& source,
                                           VRAssetRef result, VRErrorRef error) {
    if (run != _run) {
        if (result && !error) {
            _didCompleteCancelledAsset(source, result);
        }
        return;
    }
    if (error && _isTutorialRunning()) {
        // The tutorial's samples are meant to succeed: a failure shows their prepared result.
        error = nullptr;
        const VRAssetRef& sample = _picker.processingAsset();
        result = sample ? _resultAssetForSampleAsset(*sample) : nullptr;
    }
    if (error && error->hasCode(VRErrorCode::sizeLimitExceeded)) {
        _handleLimitError(*error);
    } else if (error) {
        VRErrorMessage words = VRErrorMessageForCode(error->code());
        _cancelProcessingPendingAssets();
        std::optional<platform::PlistDictionary> info;
        if (words.detailsAttached) {
            info = error->userInfo();
        }
        _showErrorWithTitle(words.title, words.message, info);
        _services.updateReteInfoWithError();
    } else if (result) {
        _commitResultAt(_picker.processingIndex(), result);
        return;
    }
    if (!_picker.processingAsset()) {
        _finishProcessing();
    }
}

void VRResultController::_didCompleteCancelledAsset(const VRAssetRef& source,
                                                    const VRAssetRef& result) {
    const std::vector<VRAssetRef>& list = _picker.assetList();
    auto same = [](const VRAssetRef& asset) {
        return [asset](const VRAssetRef& entry) { return entry && entry->isEqual(*asset); };
    };
    const std::size_t cursor = std::min(_picker.processingIndex(), list.size());
    auto pending =
        std::find_if(list.begin() + static_cast<std::ptrdiff_t>(cursor), list.end(), same(source));
    if (pending == list.end()) {
        // Cleared meanwhile, or done by a later pass.
        return;
    }
    const auto index = static_cast<std::size_t>(pending - list.begin());
    const bool listed = std::any_of(list.begin(), list.end(), same(result));
    if (_picker.processing() && index == _picker.processingIndex()) {
        // The pass started again for it has nothing left to do.
        ++_run;
        _services.processor->cancelProcessingAssets();
        _picker.cancelProcessing();
    }
    if (listed) {
        _dropDoneAssetAt(index);
        _commitProcessingPedningAsset();
        return;
    }
    if (index != _picker.processingIndex()) {
        return;
    }
    _picker.beginProcessing();
    _commitResultAt(index, result);
}

// Stores the result of the asset in work at `index`, tells who listens, and goes on.
void VRResultController::_commitResultAt(std::size_t index, const VRAssetRef& result) {
    ++_reloadCount;
    std::weak_ptr<int> alive = _alive;
    _picker.commitProcessingAsset(result, [this, alive, index, result] {
        if (alive.expired()) {
            return;
        }
        if (_events.committed) {
            _events.committed(index, result);
        }
        _commitProcessingPedningAsset();
    });
}

void VRResultController::_dropDoneAssetAt(std::size_t index) {
    std::vector<VRAssetRef> list = _picker.assetList();
    const VRAssetRef done = list[index];
    list.erase(list.begin() + static_cast<std::ptrdiff_t>(index));
    std::vector<VRAssetRef> selected;
    for (const VRAssetRef& asset : _picker.selectedAssets()) {
        if (!asset->isEqual(*done)) {
            selected.push_back(asset);
        }
    }
    if (_picker.processingIndex() >= list.size()) {
        _picker.setProcessingIndex(VRAssetPickerView::NSNotFound);
    }
    _picker.reloadAssetList(std::move(list), selected);
    if (_events.listChanged) {
        _events.listChanged();
    }
}

void VRResultController::_handleLimitError(const VRError& error) {
    _cancelProcessingPendingAssets();
    CGSize exceeding = exceedingSize(error.userInfo());
    std::vector<CGSize> corrections = correctingSizes(error.userInfo());
    if (corrections.empty()) {
        // Nothing smaller to offer: the run stops like any other failure.
        VRErrorMessage words = VRErrorMessageForCode(error.code());
        _showErrorWithTitle(words.title, words.message, std::nullopt);
        return;
    }
    CGSize correction = corrections.front();
    if (_useReducedSizeWhenExceedMaxSize || !_services.isNotifyExceedingMaxSizeEnabled()) {
        _startProcessingPendingAssetsWithSize(correction);
        return;
    }
    std::weak_ptr<int> alive = _alive;
    std::uint64_t run = _run;
    auto answered = std::make_shared<bool>(false);
    VRBatchAlert alert{VRBatchAlert::Kind::exceedingMaxSize,
                       VRExceedingMaxSizeTitle,
                       VRExceedingMaxSizeMessage(exceeding, correction),
                       {"Cancel", "Proceed"},
                       nullptr};
    alert.answer = [this, alive, run, answered, correction](std::size_t button) {
        if (*answered || button != 1) {
            *answered = true;  // "Cancel" leaves the run paused on "Resume"
            return;
        }
        *answered = true;
        platform::DispatchQueue::main().async([this, alive, run, correction] {
            // A resume or clear made since the question takes precedence over the answer.
            if (alive.expired() || run != _run || _picker.processing()) {
                return;
            }
            _startProcessingPendingAssetsWithSize(correction);
            _useReducedSizeWhenExceedMaxSize = true;
        });
    };
    _emitAlert(alert);
}

void VRResultController::_commitProcessingPedningAsset() {
    _updateSettingsRecentAssetsForRemoval(false);
    _updateShareButtonState();
    if (_buttonState == VRProcessingState::processing) {
        if (!_isTutorialRunning()) {
            _services.incrementRateInfoProcessed();
        }
        _startProcessingPendingAssetsWithSize(kSizeZero);
    }
    if (!_picker.processingAsset()) {
        _finishProcessing();
    }
}

void VRResultController::_cancelProcessingPendingAssets() {
    _processingCancelled = true;
    ++_run;
    _services.processor->cancelProcessingAssets();
    _picker.cancelProcessing();
    _setButtonState(VRProcessingState::resume);
    _screenAutoLockDisabled = false;
}

void VRResultController::_pauseProcessing() {
    if (_buttonState == VRProcessingState::processing) {
        _cancelledAutomatically = true;
        _cancelProcessingPendingAssets();
    } else {
        _cancelledAutomatically = false;
    }
}

void VRResultController::_restoreProcessing() {
    if (_processingCancelled && _cancelledAutomatically) {
        _startProcessingPendingAssetsWithSize(kSizeZero);
    }
}

void VRResultController::_finishProcessing() {
    _setButtonState(VRProcessingState::results);
    if (_services.checkAndCommitRateInfo() && _events.requestReview) {
        _events.requestReview();
    }
}

void VRResultController::_didEnterBackground() {
    if (_inBackground) {
        return;
    }
    _inBackground = true;
    _pauseProcessing();
    if (!_cancelledAutomatically || _backgroundAlert) {
        return;
    }
    VRBatchAlert alert{VRBatchAlert::Kind::processingRestrictions,
                       "Processing Restrictions",
                       "Unwarp could not process media while inactive due to system "
                       "restrictions. All tasks were temporarily paused and have now resumed "
                       "automatically.",
                       {"Ok"},
                       nullptr};
    std::weak_ptr<int> alive = _alive;
    alert.answer = [this, alive](std::size_t) {
        if (!alive.expired()) {
            _backgroundAlert.reset();
        }
    };
    _backgroundAlert = alert;
    _emitAlert(alert);
}

void VRResultController::_willEnterForeground() {
    // A continue without a stop before it (someone else's SIGSTOP) finds the run as it was;
    // reloading the list then would move the entry the asset in work lands on.
    if (!_inBackground) {
        return;
    }
    _inBackground = false;
    _reloadCount = 0;
    std::vector<VRAssetRef> kept = _services.reloadAssets(_picker.pendingAssets());
    std::vector<VRAssetRef> list = _services.storedResults();
    std::size_t index = list.size();
    if (!kept.empty()) {
        list.insert(list.end(), kept.begin(), kept.end());
    } else {
        index = VRAssetPickerView::NSNotFound;
    }
    std::vector<VRAssetRef> selected = _services.reloadAssets(_picker.selectedAssets());
    _picker.setProcessingIndex(index);
    _picker.reloadAssetList(std::move(list), selected);
    if (_events.listChanged) {
        _events.listChanged();
    }
    if (index != VRAssetPickerView::NSNotFound) {
        _restoreProcessing();
    } else {
        _finishProcessing();
    }
}

void VRResultController::_updateSettingsRecentAssetsForRemoval(bool removal) {
    const std::vector<VRAssetRef>& list = _picker.assetList();
    std::size_t count = std::min(_picker.processingIndex(), list.size());
    std::vector<std::string> identifiers;
    for (std::size_t i = 0; i < count; ++i) {
        identifiers.push_back(list[i]->objectIdentifier());
    }
    _services.setRecentAssetsIdentifiers(identifiers);
    if (removal) {
        _services.syncUnsavedAssets(list);
    }
}

void VRResultController::_updateShareButtonState() {
    const std::vector<VRAssetRef>& selected = _picker.selectedAssets();
    std::vector<VRAssetRef> pending = _picker.pendingAssets();
    bool intersects = std::any_of(selected.begin(), selected.end(), [&](const VRAssetRef& s) {
        return std::any_of(pending.begin(), pending.end(),
                           [&](const VRAssetRef& p) { return p->isEqual(*s); });
    });
    bool hidden = selected.empty() || intersects;
    if (hidden != _shareButtonHidden) {
        _shareButtonHidden = hidden;
        if (_events.shareButtonHidden) {
            _events.shareButtonHidden(hidden);
        }
    }
}

void VRResultController::_showErrorWithTitle(const std::optional<std::string>& title,
                                             const std::string& message,
                                             const std::optional<platform::PlistDictionary>& info) {
    VRBatchAlert alert{VRBatchAlert::Kind::error,
                       title.value_or("Error"),
                       message + " If problem persists, please, contact us.",
                       {"Contact us", "Ok"},
                       nullptr};
    std::weak_ptr<int> alive = _alive;
    alert.answer = [this, alive, message, info](std::size_t button) {
        if (button != 0 || alive.expired()) {
            return;
        }
        if (_events.emailError) {
            _events.emailError(message, info);
        } else {
            _emailError(message, info);
        }
    };
    _emitAlert(alert);
}

void VRResultController::_emailError(const std::string& message,
                                     const std::optional<platform::PlistDictionary>& info) {
    _emailWithTitle(VRErrorReport::kSubject, VRErrorReport::mailBody(message),
                    VRErrorReport::propertyListData(info));
}

void VRResultController::_emailWithTitle(
    const std::string& title, const std::string& message,
    const std::optional<platform::PlistData>& properyListData) {
    std::weak_ptr<int> alive = _alive;
    VRErrorReport::emailWithTitleInBackground(title, message, properyListData,
                                              [this, alive](const VRErrorReportOutcome& outcome) {
                                                  if (alive.expired()) {
                                                      return;
                                                  }
                                                  if (!outcome.sent) {
                                                      _emitAlert({VRBatchAlert::Kind::mailWarning,
                                                                  VRErrorReport::kWarningTitle,
                                                                  VRErrorReport::kWarningMessage,
                                                                  {VRErrorReport::kWarningButton},
                                                                  [](std::size_t) {},
                                                                  outcome.reportFolder});
                                                  }
                                                  if (_events.errorReported) {
                                                      _events.errorReported(outcome);
                                                  }
                                              });
}
