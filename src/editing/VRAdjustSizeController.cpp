#include "editing/VRAdjustSizeController.h"

#include "editing/VRAdjustColors.h"
#include "model/VRFormatMediaType.h"
#include "platform/Log.h"

VRAdjustSizeController::VRAdjustSizeController(std::vector<VRAssetRef> assets,
                                               const VXTemplate& tpl, std::uint64_t mediaType) {
    _layout.mediaType = mediaType;
    _layout.sizeEntry = tpl.sizeEntryForMediaType(mediaType).value_or(VRSizeEntry());
    _layout.options = tpl.optionsForMediaType(mediaType).value_or(VRSizeOptions());
    _layout.format = tpl.formatForMediaType(mediaType);
    reloadWithAssets(std::move(assets));
}

const std::vector<std::string>& VRAdjustSizeController::colors() const {
    return VRAdjustColors::palette();
}

std::string VRAdjustSizeController::title() const {
    const std::string name = titleForMediaType(_layout.mediaType);
    if (_assets.empty()) return "No " + name + "s";
    return "Edit " + name + " " + std::to_string(_mainIndex + 1) + "/" +
           std::to_string(_assets.size());
}

void VRAdjustSizeController::setMainIndex(std::size_t index) {
    if (index >= _assets.size()) return;
    _mainIndex = index;
    _panning = false;
    announceDirection();
}

void VRAdjustSizeController::reloadWithAssets(std::vector<VRAssetRef> assets) {
    _assets = std::move(assets);
    _views.clear();
    for (const auto& asset : _assets) _views.emplace_back(asset);
    _mainIndex = _assets.empty() ? NSNotFound : 0;
    _panning = false;
    syncStates();
    announceDirection();
}

std::string VRAdjustSizeController::keyAt(std::size_t index) const {
    return index < _assets.size() && _assets[index] ? _assets[index]->objectIdentifier() : "";
}

VRAdjustAssetStateRef VRAdjustSizeController::currentState() const {
    if (_mainIndex >= _assets.size()) return nullptr;
    return _adjustState.stateWithKey(keyAt(_mainIndex));
}

const VREditingView* VRAdjustSizeController::editingViewAtIndex(std::size_t index) const {
    return index < _views.size() ? &_views[index] : nullptr;
}

VREditingView* VRAdjustSizeController::currentView() {
    return _mainIndex < _views.size() ? &_views[_mainIndex] : nullptr;
}

void VRAdjustSizeController::_recordCurrentState() {
    VREditingView* view = currentView();
    if (!view) return;
    _adjustState.addState(view->adjustState(), keyAt(_mainIndex));
    if (onStateUpdate) onStateUpdate(_mainIndex);
}

void VRAdjustSizeController::syncStates() {
    for (std::size_t i = 0; i < _views.size(); ++i)
        _views[i].restoreState(_adjustState.stateWithKey(keyAt(i)).get());
}

void VRAdjustSizeController::announceDirection() {
    if (_mainIndex >= _assets.size() || !onDisplacementDirection) return;
    onDisplacementDirection(displacementPermittedDirection());
}

VRDisplacementDirection VRAdjustSizeController::displacementPermittedDirection() const {
    const VREditingView* view = editingViewAtIndex(_mainIndex);
    return view ? view->displacementPermittedDirection(_layout) : VRDisplacementDirectionNone;
}

VREditingGeometry VRAdjustSizeController::geometryAtIndex(std::size_t index) const {
    const VREditingView* view = editingViewAtIndex(index);
    return view ? view->geometry(_layout) : VREditingGeometry{};
}

void VRAdjustSizeController::rotateRight() {
    VREditingView* view = currentView();
    if (!view) return;
    view->rotateClockwise(true);
    announceDirection();
    _recordCurrentState();
}

void VRAdjustSizeController::flipHorizontally() {
    VREditingView* view = currentView();
    if (!view) return;
    view->flipVertically(false);
    _recordCurrentState();
}

void VRAdjustSizeController::flipVertically() {
    VREditingView* view = currentView();
    if (!view) return;
    view->flipVertically(true);
    _recordCurrentState();
}

void VRAdjustSizeController::centerContent() {
    VREditingView* view = currentView();
    if (!view) return;
    view->centerContent();
    _recordCurrentState();
}

bool VRAdjustSizeController::beginPan(CGPoint translation, double screenScale) {
    VREditingView* view = currentView();
    _panning = false;
    if (!view) return false;
    const VREditingGeometry g = view->geometry(_layout);
    _actionView.prepare(g.innerDimensions, g.innerContentSize, view->innerDisplacement(),
                        screenScale);
    if (!_actionView.shouldBegin(translation)) return false;
    _actionView.beginPan();
    _panning = true;
    return true;
}

