#include "core/VRLaunchController.h"

#include <utility>

#include "core/AppDelegate.h"
#include "core/VRLaunchManager.h"
#include "core/VRReleaseNotes.h"
#include "platform/Environment.h"
#include "platform/Log.h"
#include "platform/PhotoLibrary.h"
#include "storage/VRSettings.h"

namespace {

bool requestLibraryAccess() {
    platform::ErrorRef error;
    auto library = platform::PhotoLibrary::open(
        platform::defaultPhotoLibraryLocations(VRSettings::libraryPath()), &error);
    if (!library) {
        platform::logf("~~ Unable to open the photo library: %s",
                       error ? error->localizedDescription().c_str() : "unknown");
        return false;
    }
    return library->requestAuthorizationForAccessLevel(platform::PHAccessLevelReadWrite) ==
           platform::PHAuthorizationStatusAuthorized;
}

}  // namespace

std::string VRReleaseNotesContent() {
    const auto& entries = VRReleaseNotes::entries();
    std::string text;
    if (entries.empty()) return text;
    for (const std::string& line : entries.back().lines) {
        text += (text.empty() ? "" : "\n") + line;
    }
    return text;
}

VRLaunchServices VRLaunchServices::standard() {
    VRLaunchServices services;
    services.requestPhotoAccessPermission = [](std::function<void(bool)> completion) {
        completion(requestLibraryAccess());
    };
    services.areReleaseNotesRequired = [] {
        return AppDelegate::shared().areReleaseNotesRequired();
    };
    services.updateLastReleaseNotesVersion = [] {
        AppDelegate::shared().updateLastReleaseNotesVersion();
    };
    services.appVersion = [] { return platform::Environment::appVersion(); };
    services.releaseNotesContent = [] { return VRReleaseNotesContent(); };
    return services;
}

VRLaunchController::VRLaunchController(std::weak_ptr<VRLaunchControllerDelegate> delegate,
                                       std::int64_t step, VRLaunchControllerEvents events,
                                       VRLaunchServices services)
    : _delegate(std::move(delegate)),
      _step(step),
      _events(std::move(events)),
      _services(std::move(services)) {}

void VRLaunchController::viewDidLoad() {
    _prepareContent();
    _show();
}

void VRLaunchController::_prepareContent() {
    const bool notes = _step == VRLaunchStepReleaseNotes;
    _content = VRLaunchStepContentForStep(_step, notes ? _services.appVersion() : std::string(),
                                          notes ? _services.releaseNotesContent() : std::string());
}

void VRLaunchController::_show() {
    if (_events.showStep) _events.showStep(_step, _content);
}

void VRLaunchController::_translateToStep(std::int64_t step) {
    _step = step;
    _prepareContent();
    _show();
}

void VRLaunchController::touchButton() {
    if (_finished || _modePresented) return;
    VRLaunchManager& manager = VRLaunchManager::defaultManager();
    switch (_step) {
        case VRLaunchStepWelcome:
            manager.setLaunchStep(VRLaunchStepPhotoLibrary);
            _translateToStep(VRLaunchStepPhotoLibrary);
            break;
        case VRLaunchStepPhotoLibrary:
            _requestPhotoAccess([this](bool granted) {
                // The walk goes on to the home-screen step either way; a refusal shows the
                // settings step now, and the next start asks again from there.
                VRLaunchManager::defaultManager().setLaunchStep(VRLaunchStepHomeScreen);
                if (granted)
                    _translateToStep(VRLaunchStepHomeScreen);
                else
                    _rejectAccess();
            });
            break;
        case VRLaunchStepTutorial:
            _completeLaunch();
            break;
        case VRLaunchStepHomeScreen:
            _modePresented = true;
            if (_events.presentHomeScreenModeController) _events.presentHomeScreenModeController();
            break;
        case VRLaunchStepReleaseNotes:
            _services.updateLastReleaseNotesVersion();
            _completeLaunch();
            break;
        case VRLaunchStepPhotoAccessUndecided:
            _requestPhotoAccess([this](bool granted) {
                if (granted)
                    _completeLaunch();
                else
                    _rejectAccess();
            });
            break;
        case VRLaunchStepPhotoAccessRefused:
            if (_events.openSettings) _events.openSettings();
            break;
        default:
            break;
    }
}

void VRLaunchController::_requestPhotoAccess(std::function<void(bool granted)> answer) {
    std::weak_ptr<int> alive = _alive;
    _services.requestPhotoAccessPermission([alive, answer = std::move(answer)](bool granted) {
        if (!alive.expired()) answer(granted);
    });
}

void VRLaunchController::homeScreenModeControllerDidClose() {
    if (!_modePresented) return;
    _modePresented = false;
    if (_events.dismissHomeScreenModeController) _events.dismissHomeScreenModeController();
}

void VRLaunchController::homeScreenModeControllerDidFinish() {
    if (!_modePresented) return;
    _modePresented = false;
    VRSettings::setHomeScreenChoiceRequired(false);
    VRSettings::save();
    VRLaunchManager& manager = VRLaunchManager::defaultManager();
    if (_events.dismissHomeScreenModeController) _events.dismissHomeScreenModeController();
    if (manager.isLaunchRequired()) {
        manager.setLaunchStep(VRLaunchStepTutorial);
        _translateToStep(VRLaunchStepTutorial);
    } else {
        _completeLaunch();
    }
}

void VRLaunchController::_rejectAccess() {
    _step = VRLaunchStepPhotoAccessRefused;
    _prepareContent();
    _show();
}

void VRLaunchController::_completeLaunch() {
    VRLaunchManager& manager = VRLaunchManager::defaultManager();
    manager.completeLaunch();
    if (_services.areReleaseNotesRequired()) {
        manager.setLaunchStep(VRLaunchStepReleaseNotes);
        _translateToStep(VRLaunchStepReleaseNotes);
        return;
    }
    _finish();
}

void VRLaunchController::_finish() {
    _finished = true;
    if (auto delegate = _delegate.lock()) delegate->launchControllerDidFinishFromStep(*this, _step);
}
