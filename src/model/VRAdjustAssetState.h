// What the user did to one asset in the adjust screen: turns and mirrors, the picture's shift
// inside its frame and the fill colour. Shared between keys of a VRAdjustState and read by the
// pipelines, so it is held as std::shared_ptr<const VRAdjustAssetState> once added.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>

#include "model/VRColor.h"
#include "model/VROrientation.h"
#include "platform/Geometry.h"

class VRAdjustAssetState {
  public:
    VRAdjustAssetState() = default;

    // User-interface state: the fill colour was taken from the image with the picker.
    bool colorPicked() const { return _colorPicked; }
    void setColorPicked(bool v) { _colorPicked = v; }
    // Absent means no turn.
    const std::optional<VROrientation>& orientation() const { return _orientation; }
    void setOrientation(std::optional<VROrientation> v) { _orientation = v; }
    // Absent means the default fill of the pipelines.
    const std::optional<VRColor>& fillColor() const { return _fillColor; }
    void setFillColor(std::optional<VRColor> v) { _fillColor = v; }
    // In output pixels.
    CGPoint displacement() const { return _displacement; }
    void setDisplacement(CGPoint v) { _displacement = v; }

    // No orientation, no fill colour and no displacement; colorPicked does not count.
    bool isEmpty() const;
    // The system's copy: every field but colorPicked, which the copy has false.
    std::shared_ptr<VRAdjustAssetState> copy() const;
    // Equal orientation, displacement and fill colour. An absent orientation or fill colour
    // compares unequal to anything, so such a state equals no state, itself included.
    bool isEqualToState(const VRAdjustAssetState& other) const;
    std::size_t hash() const;

  private:
    bool _colorPicked = false;
    std::optional<VROrientation> _orientation;
    std::optional<VRColor> _fillColor;
    CGPoint _displacement;
};

using VRAdjustAssetStateRef = std::shared_ptr<const VRAdjustAssetState>;
