#include "core/VRNavigationController.h"

#include <algorithm>
#include <atomic>

#include "core/VRResultController.h"
#include "platform/Dispatch.h"

namespace {

std::uint64_t nextScreenIdentifier() {
    static std::atomic<std::uint64_t> counter{0};
    return ++counter;
}

}  // namespace

VRScreen::VRScreen(Content content)
    : _content(std::move(content)), _identifier(nextScreenIdentifier()) {}

VRScreenKind VRScreen::kind() const {
    switch (_content.index()) {
        case 1:
            return VRScreenKind::sizeEditor;
        case 2:
            return VRScreenKind::summary;
        case 3:
            return VRScreenKind::results;
        case 4:
            return VRScreenKind::external;
        case 5:
            return VRScreenKind::settings;
        default:
            return VRScreenKind::home;
    }
}

std::shared_ptr<VRResultController> VRScreen::results() const {
    const auto* controller = std::get_if<std::shared_ptr<VRResultController>>(&_content);
    return controller ? *controller : nullptr;
}

VRNavigationController::VRNavigationController(VRScreenRef root) {
    _stack.push_back(root ? std::move(root) : VRScreen::homeScreen());
}

VRScreenRef VRNavigationController::previousViewController() const {
    return _stack.size() >= 2 ? _stack[_stack.size() - 2] : nullptr;
}

void VRNavigationController::pushViewController(VRScreenRef screen, std::int64_t transition,
                                                bool animated, const Completion& completion) {
    if (screen) {
        screen->setTransition(transition, animated);
        _stack.push_back(std::move(screen));
        _didChange();
    }
    if (completion) completion();
}

void VRNavigationController::backAnimated(bool animated, const Completion& completion) {
    backAnimated(animated, 1, completion);
}

void VRNavigationController::backAnimated(bool /*animated*/, std::size_t steps,
                                          const Completion& completion) {
    const std::size_t count = std::min(steps, _stack.size() - 1);
    if (count > 0) {
        std::vector<VRScreenRef> removed(_stack.end() - static_cast<std::ptrdiff_t>(count),
                                         _stack.end());
        _stack.resize(_stack.size() - count);
        _releaseLater(std::move(removed));
        _didChange();
    }
    if (completion) completion();
}

void VRNavigationController::presentViewController(VRScreenRef screen, bool animated,
                                                   const Completion& completion) {
    if (screen) {
        screen->setTransition(0, animated);
        if (_presented) _releaseLater({_presented});
        _presented = std::move(screen);
        _didChange();
    }
    if (completion) completion();
}

void VRNavigationController::dismissViewControllerAnimated(bool /*animated*/,
                                                           const Completion& completion) {
    if (_presented) {
        _releaseLater({std::move(_presented)});
        _presented = nullptr;
        _didChange();
    }
    if (completion) completion();
}

void VRNavigationController::_releaseLater(std::vector<VRScreenRef> screens) {
    platform::DispatchQueue::main().async([screens = std::move(screens)] {});
}

void VRNavigationController::_didChange() const {
    if (_changed) _changed();
}
