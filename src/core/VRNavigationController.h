// The stack of screens an editing walk runs in, headless: the home screen at the root, the
// screens pushed over it, and at most one modal screen presented on top. The navigation manager
// and the home flow change it; a front end draws the screen on top (or the modal) whenever it
// is told the stack changed, and reports the user's answers back to the manager. Main thread
// only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "assets/VRAsset.h"
#include "editing/VRSizeController.h"
#include "templates/VXTemplate.h"

class VRResultController;
class VRExternalControllerDelegate;

enum class VRScreenKind { home, sizeEditor, summary, results, external, settings };

// The size editor for one media type of the session.
struct VRSizeEditorScreen {
    VRSizeController::Source source = 0;
    VXTemplateRef tpl;
    std::vector<VRAssetRef> assets;
    std::set<std::uint64_t> assetsShapes;
    std::uint64_t mediaType = 0;
    // The asset the editor shapes the template on: the first of its assets until the front end
    // sets the one the user previews.
    VRAssetRef targetAsset;
};

// The summary screen: the whole selection with the template and per-item adjustments.
struct VRSummaryScreen {
    VXTemplateRef tpl;
    std::vector<VRAssetRef> assets;
    VRAssetRef targetAsset;
};

// A file opened from another application, offered with a choice of template.
struct VRExternalScreen {
    VRAssetRef asset;
    // "External " and the name of the asset's media type.
    std::string title;
    std::string cancelButtonTitle;
    std::weak_ptr<VRExternalControllerDelegate> delegate;
};

struct VRSettingsScreen {
    bool processingDisabled = false;
    // The settings opened from the summary screen.
    bool summarySettings = false;
    // Called once when the front end reports the screen closed.
    std::function<void()> finished;
};

class VRScreen {
  public:
    using Content =
        std::variant<std::monostate, VRSizeEditorScreen, VRSummaryScreen,
                     std::shared_ptr<VRResultController>, VRExternalScreen, VRSettingsScreen>;

    // Every screen gets a number of its own, so a front end can tell a new screen of the same
    // kind from the one it drew before.
    explicit VRScreen(Content content);
    static std::shared_ptr<VRScreen> homeScreen() { return std::make_shared<VRScreen>(Content{}); }

    VRScreenKind kind() const;
    std::uint64_t identifier() const { return _identifier; }
    // How the screen was brought in (pushViewController's transition) and whether animated.
    std::int64_t transition() const { return _transition; }
    bool animated() const { return _animated; }
    void setTransition(std::int64_t transition, bool animated) {
        _transition = transition;
        _animated = animated;
    }

    // The content of the screen's kind; null for another kind.
    VRSizeEditorScreen* sizeEditor() { return std::get_if<VRSizeEditorScreen>(&_content); }
    const VRSizeEditorScreen* sizeEditor() const {
        return std::get_if<VRSizeEditorScreen>(&_content);
    }
    const VRSummaryScreen* summary() const { return std::get_if<VRSummaryScreen>(&_content); }
    VRSummaryScreen* summary() { return std::get_if<VRSummaryScreen>(&_content); }
    std::shared_ptr<VRResultController> results() const;
    const VRExternalScreen* external() const { return std::get_if<VRExternalScreen>(&_content); }
    VRSettingsScreen* settings() { return std::get_if<VRSettingsScreen>(&_content); }
    const VRSettingsScreen* settings() const { return std::get_if<VRSettingsScreen>(&_content); }

  private:
    Content _content;
    std::uint64_t _identifier;
    std::int64_t _transition = 0;
    bool _animated = false;
};

using VRScreenRef = std::shared_ptr<VRScreen>;

class VRNavigationController {
  public:
    using Completion = std::function<void()>;

    // navigationControllerWithRootController: the stack starts with the home screen.
    explicit VRNavigationController(VRScreenRef root = VRScreen::homeScreen());
    VRNavigationController(const VRNavigationController&) = delete;
    VRNavigationController& operator=(const VRNavigationController&) = delete;

    // Root first, the screen on top last.
    const std::vector<VRScreenRef>& viewControllers() const { return _stack; }
    const VRScreenRef& rootViewController() const { return _stack.front(); }
    const VRScreenRef& topViewController() const { return _stack.back(); }
    // The modal screen, or null.
    const VRScreenRef& presentedViewController() const { return _presented; }
    // The screen under the top one; null when the root is on top.
    VRScreenRef previousViewController() const;

    // The completions run before the call returns: a headless stack has no animation to wait
    // for. The change handler runs first.
    void pushViewController(VRScreenRef screen, std::int64_t transition, bool animated,
                            const Completion& completion = {});
    // One step back; nothing to do at the root.
    void backAnimated(bool animated, const Completion& completion = {});
    // Up to `steps` back, never past the root (999 goes to the root).
    void backAnimated(bool animated, std::size_t steps, const Completion& completion = {});
    // A second modal replaces the first.
    void presentViewController(VRScreenRef screen, bool animated,
                               const Completion& completion = {});
    void dismissViewControllerAnimated(bool animated, const Completion& completion = {});

    // Told after every change of the stack or the modal (the front end redraws).
    void setChangeHandler(std::function<void()> handler) { _changed = std::move(handler); }

  private:
    // Screens taken off are let go on the main queue, after the event that removed them: the
    // results screen ends the walk from inside its own callback, which must not destroy it.
    static void _releaseLater(std::vector<VRScreenRef> screens);
    void _didChange() const;

    std::vector<VRScreenRef> _stack;
    VRScreenRef _presented;
    std::function<void()> _changed;
};
