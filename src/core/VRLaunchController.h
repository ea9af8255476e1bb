// The full-screen launch steps, headless: the walk of the first start (welcome, photo library,
// home screen, tutorial, release notes) and the single steps of later starts. A front end draws
// the step it is shown and reports the button; the controller stores the launch state, asks for
// photo access, and tells its delegate when the launch ends. Main thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "presentation/VRLaunchSteps.h"

class VRLaunchController;

class VRLaunchControllerDelegate {
  public:
    virtual ~VRLaunchControllerDelegate() = default;
    // The launch is over; the home screen takes the controller's place.
    virtual void launchControllerDidFinishFromStep(VRLaunchController& controller,
                                                   std::int64_t step) = 0;
};

// What the front end does when told; each may be empty. All on the main thread.
struct VRLaunchControllerEvents {
    // Draw this step (at once for a refused access, otherwise with the walk's transition).
    std::function<void(std::int64_t step, const VRLaunchStepContent& content)> showStep;
    // The home-screen mode screen: present it; it answers through the controller's
    // homeScreenModeControllerDidClose / DidFinish. Dismissing it is immediate.
    std::function<void()> presentHomeScreenModeController;
    std::function<void()> dismissHomeScreenModeController;
    // Open the system's settings, where access to the library is given.
    std::function<void()> openSettings;
};

// What the controller needs from outside itself; standard() takes the program's own.
struct VRLaunchServices {
    // requestPhotoAccessPermissionWithCompletion: the answer, true when access is granted,
    // arrives on the main thread.
    std::function<void(std::function<void(bool granted)> completion)> requestPhotoAccessPermission;
    std::function<bool()> areReleaseNotesRequired;
    std::function<void()> updateLastReleaseNotesVersion;
    std::function<std::string()> appVersion;
    // The text of the release-notes step.
    std::function<std::string()> releaseNotesContent;

    // The library at the settings' path, asked for read and write access (which creates its
    // folder when missing; the answer comes before the call returns), the application
    // delegate's release-notes rules, the running version, and the newest notes' lines.
    static VRLaunchServices standard();
};

class VRLaunchController {
  public:
    // initWithDelegate:step:. The delegate is held weakly.
    VRLaunchController(std::weak_ptr<VRLaunchControllerDelegate> delegate, std::int64_t step,
                       VRLaunchControllerEvents events,
                       VRLaunchServices services = VRLaunchServices::standard());
    VRLaunchController(const VRLaunchController&) = delete;
    VRLaunchController& operator=(const VRLaunchController&) = delete;

    std::int64_t step() const { return _step; }
    // A single step, no walk: the front end shows no progress through the steps.
    bool staticMode() const { return _staticMode; }
    void setStaticMode(bool staticMode) { _staticMode = staticMode; }
    // The words of the step shown.
    const VRLaunchStepContent& content() const { return _content; }
    bool isHomeScreenModeControllerPresented() const { return _modePresented; }
    // The delegate has been told; buttons do nothing more.
    bool isFinished() const { return _finished; }

    // The screen is built: the words of the first step are prepared and shown.
    void viewDidLoad();
    // The user touches the step's button.
    void touchButton();
    // The home-screen mode screen's answers: closed without a choice, or a mode was chosen.
    void homeScreenModeControllerDidClose();
    void homeScreenModeControllerDidFinish();

  private:
    void _prepareContent();
    void _show();
    void _translateToStep(std::int64_t step);
    void _requestPhotoAccess(std::function<void(bool granted)> answer);
    void _rejectAccess();
    void _completeLaunch();
    void _finish();

    std::weak_ptr<VRLaunchControllerDelegate> _delegate;
    std::int64_t _step;
    VRLaunchControllerEvents _events;
    VRLaunchServices _services;
    VRLaunchStepContent _content;
    bool _staticMode = false;
    bool _modePresented = false;
    bool _finished = false;
    // Answers of a request still out are dropped once the controller is gone.
    std::shared_ptr<int> _alive = std::make_shared<int>(0);
};

// The release-notes step's text: the lines of the newest notes, one a line.
std::string VRReleaseNotesContent();
