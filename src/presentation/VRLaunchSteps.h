// The words of the full-screen launch steps: title, text and button of each step. Used by the
// launch controller, which decides which step shows, and by the front ends that draw it.
#pragma once

#include <cstdint>
#include <string>

// The steps that have words. 5 to 8 are unused; a step above 10 is empty.
enum VRLaunchStep : std::int64_t {
    VRLaunchStepWelcome = 0,
    VRLaunchStepPhotoLibrary = 1,
    VRLaunchStepTutorial = 2,
    VRLaunchStepHomeScreen = 3,
    VRLaunchStepReleaseNotes = 4,
    VRLaunchStepPhotoAccessUndecided = 9,
    VRLaunchStepPhotoAccessRefused = 10,
};

struct VRLaunchStepContent {
    std::string title;
    std::string text;
    std::string button;
    friend bool operator==(const VRLaunchStepContent&, const VRLaunchStepContent&) = default;
};

// The words of `step`. The release-notes step's title carries `appVersion` and its text is
// `releaseNotes`; the others ignore both. An unused or unknown step has empty words.
VRLaunchStepContent VRLaunchStepContentForStep(std::int64_t step, const std::string& appVersion,
                                               const std::string& releaseNotes);
