#include "editing/VRDisplacementActionView.h"

#include <algorithm>
#include <cmath>

namespace {

double snapped(double v, double scale) {
    const double s = 1 / (scale > 0 ? scale : 1);
    return s * std::round(v / s);
}

}  // namespace

void VRDisplacementActionView::prepare(CGSize innerDimensions, CGSize innerContentSize,
                                       CGPoint displacement, double screenScale) {
    _innerDimensions = innerDimensions;
    _margin = {snapped(innerDimensions.width - innerContentSize.width, screenScale),
               snapped(innerDimensions.height - innerContentSize.height, screenScale)};
    _maxDisplacement = {std::fabs(_margin.width) * 0.5, std::fabs(_margin.height) * 0.5};
    _displacement = displacement;
}

bool VRDisplacementActionView::shouldBegin(CGPoint translation) const {
    if (!_gesturesEnabled) return false;
    if (std::fabs(translation.x) <= 0.001 && std::fabs(translation.y) <= 0.001) return false;
    const bool vertical = std::fabs(translation.y) > std::fabs(translation.x);
    const bool verticalAllowed = std::fabs(_margin.height) > std::fabs(_margin.width);
    return vertical == verticalAllowed;
}

void VRDisplacementActionView::beginPan() {
    _cachedDisplacement = _displacement;
}

CGPoint VRDisplacementActionView::changePan(CGPoint translation, CGSize viewBounds) {
    const double bx = viewBounds.width == 0 ? 1 : viewBounds.width;
    const double by = viewBounds.height == 0 ? 1 : viewBounds.height;
    const double x = _cachedDisplacement.x + translation.x * _innerDimensions.width / bx;
    const double y = _cachedDisplacement.y + translation.y * _innerDimensions.height / by;
    _displacement = {std::clamp(x, -_maxDisplacement.width, _maxDisplacement.width),
                     std::clamp(y, -_maxDisplacement.height, _maxDisplacement.height)};
    return _displacement;
}
