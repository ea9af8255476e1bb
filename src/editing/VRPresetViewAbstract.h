// The size editor's logic without its screen: the list of recent sizes with the current one
// first, the size-mode and method buttons, swapping width and height, the ratio direction
// toggle, and keeping the size turned to the preview target's orientation. Used by the size
// editor, the summary screen's preset view and the command's template tools.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "model/VRSizeEntry.h"
#include "model/VRSizeOption.h"
#include "platform/Geometry.h"
#include "platform/PlistValue.h"
#include "templates/VXTemplate.h"

class VRPresetViewAbstract {
  public:
    // Called, on the caller's thread, whenever the editor hands a changed size on (not while
    // sizeInputMode is on).
    using UpdateSizeEntry = std::function<void(const VRSizeEntry& entry, const VRSizeOptions&)>;

    // State of the swap control as the screen shows it.
    struct SwapControlState {
        bool enabled = true;
        bool selected = false;
        bool highlighted = false;
        bool portrait = false;
        double alpha = 1.0;
    };

    // One option button as the screen shows it.
    struct OptionButton {
        VRSizeOption option;
        const char* title;
        const char* icon;
        bool selected;
    };

    static constexpr std::size_t kMaximumRecentSizes = 10;

    // The completion of an options value that the view receives: Normal size is added when
    // neither Normal nor Smart is there, Stretch when no method is there. A value stored
    // without a size mode (the X templates' [3]) so means Normal size, as everywhere else.
    static VRSizeOptions sourceOptions(const VRSizeOptions& options);
    // A copy of the template whose options of every media type are completed so; null for
    // null. Every template taken into a session or a run from the command line passes
    // through here.
    static VXTemplateRef templateWithSourceOptions(const VXTemplateRef& tpl);

    // The recent sizes, newest first; the first is the current size.
    const platform::PlistArray& sizesMutable() const { return _sizesMutable; }
    void setSizesMutable(platform::PlistArray sizes) {
        _sizesMutable = std::move(sizes);
        _updateSizeValue();
    }
    // The current size entry, read from the first element; absent for an empty list.
    std::optional<VRSizeEntry> currentSizeEntry() const;

    // The options as the selected buttons give them: the size mode, then the method, then
    // TargetPortrait when the target is portrait.
    VRSizeOptions options() const;
    // Selects the buttons of the completed value (Smart before Normal; clip, then fit, then
    // Stretch, as the pipelines read it) and takes TargetPortrait from it.
    void setOptions(const VRSizeOptions& options);
    // The five buttons in the order shown: Normal size, Smart size, then Ratio clip, Ratio fit,
    // Stretch.
    std::vector<OptionButton> optionButtons() const;
    // Touching a size-mode button (Normal or Smart) or a method button (clip, fit, Stretch)
    // selects it in its group and hands the size on; false for any other code.
    bool didTouchOptionButton(VRSizeOption option);
    // The ratio direction toggle works only on ratio entries.
    bool isRatioToggleEnabled() const;
    bool targetPortrait() const { return _targetPortrait; }
    bool sizeInputMode() const { return _sizeInputMode; }
    void setSizeInputMode(bool on) { _sizeInputMode = on; }
    // The option that keeps the size turned to the target (the Smart size button) is selected.
    bool swapOptionSelected() const { return _swapOptionSelected; }
    void setSwapOptionSelected(bool selected) { _swapOptionSelected = selected; }
    const SwapControlState& sizeSwapControl() const { return _swapControl; }
    void setUpdateSizeEntry(UpdateSizeEntry callback) { _updateSizeEntry = std::move(callback); }

    // Removes every element equal to `sizeArray`, puts it first and keeps at most ten.
    void _addSize(const platform::PlistArray& sizeArray);
    // Touching a recent size: it becomes the current one and is handed on.
    void _didTouchPresetButton(const platform::PlistArray& sizeArray);
    // Replaces the current size by its rotated copy (the target is kept), brings option 2 in
    // line with the target's orientation and hands the size on.
    void _rotateSize();
    // Touching the swap control unselects it and swaps the size.
    void didTouchSizeSwapControl();
    // For a ratio entry (up or down) switches to the other direction and hands it on; true
    // when it did. Other types are left as they are.
    bool _toggleRatioMode();

    // targetPortrait from the preview's target size (portrait when its shape is 0).
    void _updateTargetPortrait(CGSize previewTargetSize);
    // With the swap option selected: whether the remembered orientation differs from that of
    // `currentTargetSize`.
    bool _checkSettingsRequireRotation(CGSize currentTargetSize) const;
    // When rotation is required: inverts targetPortrait and swaps the size; true when it did.
    bool _checkAndUpdateSettingsForTarget(CGSize currentTargetSize);

    // Enabled at alpha 1.0; disabled at 0.5 and shown highlighted.
    void _updateSizeSwapEnabled(bool enabled, bool portrait);

    // The swap control follows the current size: disabled for a square one, whose sides have
    // nothing to exchange, and showing the size's orientation.
    void _updateSizeValue();

  private:
    void handOn();

    platform::PlistArray _sizesMutable;
    VRSizeOption _sizeMode = VRSizeOptionNormal;
    VRSizeOption _method = VRSizeOptionStretch;
    bool _targetPortrait = false;
    bool _sizeInputMode = false;
    bool _swapOptionSelected = false;
    SwapControlState _swapControl;
    UpdateSizeEntry _updateSizeEntry;
};
