// One item of the adjust session as its view holds it: the user's turns and mirrors, the
// displacement as the user sees it on the screen, the fill colour, and the frame the item is
// drawn in. The adjust session keeps one per asset and turns it into the item's adjust state.
#pragma once

#include <cstdint>
#include <optional>

#include "assets/VRAsset.h"
#include "model/VRAdjustAssetState.h"
#include "model/VRFormat.h"
#include "model/VRImageArrangement.h"
#include "model/VRSizeEntry.h"
#include "model/VRSizeOption.h"
#include "model/VRSizeResolver.h"

// What the session takes from the template for its media type.
struct VRAdjustLayout {
    std::uint64_t mediaType = 1;
    VRSizeEntry sizeEntry;
    VRSizeOptions options;
    VRFormat format;
    // resizeMethod: clip (1) when the options hold 3, else fit (2) when they hold 4, else
    // stretch (0).
    VRImageArrangement resizeMethod() const;
};

// Sizes in output pixels, as the item appears on the screen (turned and mirrored).
struct VREditingGeometry {
    // innerDimensions: the frame the item is drawn in (the written picture's size).
    CGSize innerDimensions;
    // innerContentSize: the picture inside that frame (the frame itself when stretched).
    CGSize innerContentSize;
    // The item's own size, turned with a quarter turn of the user's.
    CGSize itemSize;
};

// displacementPermittedDirection: 3 sideways, 12 up and down, 15 both, 0 none.
enum VRDisplacementDirection : std::uint64_t {
    VRDisplacementDirectionNone = 0,
    VRDisplacementDirectionHorizontal = 3,
    VRDisplacementDirectionVertical = 12,
    VRDisplacementDirectionAll = 15,
};

class VREditingView {
  public:
    VREditingView() = default;
    explicit VREditingView(VRAssetRef asset) : _asset(std::move(asset)) {}

    const VRAssetRef& asset() const { return _asset; }
    const std::optional<VROrientation>& orientation() const { return _orientation; }
    // innerDisplacement: output pixels, x to the right and y downwards on the screen.
    CGPoint innerDisplacement() const { return _innerDisplacement; }
    void setInnerDisplacement(CGPoint p) { _innerDisplacement = p; }
    const std::optional<VRColor>& fillColor() const { return _fillColor; }
    bool colorPicked() const { return _colorPicked; }
    void setFillColor(const std::optional<VRColor>& color, bool colorPicked) {
        _fillColor = color;
        _colorPicked = colorPicked;
    }

    // rotateClockwise:animated: and flipVertically:animated:. The stored displacement stays,
    // so the picture's offset turns and mirrors with it on the screen.
    void rotateClockwise(bool clockwise);
    void flipVertically(bool vertically);
    void centerContent() { _innerDisplacement = {}; }

    // displacement: the screen value turned back into the item's own frame (the inverse of
    // what the pipelines do with the state), rounded to whole pixels, halves away from zero.
    CGPoint displacement() const;
    // The state this view stands for: a new object each time.
    VRAdjustAssetStateRef adjustState() const;
    // restoreDimensions:displacement:forOrientation: the view shows `state`, or the untouched
    // item without one.
    void restoreState(const VRAdjustAssetState* state);

    // Where the item lies with the template of `layout`, as the preview and the pipelines
    // place it (no device limit applies to a view).
    VREditingGeometry geometry(const VRAdjustLayout& layout) const;
    // displacementPermittedDirection for the layout's method.
    VRDisplacementDirection displacementPermittedDirection(const VRAdjustLayout& layout) const;

  private:
    // The screen value of a displacement kept in the item's own frame.
    void restoreDisplacement(CGPoint stored);

    VRAssetRef _asset;
    std::optional<VROrientation> _orientation;
    CGPoint _innerDisplacement;
    std::optional<VRColor> _fillColor;
    bool _colorPicked = false;
};

// The photo stage's resolution of one item of `sourceSize` (displayed) and `sourceOrientation`
// with `state`, without a device limit: a view shows any size. A movie's sides are even.
VRResolvedOutput VRResolveEditingItem(const VRAdjustLayout& layout, CGSize sourceSize,
                                      const VROrientation& sourceOrientation,
                                      const VRAdjustAssetStateRef& state);

// The permitted direction for a method (0 stretch, 1 clip, 2 fit, 3 free), the item's size as
// shown and the frame's size: 15 for 3; 0 for stretch or an empty item; otherwise 3 when
// (method is not clip) differs from (the item is wider than the frame), else 12.
VRDisplacementDirection VRDisplacementPermittedDirection(std::int64_t arrangement, CGSize itemSize,
                                                         CGSize targetSize);
