// One batch run, headless: feeds the assets of an editing session one at a time to the
// processor, lists stored results before the pending assets, and owns pause, resume and cancel,
// the size-limit question, the error words, the pause in the background and the selection,
// share and clear rules. Everything runs on the main thread; a front end follows the run
// through the events and answers the alerts it is shown.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "assets/VRAsset.h"
#include "core/VRAssetPickerView.h"
#include "core/VRBatchServices.h"
#include "core/VRError.h"
#include "core/VRErrorReport.h"
#include "model/VRAdjustState.h"
#include "platform/Geometry.h"
#include "platform/PlistValue.h"
#include "presentation/VRTutorialFocus.h"
#include "templates/VXTemplate.h"

// VRProcessingButton's processingState: 0 "Results" (disabled), 1 "Resume", 2 "Processing";
// `none` (no title, disabled) until the run first sets it.
enum class VRProcessingState : std::int64_t { none = -1, results = 0, resume = 1, processing = 2 };
// The button's title; none for a state outside the three.
std::optional<std::string> VRProcessingButtonTitle(VRProcessingState state);

// An alert a front end shows: its words, its buttons by index, and the callback it calls once
// with the index of the button chosen (on the main thread).
struct VRBatchAlert {
    // mailWarning: an error report that no mail program took ("Warning").
    enum class Kind {
        error,
        exceedingMaxSize,
        processingRestrictions,
        storedLocally,
        mailWarning,
        tutorialNote
    };
    Kind kind;
    std::string title;
    std::string message;
    std::vector<std::string> buttons;
    std::function<void(std::size_t buttonIndex)> answer;
    // With mailWarning: the report folder written instead, for the front end to show.
    std::optional<std::string> reportFolder = std::nullopt;
};

// Each is optional; all are called on the main thread.
struct VRResultControllerEvents {
    // Progress of the asset in work at that list position, 0 to 1.
    std::function<void(std::size_t index, double progress)> progress;
    // A result took the place of its pending asset at that position.
    std::function<void(std::size_t index, const VRAssetRef& result)> committed;
    // The main button changed: its state and title (empty for none).
    std::function<void(VRProcessingState state, const std::string& title)> buttonState;
    std::function<void(const VRBatchAlert& alert)> alert;
    // The list or the selection changed (a clear, the return from the background).
    std::function<void()> listChanged;
    std::function<void(bool hidden)> shareButtonHidden;
    // "Contact us" of an error: the message without its suffix and the details, if any. Without
    // it the controller sends the error report itself (_emailError), shows the "Warning" alert
    // when no mail program took it, and tells errorReported.
    std::function<void(const std::string& message,
                       const std::optional<platform::PlistDictionary>& info)>
        emailError;
    // The error report of "Contact us" went to the mail program or into a report folder.
    std::function<void(const VRErrorReportOutcome& outcome)> errorReported;
    // The rate counters say it is time to ask for a review.
    std::function<void()> requestReview;
    // resultsController:didFinishWithAssets:reload:updatingSettings:.
    std::function<void(const std::vector<VRAssetRef>& assets, bool reload, bool settingsUpdated)>
        didFinishWithAssets;
    // The tutorial: the note when the run ends at the results step (its "Next" answers), and the
    // focus view, shown with its state or hidden with none.
    std::function<void(const VRBatchAlert& note)> tutorialNote;
    std::function<void(const std::optional<VRFocusViewState>& state)> focusView;
};

class VRResultController {
  public:
    // initWithAssets:template:adjustState:delegate:. `services` defaults to the process's own.
    VRResultController(std::vector<VRAssetRef> assets, VXTemplateRef tpl,
                       std::shared_ptr<const VRAdjustState> adjustState,
                       VRResultControllerEvents events,
                       VRBatchServices services = VRBatchServices::standard());
    // Cancels the asset in work.
    ~VRResultController();
    VRResultController(const VRResultController&) = delete;
    VRResultController& operator=(const VRResultController&) = delete;

    // The screen is built: the list of stored results then the handed-in assets.
    void loadView();
    // The first call starts the run (building the list first when needed).
    void viewDidAppear();

    // The tutorial's focus view: where it points while the walk is at the results step (the
    // close button, whose bounds the front end gives), none otherwise.
    std::optional<VRFocusViewState> focusViewState(CGRect closeButtonBounds) const;
    // The close button's bounds as laid out, for the focus shown after the tutorial's note.
    void setCloseButtonBounds(CGRect bounds) { _closeButtonBounds = bounds; }
    // focusView:didRegisterTouchInRect: on the close button: the walk reaches its last step,
    // the focus view hides and the screen goes back as its back button does.
    void focusViewDidRegisterTouch();
    // During the tutorial a sample that fails gives way to its prepared result: a file asset's
    // path with "-result" before the extension. None for other kinds of asset.
    static VRAssetRef _resultAssetForSampleAsset(const VRAsset& asset);

    // The user touches the main button: 2 becomes 1 (pause), 1 becomes 2 (resume).
    void touchProcessingButton();
    // processingButton:didChangeState:.
    void processingButtonDidChangeState(VRProcessingState state);

    // Application life cycle.
    void _didEnterBackground();
    void _willEnterForeground();

