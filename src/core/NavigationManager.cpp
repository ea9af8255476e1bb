#include "core/NavigationManager.h"

#include <utility>

#include "model/VRFormatMediaType.h"

NavigationManager& NavigationManager::shared() {
    static NavigationManager* manager = new NavigationManager();
    return *manager;
}

NavigationManager::NavigationManager(NavigationServices services)
    : _services(std::move(services)),
      _navController(std::make_shared<VRNavigationController>()),
      _self(std::make_shared<NavigationManager*>(this)) {}

void NavigationManager::setNavController(std::shared_ptr<VRNavigationController> navController) {
    _navController =
        navController ? std::move(navController) : std::make_shared<VRNavigationController>();
}

std::vector<VRAssetRef> NavigationManager::sessionAssets() const {
    return _session ? _session->assets() : std::vector<VRAssetRef>{};
}

std::map<std::uint64_t, std::vector<VRAssetRef>> NavigationManager::assetsForMediaType() const {
    std::map<std::uint64_t, std::vector<VRAssetRef>> result;
    if (!_session) return result;
    for (const auto& [mediaType, items] : _session->items()) result[mediaType] = items.assets;
    return result;
}

std::map<std::uint64_t, std::size_t> NavigationManager::numberOfAssetsForMediaType() const {
    std::map<std::uint64_t, std::size_t> result;
    if (!_session) return result;
    for (const auto& [mediaType, items] : _session->items()) {
        result[mediaType] = items.assets.size();
    }
    return result;
}

bool NavigationManager::beginLegacyWith(std::vector<VRAssetRef> assets, const VXTemplateRef& tpl,
                                        VRSizeController::Source source, Completion completion) {
    return _beginWith(std::move(assets), tpl, source, std::nullopt, std::move(completion));
}

bool NavigationManager::beginWith(std::vector<VRAssetRef> assets, const VXTemplateRef& tpl,
                                  VRSizeController::Source source,
                                  const std::optional<std::string>& albumName,
                                  bool sourceFromTemplate, Completion completion) {
    if (sourceFromTemplate) source = tpl ? 1 : 0;
    return _beginWith(std::move(assets), tpl, source, albumName, std::move(completion));
}

bool NavigationManager::_beginWith(std::vector<VRAssetRef> assets, const VXTemplateRef& tpl,
                                   VRSizeController::Source source,
                                   const std::optional<std::string>& albumName,
                                   Completion completion) {
    SessionRef session = Session::sessionWithAssets(std::move(assets), tpl, source);
    _setSession(session);
    if (!session) return false;
    _completion = std::move(completion);
    clearThumbnailDirectories();
    if (_services.setSourceAlbumName) _services.setSourceAlbumName(albumName.value_or(""));
    if (source == 1) {
        // The template was chosen beforehand: nothing to size, straight to the summary.
        session->chooseTargetAsset();
        _pushSummaryController({});
    } else {
        _pushSizeControllerAfter(VRFormatMediaTypeNone, {});
    }
    return true;
}

void NavigationManager::_setSession(SessionRef session) {
    _session = std::move(session);
    if (_session) {
        _needsReload = false;
        return;
    }
    // Taken out first: the completion may begin the next walk.
    Completion completion = std::exchange(_completion, nullptr);
    if (completion) completion(_needsReload);
}

bool NavigationManager::_pushSizeControllerAfter(std::uint64_t mediaType,
                                                 const std::function<void()>& completion) {
    const std::uint64_t next = _session ? _session->nextMediaTypeAfter(mediaType) : 0;
    const MediaItems* items = next ? _session->itemsForMediaType(next) : nullptr;
    if (!items) return false;
    VRSizeEditorScreen editor;
    editor.source = _session->source();
    editor.tpl = _session->tpl();
    editor.assets = items->assets;
    editor.assetsShapes = items->shapes;
    editor.mediaType = next;
    editor.targetAsset = items->assets.front();
    _navController->pushViewController(std::make_shared<VRScreen>(std::move(editor)), 0, true,
                                       completion);
    return true;
}

void NavigationManager::_pushSummaryController(const std::function<void()>& completion) {
    VRSummaryScreen summary;
    summary.tpl = _session->tpl() ? _session->tpl() : VXTemplate::create();
    summary.assets = _session->assets();
    summary.targetAsset = _session->targetAsset();
    _navController->pushViewController(std::make_shared<VRScreen>(std::move(summary)),
                                       kScreenTransition, true, completion);
}

bool NavigationManager::_isOnTop(const VRScreenRef& controller) const {
    return controller && controller == _navController->topViewController();
}

void NavigationManager::sizeControllerDidFinishWithTemplate(
    const VRScreenRef& controller, const VXTemplateRef& tpl,
    const std::function<void()>& completion) {
    const VRSizeEditorScreen* editor = controller ? controller->sizeEditor() : nullptr;
    if (!_session || !editor || !_isOnTop(controller)) {
        if (completion) completion();
        return;
    }
    // The photo editor's target wins: the video editor only fills in a missing one.
    if (editor->mediaType == VRFormatMediaTypePhoto) {
        _session->setTargetAsset(editor->targetAsset);
    } else if (editor->mediaType == VRFormatMediaTypeVideo && !_session->targetAsset()) {
        _session->setTargetAsset(editor->targetAsset);
    }
    if (!_session->tpl()) {
        _session->setTemplate(tpl);
    } else if (tpl) {
        _session->tpl()->updateFromTemplate(*tpl, editor->mediaType);
    }
    if (!_pushSizeControllerAfter(editor->mediaType, completion)) {
        _pushSummaryController(completion);
    }
}

