// The start and stop of the program as every command runs them: the version check, the session
// flags, the launch needs that a front end reads, the clean-ups of temporary files, files opened
// from outside, and the life-cycle events. main() calls it; the front ends read its needs.
// Main thread only.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

class VRLaunchManagerDelegate;

// What the first screen is: the home screen, or the launch screens at `step`, in static mode
// (one step, no walk) when a later event asks for a single step.
struct VRLaunchNeeds {
    bool launchRequired = false;
    bool releaseNotesRequired = false;
    bool photoAccessRequired = false;
    std::int64_t accessStep = 0;
    bool homeScreenChoiceRequired = false;

    bool showsHomeScreen = true;
    std::int64_t step = 0;
    bool staticMode = false;

    friend bool operator==(const VRLaunchNeeds&, const VRLaunchNeeds&) = default;
};

class AppDelegate {
  public:
    struct LaunchOptions {
        // A file opened with the start; its copy must survive the clean-ups of the start.
        bool openingURL = false;
    };

    static AppDelegate& shared();

    // Everything of the start after the crash reporter, in order: unarchiver classes, version
    // check (resetting the rate counters on a new version), session flags, the launch needs,
    // and the clean-ups (temporary images only when no file is being opened). The clean-ups run
    // on the calling thread, so that a short command finds the home clean.
    VRLaunchNeeds didFinishLaunchingWithOptions(const LaunchOptions& options);
    // The needs worked out by the start (or by the last return to the foreground).
    const VRLaunchNeeds& launchNeeds() const { return _launchNeeds; }

    // With a stored version: true when it isn't the newest notes' version. Without one: a fresh
    // install stores the newest and answers false; an upgrade stores "1.0.0" and answers true.
    bool areReleaseNotesRequired() const;
    // Confirms the newest notes as read.
    void updateLastReleaseNotesVersion() const;
    // True, with step 9, while the library's access is undecided; true with step 10 when it is
    // refused; otherwise false with step 0, and the limited-photos alert is asked for once.
    bool _photoAccessRequired(std::int64_t* accessStep) const;

    // The home screen takes over: the tutorial starts when it is due, and `home` becomes the
    // launch manager's delegate, which delivers a waiting file.
    void _loadMainControllerFromLaunchController(
        const std::shared_ptr<VRLaunchManagerDelegate>& home);

    // A file opened from outside: the temporary images of ended processes go first, then the
    // file is copied into this process's folder of "_vrtempimagedir" and handed to the launch
    // manager. Returns the path handed on: the copy, or the source when the copy failed.
    std::string openURL(const std::string& path);
    std::string _copyExternalUrl(const std::string& path) const;

    // Saves the settings and marks the session as in the background.
    void applicationDidEnterBackground();
    // Back from the background: when access to the library was taken away meanwhile, the
    // single launch step that asks for it (static mode); nothing while the first launch has not
    // reached the step that asks for access.
    std::optional<VRLaunchNeeds> applicationWillEnterForeground();
    // The clean-ups at the end: camera captures and temporary videos.
    void applicationWillTerminate();

    AppDelegate() = default;
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

  private:
    VRLaunchNeeds _readLaunchNeeds() const;

    VRLaunchNeeds _launchNeeds;
};

// "home screen" or "launch step N" with ", static" in static mode, and the needs that are due.
std::string describeLaunchNeeds(const VRLaunchNeeds& needs);
