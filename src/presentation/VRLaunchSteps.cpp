#include "presentation/VRLaunchSteps.h"

namespace {

constexpr const char* kPhotoLibraryTitle = "Photo Library";
constexpr const char* kPhotoLibraryText =
    "The app requires limited or full\naccess to your photo library to\noperate properly. Please "
    "grant\nit when prompted.";

}  // namespace

VRLaunchStepContent VRLaunchStepContentForStep(std::int64_t step, const std::string& appVersion,
                                               const std::string& releaseNotes) {
    switch (step) {
        case VRLaunchStepWelcome:
            return {"Welcome",
                    "Unwarp empowers you with\nbatch resizing and optimization\ntools to process "
                    "Photos, Videos,\nand Live Photos.",
                    "Continue"};
        case VRLaunchStepPhotoLibrary:
        case VRLaunchStepPhotoAccessUndecided:
            return {kPhotoLibraryTitle, kPhotoLibraryText, "Continue"};
        case VRLaunchStepTutorial:
            return {"Tutorial",
                    "Unwarp offers a quick walk-\nthrough tour to explore the app\nand its "
                    "functionalities.",
                    "Get Started"};
        case VRLaunchStepHomeScreen:
            return {"Home Screen",
                    "The app provides two different\nHome Screen behavior options.\nSelect the "
                    "option that suits you\nbest when prompted.",
                    "Select Mode"};
        case VRLaunchStepReleaseNotes:
            return {"What's New in " + appVersion, releaseNotes, "Continue"};
        case VRLaunchStepPhotoAccessRefused:
            return {kPhotoLibraryTitle,
                    "The app requires limited or full\naccess to your photo library to\noperate "
                    "properly. Please grant\nit in the Settings.",
                    "Settings"};
        default:
            return {};
    }
}
