#include "core/VRLaunchManager.h"

#include "storage/VRSettings.h"
#include "storage/VXHelperState.h"

VRLaunchManager& VRLaunchManager::defaultManager() {
    static VRLaunchManager* manager = new VRLaunchManager();
    return *manager;
}

void VRLaunchManager::setDelegate(const std::shared_ptr<VRLaunchManagerDelegate>& delegate) {
    _delegate = delegate;
    _notifyOfExternalURL();
}

void VRLaunchManager::setExternalURL(std::optional<std::string> url) {
    _externalURL = std::move(url);
    _notifyOfExternalURL();
}

bool VRLaunchManager::isLaunchRequired() const {
    return !VXHelper::isLaunchComplete();
}

std::int64_t VRLaunchManager::launchStep() const {
    return VXHelper::launchStep();
}

void VRLaunchManager::setLaunchStep(std::int64_t step) {
    VXHelper::setLaunchStep(step);
    VRSettings::userDefaults().synchronize();
}

void VRLaunchManager::completeLaunch() {
    VXHelper::setLaunchComplete(true);
    VRSettings::userDefaults().synchronize();
}

bool VRLaunchManager::isTutorialRequired() const {
    return !VXHelper::isTutorialComplete();
}

bool VRLaunchManager::isTutorialActive() const {
    return _tutorialState == VRTutorialStateRunning && _tutorialStep != kLastTutorialStep;
}

void VRLaunchManager::startTutorial() {
    _tutorialState = VRTutorialStateRunning;
    _tutorialStep = 1;
}

void VRLaunchManager::completeTutorial() {
    VXHelper::setTutorialComplete(true);
    VRSettings::userDefaults().synchronize();
    _tutorialStep = 0;
    _tutorialState = VRTutorialStateFinished;
    _notifyOfExternalURL();
}

void VRLaunchManager::_reset() {
    _delegate.reset();
    _externalURL.reset();
    _tutorialState = VRTutorialStateNotRunning;
    _tutorialStep = 0;
}

// A file that arrives while the tutorial is due waits for completeTutorial.
void VRLaunchManager::_notifyOfExternalURL() {
    auto delegate = _delegate.lock();
    if (!delegate || !_externalURL || isTutorialRequired()) return;
    delegate->launchManagerDidRequestExtenralURL(*this);
}