void VRAdjustSizeController::changePan(CGPoint translation, CGSize viewBounds) {
    VREditingView* view = currentView();
    if (!_panning || !view) return;
    view->setInnerDisplacement(_actionView.changePan(translation, viewBounds));
}

void VRAdjustSizeController::endPan() {
    if (!_panning) return;
    _panning = false;
    _recordCurrentState();
}

void VRAdjustSizeController::applyToAll() {
    if (_mainIndex >= _assets.size()) return;
    std::vector<std::string> keys;
    for (std::size_t i = 0; i < _assets.size(); ++i)
        if (i != _mainIndex) keys.push_back(keyAt(i));
    _adjustState.addStateToAllKeys(keys, keyAt(_mainIndex));
    syncStates();
}

void VRAdjustSizeController::undoAll() {
    _adjustState.undoAll();
    syncStates();
}

void VRAdjustSizeController::resetAll() {
    _adjustState.resetAll();
    syncStates();
}

void VRAdjustSizeController::resetCurrent() {
    if (_mainIndex >= _assets.size()) return;
    _adjustState.resetStateWithKey(keyAt(_mainIndex));
    syncStates();
}

void VRAdjustSizeController::undoCurrent() {
    if (_mainIndex >= _assets.size()) return;
    _adjustState.undoStateWithKey(keyAt(_mainIndex));
    syncStates();
}

void VRAdjustSizeController::performAction(std::int64_t action) {
    platform::log("~~ Action is touched");
    switch (action) {
        case undoAllAction:
            undoAll();
            break;
        case applyToAllAction:
            applyToAll();
            break;
        case resetAllAction:
            resetAll();
            break;
        default:
            break;
    }
}

void VRAdjustSizeController::setFillColor(const std::optional<VRColor>& color, bool colorPicked) {
    VREditingView* view = currentView();
    if (!view) return;
    view->setFillColor(color, colorPicked);
    _recordCurrentState();
}

void VRAdjustSizeController::selectColorAtIndex(std::size_t referenceIndex) {
    if (referenceIndex == 0 || referenceIndex >= colors().size()) return;
    setFillColor(VRAdjustColors::colorWithHexString(colors()[referenceIndex]), false);
}

void VRAdjustSizeController::setPickedColor(const VRColor& color) {
    setFillColor(color, true);
}

void VRAdjustSizeController::resetFillColor() {
    setFillColor(std::nullopt, false);
}

std::optional<std::size_t> VRAdjustSizeController::selectedColorIndex() const {
    const VREditingView* view = editingViewAtIndex(_mainIndex);
    if (!view) return std::nullopt;
    if (view->colorPicked()) return 0;
    if (!view->fillColor()) return std::nullopt;
    return VRAdjustColors::paletteIndexOfColor(*view->fillColor());
}

VRColor VRAdjustSizeController::displayedFillColorAtIndex(std::size_t index) const {
    const VREditingView* view = editingViewAtIndex(index);
    if (view && view->fillColor()) return *view->fillColor();
    return VRAdjustColors::defaultColor(_layout.mediaType);
}

std::string VRAdjustSizeController::defaultFillColorButtonTitle() const {
    return "Set " + titleForMediaType(_layout.mediaType) + " Default Fill Color";
}

std::string VRAdjustSizeController::defaultFillColorMessage() const {
    return "Do you want to set the default fill color for all " +
           titleForMediaType(_layout.mediaType) +
           "s? This will apply to the current and future editing sessions. You can reset or "
           "change it later using the same menu.";
}

void VRAdjustSizeController::setFillColorAsDefault() {
    auto state = currentState();
    if (!state || !state->fillColor()) return;
    VRAdjustColors::setStoredDefaultColor(_layout.mediaType, state->fillColor());
}

void VRAdjustSizeController::resetDefaultFillColor() {
    VRAdjustColors::setStoredDefaultColor(_layout.mediaType, std::nullopt);
}

bool VRAdjustSizeController::menuCurrentDisabled() const {
    return currentState() == nullptr;
}

bool VRAdjustSizeController::menuAllDisabled() const {
    return _adjustState.stateArrays().empty();
}

VRAdjustMenuState VRAdjustSizeController::menuState() const {
    VRAdjustMenuState menu;
    if (_mainIndex >= _assets.size()) return menu;
    const bool current = !menuCurrentDisabled();
    const bool all = !menuAllDisabled();
    menu.applyToAll = current && _assets.size() > 1;
    menu.undoAll = all;
    menu.resetAll = all;
    menu.resetCurrent = current;
    menu.setFillColorAsDefault = current && currentState()->fillColor().has_value();
    menu.resetDefaultFillColor = VRAdjustColors::storedDefaultColor(_layout.mediaType).has_value();
    menu.rotateAndFlip = true;
    const CGPoint shift = _views[_mainIndex].innerDisplacement();
    menu.center = shift.x != 0 || shift.y != 0;
    return menu;
}
