// The state of the home flow, headless: the selection and where it came from, the template picked
// for it, import items put off until the home screen can take them, the file opened from another
// application, and the reload marks the home screen's lists follow. It starts editing walks
// through its navigation manager and is told when they end. Main thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "assets/VRAsset.h"
#include "assets/VRCollection.h"
#include "assets/VRImportManager.h"
#include "core/NavigationManager.h"
#include "templates/VXTemplate.h"

// What the home flow needs of the launch state. The application wires it to VRLaunchManager
// and makes the home flow the launch manager's delegate, so that a waiting file is delivered
// through launchManagerDidRequestExtenralURL (again when the tutorial completes).
struct HomeLaunchLink {
    // tutorialState: 0 not running, 1 running, 2 finished in this process. Absent reads 0.
    std::function<std::int64_t()> tutorialState;
};

class HomeNavigation : public VRExternalControllerDelegate,
                       public std::enable_shared_from_this<HomeNavigation> {
  public:
    // The manager must outlive the home flow.
    static std::shared_ptr<HomeNavigation> create(NavigationManager& manager,
                                                  HomeLaunchLink launch = {});

    const std::vector<VRAssetRef>& selectedAssets() const { return _selectedAssets; }
    void setSelectedAssets(std::vector<VRAssetRef> assets) { _selectedAssets = std::move(assets); }
    const std::optional<VRCollection>& sourceAlbum() const { return _sourceAlbum; }
    void setSourceAlbum(std::optional<VRCollection> album) { _sourceAlbum = std::move(album); }
    const VXTemplateRef& selectedTemplate() const { return _selectedTemplate; }
    void setSelectedTemplate(VXTemplateRef tpl) { _selectedTemplate = std::move(tpl); }
    VRSizeController::Source editingSource() const { return _editingSource; }
    void setEditingSource(VRSizeController::Source source) { _editingSource = source; }
    std::int64_t alertType() const { return _alertType; }
    void setAlertType(std::int64_t type) { _alertType = type; }
    const std::optional<VRImportItem>& selectedDelayedItem() const { return _selectedDelayedItem; }
    void setSelectedDelayedItem(std::optional<VRImportItem> item) {
        _selectedDelayedItem = std::move(item);
    }
    std::int64_t selectedSection() const { return _selectedSection; }
    void setSelectedSection(std::int64_t section) { _selectedSection = section; }
    // Who opened the home flow, and what it is told: onClose when the flow is closed, onFinish
    // with needsReload when a walk it started ends.
    std::string caller;
    std::function<void()> onClose;
    std::function<void(bool needsReload)> onFinish;

    // Starts a walk with the selection, the source album's name and the selected template; the
    // source follows the template (1 with one, straight to the summary; 0 without). The walk's
    // end reaches this flow only while it lives. False when no walk began.
    bool startSession();
    // The front end closes the flow.
    void close();

    // Marks that change when a list of the home screen must be read again: the root list (new
    // results) and the recent templates.
    std::uint64_t rootReloadID() const { return _rootReloadID; }
    std::uint64_t recentReloadID() const { return _recentReloadID; }

    // Import items that arrive while a walk runs or before the home screen first appeared wait
    // here; the loader takes them when the home screen appears with no walk in progress.
    const std::optional<std::vector<VRImportItem>>& postponedImportItems() const {
        return _postponedImportItems;
    }
    void postponeImportItems(std::vector<VRImportItem> items);
    std::function<void(std::vector<VRImportItem> items)> loadPostponedItems;
    const std::optional<std::string>& temporaryCameraAssetURL() const {
        return _temporaryCameraAssetURL;
    }
    void setTemporaryCameraAssetURL(std::optional<std::string> url) {
        _temporaryCameraAssetURL = std::move(url);
    }

    // launchManagerDidRequestExtenralURL: the file becomes the pending external asset, offered
    // once the home screen has appeared and no tutorial runs.
    void launchManagerDidRequestExtenralURL(const std::string& url);
    const VRAssetRef& externalPendingAsset() const { return _externalPendingAsset; }
    // The home screen appeared: a waiting file is offered, postponed items are loaded.
    void viewDidAppear();

    // The external screen's choice: it closes, then a walk begins with the one asset.
    void externalControllerDidFinishWithAsset(const VRAssetRef& asset,
                                              const VXTemplateRef& selectedTemplate) override;

    HomeNavigation(NavigationManager& manager, HomeLaunchLink launch);

  private:
    bool _beginWith(std::vector<VRAssetRef> assets, const VXTemplateRef& tpl,
                    const std::optional<std::string>& albumName);
    void _sessionDidEnd(bool needsReload);
    void _presentExternalPendingAsset();
    void _loadPostponedItemsIfPossible();

    NavigationManager& _manager;
    HomeLaunchLink _launch;
    std::vector<VRAssetRef> _selectedAssets;
    std::optional<VRCollection> _sourceAlbum;
    VXTemplateRef _selectedTemplate;
    VRSizeController::Source _editingSource = 0;
    std::int64_t _alertType = 0;
    std::optional<VRImportItem> _selectedDelayedItem;
    std::optional<std::vector<VRImportItem>> _postponedImportItems;
    std::optional<std::string> _temporaryCameraAssetURL;
    std::uint64_t _recentReloadID = 0;
    std::uint64_t _rootReloadID = 0;
    std::int64_t _selectedSection = 0;
    VRAssetRef _externalPendingAsset;
    bool _appeared = false;
};
