// Turns a finger's movement over the adjust view into a displacement of the item, in output
// pixels, bounded by the item's free margin. The adjust session owns one; the front end hands
// in the translations in view points, the view's size and the screen's scale.
#pragma once

#include "platform/Geometry.h"

class VRDisplacementActionView {
  public:
    // When a gesture begins: the output size, the picture's size inside it (both in output
    // pixels), the item's current displacement and the screen's points-to-pixels scale.
    // _maxDisplacement is half the margin on each axis, the margin snapped to the screen's
    // pixel grid first (s = 1 / scale; snap(v) = s x round(v / s), halves away from zero).
    void prepare(CGSize innerDimensions, CGSize innerContentSize, CGPoint displacement,
                 double screenScale);
    // displacementActionView:shouldBeginUpdatesVertically: a gesture whose translation
    // exceeds 0.001 on either axis begins only along the axis with the larger free margin
    // (vertical when its absolute y exceeds its absolute x). False for any other, and while
    // gestures are disabled.
    bool shouldBegin(CGPoint translation) const;
    // The pan: begin remembers the displacement; each change adds the translation since the
    // beginning, in view points turned into output pixels by innerDimensions / viewBounds per
    // axis (a bound of 0 counts as 1), to it and limits each axis to plus or minus the
    // maximum. The displacement after the change.
    void beginPan();
    CGPoint changePan(CGPoint translation, CGSize viewBounds);

    CGPoint displacement() const { return _displacement; }
    CGSize maxDisplacement() const { return _maxDisplacement; }
    CGSize innerDimensions() const { return _innerDimensions; }
    bool gesturesEnabled() const { return _gesturesEnabled; }
    void setGesturesEnabled(bool v) { _gesturesEnabled = v; }

  private:
    CGPoint _displacement;
    CGPoint _cachedDisplacement;
    CGSize _maxDisplacement;
    CGSize _innerDimensions;
    // The snapped margins, signed, which decide the axis of a gesture.
    CGSize _margin;
    bool _gesturesEnabled = true;
};
