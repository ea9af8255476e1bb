// The adjust session: the user walks through the selected items of one media type and, per
// item, turns and mirrors it, drags the picture inside its frame and picks a fill colour. The
// result is the VRAdjustState the processor applies. A front end shows the current item and
// reports taps, drags (in view points, with the view's size and the screen's scale) and menu
// choices; the command line's --adjust drives it the same way. Main thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "assets/VRAsset.h"
#include "editing/VRDisplacementActionView.h"
#include "editing/VREditingView.h"
#include "model/VRAdjustState.h"
#include "platform/Bitmap.h"
#include "templates/VXTemplate.h"

// Which menu entries may be chosen now.
struct VRAdjustMenuState {
    bool applyToAll = false;
    bool undoAll = false;
    bool resetAll = false;
    bool resetCurrent = false;
    bool setFillColorAsDefault = false;
    bool resetDefaultFillColor = false;
    // Turning and mirroring need a current item; centring needs one moved off the centre.
    bool rotateAndFlip = false;
    bool center = false;
};

class VRAdjustSizeController {
  public:
    // mainIndex with no item.
    static constexpr std::size_t NSNotFound = 0x7FFFFFFFFFFFFFFF;
    // The codes of the action view.
    enum Action : std::int64_t { undoAllAction = 1, applyToAllAction = 2, resetAllAction = 3 };

    // initWithAssets:template:mediaType: takes the template's size entry (Auto without one),
    // options, format and method for the media type, and starts with an empty adjust state on
    // the first item.
    VRAdjustSizeController(std::vector<VRAssetRef> assets, const VXTemplate& tpl,
                           std::uint64_t mediaType);

    const std::vector<VRAssetRef>& assets() const { return _assets; }
    std::uint64_t mediaType() const { return _layout.mediaType; }
    const VRAdjustLayout& layout() const { return _layout; }
    std::uint64_t formatType() const { return _layout.format.type(); }
    VRImageArrangement resizeMethod() const { return _layout.resizeMethod(); }
    // The palette of the colour controls (VRAdjustColors::palette()).
    const std::vector<std::string>& colors() const;
    const VRAdjustState& adjustState() const { return _adjustState; }

    // "Edit Photo 2/5", or "No Photos" without items.
    std::string title() const;
    // NSNotFound without items.
    std::size_t mainIndex() const { return _mainIndex; }
    // adjustView:didChangeMainIndex:; an index beyond the list is ignored.
    void setMainIndex(std::size_t index);
    // reloadWithAssets: a new list, each item shown from the adjust state; the first current.
    void reloadWithAssets(std::vector<VRAssetRef> assets);
    // _currentState: the state of the current item, or null.
    VRAdjustAssetStateRef currentState() const;
    // The item as its view holds it; null beyond the list.
    const VREditingView* editingViewAtIndex(std::size_t index) const;

    // ---- Changes to the current item, each recorded as its new state ----
    void rotateRight();
    // flipVertically:animated: false: the picture mirrored left to right on the screen.
    void flipHorizontally();
    // flipVertically:animated: true: the picture mirrored top to bottom on the screen.
    void flipVertically();
    void centerContent();

    // ---- Dragging the current item ----
    // A gesture of `translation` view points begins, or is refused (see VRDisplacementActionView).
    bool beginPan(CGPoint translation, double screenScale);
    // The translation since the beginning; the item's displacement on the screen follows.
    void changePan(CGPoint translation, CGSize viewBounds);
    // At the end or on cancellation the item's state is recorded.
    void endPan();
    const VRDisplacementActionView& displacementActionView() const { return _actionView; }
    // displacementPermittedDirection of the current item; none without one.
    VRDisplacementDirection displacementPermittedDirection() const;
    VREditingGeometry geometryAtIndex(std::size_t index) const;

    // ---- Session actions, each ending in syncStates ----
    // "Apply to All": the current item's state to every other item.
    void applyToAll();
    // "Undo All": one step back on every item.
    void undoAll();
    // "Reset All", "Reset Current".
    void resetAll();
    void resetCurrent();
    // One step back on the current item.
    void undoCurrent();
    // adjustActionView:didFinishWithAction: 1 undo all, 2 apply to all, 3 reset all; other
    // codes do nothing.
    void performAction(std::int64_t action);

    // ---- Fill colours ----
    // A colour control: 0 opens the picker (nothing changes until it reports); the others set
    // their palette colour. An index beyond the palette is ignored.
    void selectColorAtIndex(std::size_t referenceIndex);
    // A colour reported by the picker, the last one included.
    void setPickedColor(const VRColor& color);
    // The reset control: no colour of the item's own.
    void resetFillColor();
    // The control shown selected for the current item: 0 for a picked colour, the palette
    // entry of a palette colour, else none.
    std::optional<std::size_t> selectedColorIndex() const;
    // The colour the item's margins show: its own, else the media type's default.
    VRColor displayedFillColorAtIndex(std::size_t index) const;
    // "Set Fill Color as Default": the confirmation's button and message.
    std::string defaultFillColorButtonTitle() const;
    std::string defaultFillColorMessage() const;
    // On confirmation: the current state's fill colour becomes the media type's default,
    // when it has one. "Reset Default Fill Color" forgets the default.
    void setFillColorAsDefault();
    void resetDefaultFillColor();

    // ---- Menu ----
    // menuCurrentDisabled: no current item, or the current item has no state.
    bool menuCurrentDisabled() const;
    // menuAllDisabled: no item has a state.
    bool menuAllDisabled() const;
    // _updateMenuState:force: "Apply to All" needs two items or more and a state on the
    // current one; "Undo All" and "Reset All" need !menuAllDisabled; "Reset Current"
    // !menuCurrentDisabled; "Set Fill Color as Default" a fill colour on the current state;
    // "Reset Default Fill Color" a stored default. Rotate and the flips need a current item,
    // centring a current item shifted on the screen.
    VRAdjustMenuState menuState() const;

    // ---- Previews ----
    using PreviewCompletion = std::function<void(std::optional<platform::Bitmap> image)>;
    // requestPreviewImageForAsset:size:completionOnMainThread: the asset (a photo, or a frame of
    // a movie) drawn by the photo drawing routine as its item's state makes it: the output
    // frame scaled to fit `size`, the picture turned, mirrored and moved, the margins filled.
    // Nothing for an asset not in the session, an empty size or unreadable bytes. Delivered on
    // the main queue.
    void requestPreviewImageForAsset(const VRAssetRef& asset, CGSize size,
                                     PreviewCompletion completionOnMainThread) const;

    // ---- What the view tells its delegate ----
    // adjustView:didChangeContentDisplacementDirection: after a turn and a change of item.
    std::function<void(VRDisplacementDirection)> onDisplacementDirection;
    // adjustView:didUpdateState:atIndex: after each recorded state.
    std::function<void(std::size_t index)> onStateUpdate;

  private:
    VREditingView* currentView();
    std::string keyAt(std::size_t index) const;
    // adjustView:didUpdateState:atIndex: for the current item.
    void _recordCurrentState();
    void syncStates();
    void announceDirection();
    void setFillColor(const std::optional<VRColor>& color, bool colorPicked);

    std::vector<VRAssetRef> _assets;
    std::vector<VREditingView> _views;
    VRAdjustLayout _layout;
    VRAdjustState _adjustState;
    std::size_t _mainIndex = NSNotFound;
    VRDisplacementActionView _actionView;
    bool _panning = false;
};
