// The persistent state of the first launch and of the tutorial, and the hand-over of a file
// opened from outside to whichever front end is ready for it. Used by the application delegate,
// the launch steps and the front ends (`unwarp home`, `unwarp open`). Main thread only.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

class VRLaunchManager;

class VRLaunchManagerDelegate {
  public:
    virtual ~VRLaunchManagerDelegate() = default;
    // On the main thread. The file stays in externalURL; the delegate takes it from there.
    virtual void launchManagerDidRequestExtenralURL(VRLaunchManager& manager) = 0;
};

class VRLaunchManager {
  public:
    enum TutorialState : std::int64_t {
        VRTutorialStateNotRunning = 0,
        VRTutorialStateRunning = 1,
        VRTutorialStateFinished = 2,
    };
    // The tutorial step at which the walk counts as no longer active (back on the main screen).
    static constexpr std::int64_t kLastTutorialStep = 13;

    static VRLaunchManager& defaultManager();

    // Held weakly. Setting one delivers a waiting external file.
    std::shared_ptr<VRLaunchManagerDelegate> delegate() const { return _delegate.lock(); }
    void setDelegate(const std::shared_ptr<VRLaunchManagerDelegate>& delegate);

    const std::optional<std::string>& externalURL() const { return _externalURL; }
    // Keeps a copy and delivers it when a delegate is set and no tutorial is due.
    void setExternalURL(std::optional<std::string> url);

    std::int64_t tutorialState() const { return _tutorialState; }
    std::int64_t tutorialStep() const { return _tutorialStep; }
    void setTutorialStep(std::int64_t step) { _tutorialStep = step; }

    // Pass-through values of the defaults store.
    bool isLaunchRequired() const;
    std::int64_t launchStep() const;
    void setLaunchStep(std::int64_t step);
    void completeLaunch();

    bool isTutorialRequired() const;
    // Running, and not yet at the last step.
    bool isTutorialActive() const;
    // State running, step 1.
    void startTutorial();
    // Stores the tutorial as complete, resets state and step, and delivers a waiting file.
    void completeTutorial();

    // Forgets the delegate, the file and the tutorial's state; for tests, which share the
    // process-wide manager.
    void _reset();

    VRLaunchManager() = default;
    VRLaunchManager(const VRLaunchManager&) = delete;
    VRLaunchManager& operator=(const VRLaunchManager&) = delete;

  private:
    void _notifyOfExternalURL();

    std::weak_ptr<VRLaunchManagerDelegate> _delegate;
    std::optional<std::string> _externalURL;
    std::int64_t _tutorialState = VRTutorialStateNotRunning;
    std::int64_t _tutorialStep = 0;
};