    // Selection, share and clear.
    void setSelectedAssets(const std::vector<VRAssetRef>& assets);
    // With no selection selects the whole list.
    void _selectionAction();
    void _selectionReset();
    // "2 photos / 1 video selected", or "Select all items" with nothing selected.
    std::string selectionTitle() const;
    bool isShareButtonHidden() const { return _shareButtonHidden; }
    // The selection bar: with nothing selected the reset button and the buttons view are
    // hidden and the note shows instead.
    struct SelectionBar {
        std::string title;
        bool resetHidden = true;
        bool buttonsHidden = true;
        std::optional<std::string> note;
    };
    static constexpr const char* kNoItemsSelectedText = "No items selected";
    SelectionBar selectionBar() const;
    // "Clear selected results": removes the selection (stored results leave the store too);
    // clearing the asset at the cursor goes on with the next one.
    void _didTapDeleteButton();
    // The warning mark of an asset stored locally (flag 2) shows why.
    void _didTouchWarningOfAsset(const VRAsset& asset);
    // Leaving the screen: the pending assets (none with `reset`) go back to the session.
    void _backToMainScreenResettingSelection(bool reset);

    const VRAssetPickerView& pickerView() const { return _picker; }
    VRProcessingState processingState() const { return _buttonState; }
    std::size_t digits() const { return _digits; }
    std::int64_t reloadCount() const { return _reloadCount; }
    bool processingCancelled() const { return _processingCancelled; }
    bool cancelledAutomatically() const { return _cancelledAutomatically; }
    bool screenAutoLockDisabled() const { return _screenAutoLockDisabled; }
    bool useReducedSizeWhenExceedMaxSize() const { return _useReducedSizeWhenExceedMaxSize; }
    // The handed-in assets and no stored results.
    bool isEmptyResults() const { return _isEmptyResults; }
    // The "Processing Restrictions" alert made in the background and not yet answered.
    const std::optional<VRBatchAlert>& backgroundAlert() const { return _backgroundAlert; }
    void dismissBackgroundAlert() { _backgroundAlert.reset(); }

    // The words after a share by its outcome (VRExportShareStatus); outcomes 2 to 4 go with a
    // "Cancel" button. `appName` fills the missing-access words.
    static std::string sharingMessage(std::int64_t outcome, const std::string& appName);

  private:
    void _startProcessingPendingAssetsWithSize(CGSize size);
    void _didCompleteAsset(std::uint64_t run, const VRAssetRef& source, VRAssetRef result,
                           VRErrorRef error);
    // A pass cancelled after its last check still stores its result: the asset counts as
    // done once, wherever the list has it by now (at the cursor, or listed from the store by
    // a return from the background), and a pass started again for it stops.
    void _didCompleteCancelledAsset(const VRAssetRef& source, const VRAssetRef& result);
    void _commitResultAt(std::size_t index, const VRAssetRef& result);
    void _dropDoneAssetAt(std::size_t index);
    void _handleLimitError(const VRError& error);
    void _commitProcessingPedningAsset();
    void _cancelProcessingPendingAssets();
    void _pauseProcessing();
    void _restoreProcessing();
    void _finishProcessing();
    void _didFinishProcessing();
    bool _isTutorialRunning() const;
    void _updateSettingsRecentAssetsForRemoval(bool removal);
    void _updateShareButtonState();
    void _showErrorWithTitle(const std::optional<std::string>& title, const std::string& message,
                             const std::optional<platform::PlistDictionary>& info);
    void _emailError(const std::string& message,
                     const std::optional<platform::PlistDictionary>& info);
    // The sending waits on a background queue; the run goes on meanwhile and its state is
    // left as it is.
    void _emailWithTitle(const std::string& title, const std::string& message,
                         const std::optional<platform::PlistData>& properyListData);
    void _setButtonState(VRProcessingState state);
    void _emitAlert(const VRBatchAlert& alert);

    std::vector<VRAssetRef> _assets;
    VXTemplateRef _tpl;
    std::shared_ptr<const VRAdjustState> _adjustState;
    VRResultControllerEvents _events;
    VRBatchServices _services;
    VRAssetPickerView _picker;
    VRProcessingState _buttonState = VRProcessingState::none;
    std::size_t _digits = 1;
    std::int64_t _reloadCount = 0;
    bool _viewLoaded = false;
    bool _isEmptyResults = false;
    bool _processingStarted = false;
    bool _processingCancelled = false;
    bool _cancelledAutomatically = false;
    bool _screenAutoLockDisabled = false;
    bool _useReducedSizeWhenExceedMaxSize = false;
    bool _settingsUpdated = false;
    bool _shareButtonHidden = true;
    // The screen's push has ended (set when it appears); the tutorial's note waits for it.
    bool _pushTransitionFinished = false;
    CGRect _closeButtonBounds;
    std::optional<VRBatchAlert> _backgroundAlert;
    // Between a background and the next foreground: a second background (two stop signals
    // in a row) must not take the run for one the user paused.
    bool _inBackground = false;
    // Each start gets a number; a completion of an older start (cancelled, or its asset
    // cleared) can't take the place of the asset now in work: only a result of its own
    // asset, still pending, is kept.
    std::uint64_t _run = 0;
    // Callbacks that outlive the controller find this expired.
    std::shared_ptr<int> _alive = std::make_shared<int>(0);
};
