#include "editing/VREditingView.h"

#include <limits>

#include "video/LegacyManager.h"

VRImageArrangement VRAdjustLayout::resizeMethod() const {
    if (containsOption(options, VRSizeOptionRatioClip)) return VRImageArrangement::fill;
    if (containsOption(options, VRSizeOptionRatioFit)) return VRImageArrangement::fit;
    return VRImageArrangement::stretch;
}

void VREditingView::rotateClockwise(bool clockwise) {
    const CGPoint stored = displacement();
    if (!_orientation) _orientation = VROrientation();
    _orientation->rotateClockwise(clockwise);
    restoreDisplacement(stored);
}

void VREditingView::flipVertically(bool vertically) {
    const CGPoint stored = displacement();
    if (!_orientation) _orientation = VROrientation();
    _orientation->flipVertically(vertically);
    restoreDisplacement(stored);
}

CGPoint VREditingView::displacement() const {
    return displacementFromScreenDisplacement(_innerDisplacement,
                                              _orientation.value_or(VROrientation()));
}

void VREditingView::restoreDisplacement(CGPoint stored) {
    VROrientation simplified = _orientation.value_or(VROrientation());
    simplified.simplify();
    _innerDisplacement = displacementForOrientation(stored, simplified);
}

VRAdjustAssetStateRef VREditingView::adjustState() const {
    auto state = std::make_shared<VRAdjustAssetState>();
    state->setOrientation(_orientation);
    state->setDisplacement(displacement());
    state->setFillColor(_fillColor);
    state->setColorPicked(_colorPicked);
    return state;
}

void VREditingView::restoreState(const VRAdjustAssetState* state) {
    _orientation = state ? state->orientation() : std::nullopt;
    _fillColor = state ? state->fillColor() : std::nullopt;
    _colorPicked = state && state->colorPicked();
    restoreDisplacement(state ? state->displacement() : CGPoint{});
}

VREditingGeometry VREditingView::geometry(const VRAdjustLayout& layout) const {
    VREditingGeometry g;
    if (!_asset) return g;
    const CGSize item = _asset->pixelSize();
    auto state = std::make_shared<VRAdjustAssetState>();
    state->setOrientation(_orientation);
    const VRResolvedOutput out = VRResolveEditingItem(layout, item, VROrientation(), state);
    g.innerDimensions = out.imageFrame.size;
    g.innerContentSize = out.pictureSize;
    const bool turned = _orientation && _orientation->isRotated();
    g.itemSize = turned ? CGSize{item.height, item.width} : item;
    return g;
}

VRDisplacementDirection VREditingView::displacementPermittedDirection(
    const VRAdjustLayout& layout) const {
    if (!_asset) return VRDisplacementDirectionNone;
    const VREditingGeometry g = geometry(layout);
    return VRDisplacementPermittedDirection(static_cast<std::int64_t>(layout.resizeMethod()),
                                            g.itemSize, g.innerDimensions);
}

VRDisplacementDirection VRDisplacementPermittedDirection(std::int64_t arrangement, CGSize itemSize,
                                                         CGSize targetSize) {
    if (arrangement == 3) return VRDisplacementDirectionAll;
    if (arrangement != 1 && arrangement != 2) return VRDisplacementDirectionNone;
    if (itemSize.width <= 0 || itemSize.height <= 0) return VRDisplacementDirectionNone;
    const double itemRatio = itemSize.width / itemSize.height;
    const double targetRatio = targetSize.height > 0 ? targetSize.width / targetSize.height : 0;
    const bool wider = itemRatio > targetRatio;
    return (arrangement != 1) != wider ? VRDisplacementDirectionHorizontal
                                       : VRDisplacementDirectionVertical;
}

VRResolvedOutput VRResolveEditingItem(const VRAdjustLayout& layout, CGSize sourceSize,
                                      const VROrientation& sourceOrientation,
                                      const VRAdjustAssetStateRef& state) {
    // Both media are placed on the screen as the photo stage places a photo.
    VRResolveRequest request;
    request.mediaType = VRFormatMediaTypePhoto;
    request.sizeEntry = layout.sizeEntry;
    if (layout.mediaType == VRFormatMediaTypeVideo) request.sizeEntry.setOutputRounding(2);
    request.options = layout.options;
    request.format = layout.format;
    request.sourceSize = sourceSize;
    request.sourceOrientation = sourceOrientation;
    request.adjustState = state;
    request.defaultPhotoColor = LegacyManager::defaultPhotoColor();
    const double unlimited = std::numeric_limits<double>::max() / 4;
    request.limits = {{unlimited, unlimited}, {unlimited, unlimited}, {0, 0}};
    return VXHelper::resolveOutput(request);
}
