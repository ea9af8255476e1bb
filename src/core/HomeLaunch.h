// The home flow tied to the launch manager, as a front end sets it up when the launch is over:
// the flow reads the tutorial's state from the launch manager, takes the files opened from
// outside as its delegate, and ends the tutorial when the walk comes back to it at its last step.
// Main thread only.
#pragma once

#include <memory>

#include "core/HomeNavigation.h"
#include "core/VRLaunchManager.h"

// The home flow's link to VRLaunchManager::defaultManager().
HomeLaunchLink VRHomeLaunchLink();

class VRHomeLaunch : public VRLaunchManagerDelegate {
  public:
    // The home flow over `manager` (which must outlive it), loaded as the main controller: the
    // tutorial starts when it is due, and this becomes the launch manager's delegate, which
    // delivers a waiting file. Keep the result as long as the home screen lives; the launch
    // manager holds it weakly.
    static std::shared_ptr<VRHomeLaunch> present(NavigationManager& manager);

    const std::shared_ptr<HomeNavigation>& home() const { return _home; }

    // The home screen appeared. Back from the walk's last step, the tutorial is complete, and a
    // file that waited for it is offered now.
    void viewDidAppear();

    // Takes the file out of the launch manager, so that it is offered once.
    void launchManagerDidRequestExtenralURL(VRLaunchManager& manager) override;

    explicit VRHomeLaunch(std::shared_ptr<HomeNavigation> home) : _home(std::move(home)) {}

  private:
    std::shared_ptr<HomeNavigation> _home;
};
