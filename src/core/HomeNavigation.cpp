#include "core/HomeNavigation.h"

#include <utility>

#include "assets/VRURLAsset.h"

std::shared_ptr<HomeNavigation> HomeNavigation::create(NavigationManager& manager,
                                                       HomeLaunchLink launch) {
    return std::make_shared<HomeNavigation>(manager, std::move(launch));
}

HomeNavigation::HomeNavigation(NavigationManager& manager, HomeLaunchLink launch)
    : _manager(manager), _launch(std::move(launch)) {}

bool HomeNavigation::startSession() {
    std::optional<std::string> albumName;
    if (_sourceAlbum && _sourceAlbum->type() != VRCollectionTypeNone) {
        albumName = _sourceAlbum->localizedTitle();
    }
    return _beginWith(_selectedAssets, _selectedTemplate, albumName);
}

bool HomeNavigation::_beginWith(std::vector<VRAssetRef> assets, const VXTemplateRef& tpl,
                                const std::optional<std::string>& albumName) {
    _editingSource = tpl ? 1 : 0;
    std::weak_ptr<HomeNavigation> weak = weak_from_this();
    return _manager.beginWith(std::move(assets), tpl, _editingSource, albumName, true,
                              [weak](bool needsReload) {
                                  if (auto home = weak.lock()) home->_sessionDidEnd(needsReload);
                              });
}

void HomeNavigation::close() {
    if (auto handler = onClose) handler();
}

void HomeNavigation::_sessionDidEnd(bool needsReload) {
    if (needsReload) {
        // A run made results and put its template first among the recents.
        ++_rootReloadID;
        ++_recentReloadID;
    }
    if (auto handler = onFinish) handler(needsReload);
    _loadPostponedItemsIfPossible();
}

void HomeNavigation::postponeImportItems(std::vector<VRImportItem> items) {
    if (!_postponedImportItems) _postponedImportItems.emplace();
    for (auto& item : items) _postponedImportItems->push_back(std::move(item));
    _loadPostponedItemsIfPossible();
}

void HomeNavigation::_loadPostponedItemsIfPossible() {
    if (!_appeared || _manager.session() || !_postponedImportItems || !loadPostponedItems) return;
    std::vector<VRImportItem> items = std::move(*_postponedImportItems);
    _postponedImportItems.reset();
    loadPostponedItems(std::move(items));
}

void HomeNavigation::launchManagerDidRequestExtenralURL(const std::string& url) {
    if (url.empty()) return;
    _externalPendingAsset = VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(url));
    _presentExternalPendingAsset();
}

void HomeNavigation::viewDidAppear() {
    _appeared = true;
    _presentExternalPendingAsset();
    _loadPostponedItemsIfPossible();
}

void HomeNavigation::_presentExternalPendingAsset() {
    if (!_externalPendingAsset || !_appeared) return;
    // The tutorial walks over the real screens: the file waits until it is over.
    if (_launch.tutorialState && _launch.tutorialState() == 1) return;
    auto& navController = *_manager.navController();
    if (navController.viewControllers().size() >= 2) {
        navController.backAnimated(true, NavigationManager::kStepsToRoot);
    }
    VRAssetRef asset = std::exchange(_externalPendingAsset, nullptr);
    _manager.showExternalControllerWith(asset, weak_from_this());
}

void HomeNavigation::externalControllerDidFinishWithAsset(const VRAssetRef& asset,
                                                          const VXTemplateRef& selectedTemplate) {
    std::weak_ptr<HomeNavigation> weak = weak_from_this();
    _manager.navController()->dismissViewControllerAnimated(true, [weak, asset, selectedTemplate] {
        if (auto home = weak.lock()) home->_beginWith({asset}, selectedTemplate, std::nullopt);
    });
}
