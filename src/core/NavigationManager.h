// Walks a selection from the home screen through the size editor of each media type and the
// summary screen to the batch run, and back home. Screens don't call one another: each reports
// here and the manager decides which screen comes next, on the stack it is given. The process
// has one (`shared`); a front end that serves several clients makes one per client, each with
// its own stack. Main thread only; every callback runs on the main thread before the call that
// caused it returns.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "assets/VRAsset.h"
#include "core/Session.h"
#include "core/VRBatchServices.h"
#include "core/VRNavigationController.h"
#include "core/VRResultController.h"
#include "model/VRAdjustState.h"
#include "templates/VXTemplate.h"

// Told the outcome of the screen of a file opened from another application.
class VRExternalControllerDelegate {
  public:
    virtual ~VRExternalControllerDelegate() = default;
    // externalController:didFinishWithAsset:selectedTemplate: (no template when none was picked).
    virtual void externalControllerDidFinishWithAsset(const VRAssetRef& asset,
                                                      const VXTemplateRef& selectedTemplate) = 0;
};

// What the walk needs from outside itself. The defaults are the process's own objects; tests and
// front ends may hand in their own.
struct NavigationServices {
    // setSourceAlbumName: of the asset manager (empty for none).
    std::function<void(const std::string& name)> setSourceAlbumName;
    // Empties the folder of drawn file thumbnails.
    std::function<void()> clearThumbnailDirectories;
    std::function<void()> incrementRateInfoStarted;
    // saveRecentTemplate:targetAsset: of the template store.
    std::function<void(const VXTemplateRef& tpl, const VRAssetRef& targetAsset)> saveRecentTemplate;
    // What each batch run is given.
    std::function<VRBatchServices()> batchServices;

    static NavigationServices standard();
};

class NavigationManager {
  public:
    // Told `_needsReload` when the session ends.
    using Completion = std::function<void(bool needsReload)>;
    // The transition the summary and results screens are pushed with.
    static constexpr std::int64_t kScreenTransition = 4;
    // backAnimated:steps: with this many steps goes to the root.
    static constexpr std::size_t kStepsToRoot = 999;

    static NavigationManager& shared();
    explicit NavigationManager(NavigationServices services = NavigationServices::standard());
    NavigationManager(const NavigationManager&) = delete;
    NavigationManager& operator=(const NavigationManager&) = delete;

    // The stack the walk runs in; a new manager starts with a stack holding only home.
    const std::shared_ptr<VRNavigationController>& navController() const { return _navController; }
    void setNavController(std::shared_ptr<VRNavigationController> navController);
    // The events a front end wants of each batch run; the end of the run is the manager's own.
    void setResultControllerEvents(VRResultControllerEvents events) {
        _resultEvents = std::move(events);
    }

    // The walk in progress, or null.
    const SessionRef& session() const { return _session; }
    bool needsReload() const { return _needsReload; }
    // The selection in order; empty with no session.
    std::vector<VRAssetRef> sessionAssets() const;
    std::map<std::uint64_t, std::vector<VRAssetRef>> assetsForMediaType() const;
    std::map<std::uint64_t, std::size_t> numberOfAssetsForMediaType() const;

    // beginLegacyWith:template:source:completion:, for the older entry screens.
    bool beginLegacyWith(std::vector<VRAssetRef> assets, const VXTemplateRef& tpl,
                         VRSizeController::Source source, Completion completion);
    // The begin of the home flow: with `sourceFromTemplate` the source is 1 when a template is
    // given (straight to the summary screen), else 0, whatever `source` says.
    // Both answer whether a session began. One that can't be built (no photo or video in the
    // selection) ends the session in progress, whose completion is told, and keeps nothing of
    // the new one: its completion is never called.
    bool beginWith(std::vector<VRAssetRef> assets, const VXTemplateRef& tpl,
                   VRSizeController::Source source, const std::optional<std::string>& albumName,
                   bool sourceFromTemplate, Completion completion);

    // A modal titled "External " and the name of the asset's media type, with a "Cancel" button.
    void showExternalControllerWith(const VRAssetRef& asset,
                                    std::weak_ptr<VRExternalControllerDelegate> delegate,
                                    const std::function<void()>& completion = {});
    // The settings, modal when `presented`, else pushed; `finished` runs when they close.
    void showSettingsControllerWithProcessingDisabled(bool processingDisabled, bool presented,
                                                      std::function<void()> finished);
    // The settings of the summary screen, modal; the completion runs when they close.
    void showSummarySettingsControllerWithCompletion(std::function<void()> completion);
    void clearThumbnailDirectories();

    // What the screens report. A report from a screen that is no longer the one on top (a
    // second touch, a stale client) is ignored.
    // sizeController:didFinishWithTemplate:completion:; the editor's targetAsset is read.
    void sizeControllerDidFinishWithTemplate(const VRScreenRef& controller,
                                             const VXTemplateRef& tpl,
                                             const std::function<void()>& completion = {});
    void sizeControllerDidCancel(const VRScreenRef& controller);
    void summaryControllerDidFinishWithTemplate(const VRScreenRef& controller,
                                                const VXTemplateRef& tpl,
                                                std::shared_ptr<const VRAdjustState> adjustState,
                                                const std::function<void()>& completion = {});
    void summaryControllerDidCancelWithNeedsReload(const VRScreenRef& controller, bool needsReload);
    void summaryControllerDidRemoveTemplateAtIndex(const VRScreenRef& controller,
                                                   std::size_t index);
    // resultsController:didFinishWithAssets:reload:updatingSettings:. The batch run calls it
    // itself when it is left; the pending assets are not used here.
    void resultsControllerDidFinishWithAssets(const std::vector<VRAssetRef>& assets, bool reload,
                                              bool updatingSettings);
    // The external screen's template choice goes to its delegate; a cancel closes it.
    void externalControllerDidFinish(const VRScreenRef& controller,
                                     const VXTemplateRef& selectedTemplate);
    void externalControllerDidCancel(const VRScreenRef& controller);
    // The settings screen closed: it leaves and its `finished` runs.
    void settingsControllerDidFinish(const VRScreenRef& controller);

  private:
    bool _beginWith(std::vector<VRAssetRef> assets, const VXTemplateRef& tpl,
                    VRSizeController::Source source, const std::optional<std::string>& albumName,
                    Completion completion);
    // Storing a session clears _needsReload; storing none ends the walk: the completion is
    // told _needsReload and dropped.
    void _setSession(SessionRef session);
    // The size editor of the media type after `mediaType`; false when none is left.
    bool _pushSizeControllerAfter(std::uint64_t mediaType, const std::function<void()>& completion);
    void _pushSummaryController(const std::function<void()>& completion);
    // The three cancels: one step back, ending the walk first when that step reaches home.
    void _cancelBack();
    bool _isOnTop(const VRScreenRef& controller) const;

    NavigationServices _services;
    std::shared_ptr<VRNavigationController> _navController;
    SessionRef _session;
    Completion _completion;
    bool _needsReload = false;
    VRResultControllerEvents _resultEvents;
    // Callbacks held by the batch run find this expired once the manager is gone.
    std::shared_ptr<NavigationManager*> _self;
};