void NavigationManager::_cancelBack() {
    const VRScreenRef previous = _navController->previousViewController();
    if (previous && previous->kind() == VRScreenKind::home) _setSession(nullptr);
    _navController->backAnimated(true);
}

void NavigationManager::sizeControllerDidCancel(const VRScreenRef& controller) {
    if (_isOnTop(controller) && controller->sizeEditor()) _cancelBack();
}

void NavigationManager::summaryControllerDidCancelWithNeedsReload(const VRScreenRef& controller,
                                                                  bool needsReload) {
    if (!_isOnTop(controller) || !controller->summary()) return;
    if (needsReload) _needsReload = true;
    _cancelBack();
}

void NavigationManager::summaryControllerDidRemoveTemplateAtIndex(const VRScreenRef& controller,
                                                                  std::size_t /*index*/) {
    if (_isOnTop(controller) && controller->summary()) _cancelBack();
}

void NavigationManager::summaryControllerDidFinishWithTemplate(
    const VRScreenRef& controller, const VXTemplateRef& tpl,
    std::shared_ptr<const VRAdjustState> adjustState, const std::function<void()>& completion) {
    if (!_session || !tpl || !controller || !controller->summary() || !_isOnTop(controller)) {
        if (completion) completion();
        return;
    }
    VRResultControllerEvents events = _resultEvents;
    events.didFinishWithAssets = [self = std::weak_ptr<NavigationManager*>(_self)](
                                     const std::vector<VRAssetRef>& assets, bool reload,
                                     bool settingsUpdated) {
        if (auto manager = self.lock()) {
            (*manager)->resultsControllerDidFinishWithAssets(assets, reload, settingsUpdated);
        }
    };
    auto results = std::make_shared<VRResultController>(
        _session->assets(), tpl, std::move(adjustState), std::move(events),
        _services.batchServices ? _services.batchServices() : VRBatchServices::standard());
    _navController->pushViewController(std::make_shared<VRScreen>(std::move(results)),
                                       kScreenTransition, true, completion);
    if (_services.incrementRateInfoStarted) _services.incrementRateInfoStarted();
    // The recents keep a copy of their own, under an identifier of their own.
    if (_services.saveRecentTemplate) {
        _services.saveRecentTemplate(tpl->newTemplate(), _session->targetAsset());
    }
}

void NavigationManager::resultsControllerDidFinishWithAssets(
    const std::vector<VRAssetRef>& /*assets*/, bool /*reload*/, bool /*updatingSettings*/) {
    // Whatever the run made or didn't, the home screen reloads.
    _needsReload = true;
    _setSession(nullptr);
    _navController->backAnimated(true, kStepsToRoot);
}

void NavigationManager::showExternalControllerWith(
    const VRAssetRef& asset, std::weak_ptr<VRExternalControllerDelegate> delegate,
    const std::function<void()>& completion) {
    if (!asset) {
        if (completion) completion();
        return;
    }
    VRExternalScreen external;
    external.asset = asset;
    external.title = "External " + titleForMediaType(asset->mediaType());
    external.cancelButtonTitle = "Cancel";
    external.delegate = std::move(delegate);
    _navController->presentViewController(std::make_shared<VRScreen>(std::move(external)), true,
                                          completion);
}

void NavigationManager::externalControllerDidFinish(const VRScreenRef& controller,
                                                    const VXTemplateRef& selectedTemplate) {
    if (!controller || controller != _navController->presentedViewController()) return;
    const VRExternalScreen* external = controller->external();
    if (!external) return;
    if (auto delegate = external->delegate.lock()) {
        delegate->externalControllerDidFinishWithAsset(external->asset, selectedTemplate);
    } else {
        _navController->dismissViewControllerAnimated(true);
    }
}

void NavigationManager::externalControllerDidCancel(const VRScreenRef& controller) {
    if (controller && controller == _navController->presentedViewController() &&
        controller->external()) {
        _navController->dismissViewControllerAnimated(true);
    }
}

void NavigationManager::showSettingsControllerWithProcessingDisabled(
    bool processingDisabled, bool presented, std::function<void()> finished) {
    VRSettingsScreen settings;
    settings.processingDisabled = processingDisabled;
    settings.finished = std::move(finished);
    auto screen = std::make_shared<VRScreen>(std::move(settings));
    if (presented) {
        _navController->presentViewController(std::move(screen), true);
    } else {
        _navController->pushViewController(std::move(screen), 0, true);
    }
}

void NavigationManager::showSummarySettingsControllerWithCompletion(
    std::function<void()> completion) {
    VRSettingsScreen settings;
    settings.summarySettings = true;
    settings.finished = std::move(completion);
    _navController->presentViewController(std::make_shared<VRScreen>(std::move(settings)), true);
}

void NavigationManager::settingsControllerDidFinish(const VRScreenRef& controller) {
    VRSettingsScreen* settings = controller ? controller->settings() : nullptr;
    if (!settings) return;
    if (controller == _navController->presentedViewController()) {
        _navController->dismissViewControllerAnimated(true);
    } else if (_isOnTop(controller)) {
        _navController->backAnimated(true);
    } else {
        return;
    }
    if (auto finished = std::exchange(settings->finished, nullptr)) finished();
}

void NavigationManager::clearThumbnailDirectories() {
    if (_services.clearThumbnailDirectories) _services.clearThumbnailDirectories();
}
