#include "model/VRAdjustAssetState.h"

#include <functional>

bool VRAdjustAssetState::isEmpty() const {
    return !_orientation && !_fillColor && _displacement == CGPointZero;
}

std::shared_ptr<VRAdjustAssetState> VRAdjustAssetState::copy() const {
    auto state = std::make_shared<VRAdjustAssetState>(*this);
    state->_colorPicked = false;
    return state;
}

bool VRAdjustAssetState::isEqualToState(const VRAdjustAssetState& other) const {
    if (!_orientation || !other._orientation || !_fillColor || !other._fillColor) return false;
    return _orientation->isEqualToOrientation(*other._orientation) &&
           _displacement == other._displacement && *_fillColor == *other._fillColor;
}

std::size_t VRAdjustAssetState::hash() const {
    std::hash<double> h;
    const std::size_t orientation = _orientation ? _orientation->hash() : 0;
    const std::size_t displacement = h(_displacement.x) * 31 + h(_displacement.y);
    std::size_t color = 0;
    if (_fillColor) {
        for (double c : {_fillColor->red, _fillColor->green, _fillColor->blue, _fillColor->alpha})
            color = color * 31 + h(c);
    }
    return orientation + displacement + color + 31;
}
