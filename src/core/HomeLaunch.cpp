#include "core/HomeLaunch.h"

#include "core/AppDelegate.h"

HomeLaunchLink VRHomeLaunchLink() {
    return {[] { return VRLaunchManager::defaultManager().tutorialState(); }};
}

std::shared_ptr<VRHomeLaunch> VRHomeLaunch::present(NavigationManager& manager) {
    auto launch =
        std::make_shared<VRHomeLaunch>(HomeNavigation::create(manager, VRHomeLaunchLink()));
    AppDelegate::shared()._loadMainControllerFromLaunchController(launch);
    return launch;
}

void VRHomeLaunch::viewDidAppear() {
    _home->viewDidAppear();
    VRLaunchManager& manager = VRLaunchManager::defaultManager();
    if (manager.tutorialState() == VRLaunchManager::VRTutorialStateRunning &&
        manager.tutorialStep() == VRLaunchManager::kLastTutorialStep) {
        manager.completeTutorial();
    }
}

void VRHomeLaunch::launchManagerDidRequestExtenralURL(VRLaunchManager& manager) {
    const auto url = manager.externalURL();
    if (!url) return;
    manager.setExternalURL(std::nullopt);
    _home->launchManagerDidRequestExtenralURL(*url);
}
