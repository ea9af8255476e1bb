// `unwarp launch`: the launch step that is due at this start, with its title, text and button,
// and the button taken with --answer (or, at a photo-library step, with --grant or --refuse):
// the launch state is stored as the launch screens store it, and the next step is shown.
// `unwarp launch --tutorial` tells the tutorial's fixed stops in order.
#include <algorithm>
#include <cctype>
#include <iostream>
#include <optional>
#include <string>

#include "app/Command.h"
#include "assets/VRAssetManager2.h"
#include "core/AppDelegate.h"
#include "core/VRLaunchController.h"
#include "core/VRLaunchManager.h"
#include "platform/PhotoLibrary.h"
#include "presentation/VRTutorialFocus.h"
#include "storage/VRSettings.h"

namespace {

std::string lowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

void printStep(std::int64_t step, const VRLaunchStepContent& content, bool staticMode) {
    std::cout << "Step " << step << (staticMode ? " (single)" : "") << ": " << content.title
              << "\n";
    if (!content.text.empty()) std::cout << content.text << "\n";
    if (!content.button.empty()) std::cout << "[" << content.button << "]\n";
    std::cout << std::flush;
}

void printTutorial() {
    for (const auto& stop : VRTutorial::fixedStops(VRAssetManager2::VRAlbumNamePhotos,
                                                   VRAssetManager2::VRAlbumNameVideos,
                                                   VRAssetManager2::VRAlbumNameOriginals)) {
        std::cout << "Step " << stop.step << ", " << stop.screen << ", " << stop.target << ": "
                  << stop.text;
        if (!stop.button.empty()) std::cout << " [" << stop.button << "]";
        std::cout << "\n";
    }
    std::cout << "Step " << VRTutorial::kBackOnMainStep << ", main: the tutorial is complete"
              << std::endl;
}

class Finish : public VRLaunchControllerDelegate {
  public:
    void launchControllerDidFinishFromStep(VRLaunchController&, std::int64_t step) override {
        std::cout << "Launch complete from step " << step << ": home screen";
        if (VRLaunchManager::defaultManager().isTutorialRequired())
            std::cout << ", the tutorial starts there";
        std::cout << std::endl;
    }
};

class LaunchCommand : public app::Command {
  public:
    CLI::App* setup(CLI::App& program) override {
        auto* command = program.add_subcommand(
            "launch", "Show the launch step that is due and take its button");
        auto* answer = command->add_option("--answer", _answer, "Touch the step's button")
                           ->option_text("BUTTON");
        auto* grant = command->add_flag(
            "--grant", _grant, "At a photo-library step: touch it and grant access to the library");
        auto* refuse = command->add_flag("--refuse", _refuse,
                                         "At a photo-library step: touch it and refuse access");
        answer->excludes(grant)->excludes(refuse);
        grant->excludes(refuse);
        command
            ->add_option("--mode", _mode,
                         "At the Home Screen step: the home-screen mode chosen after the button")
            ->check(CLI::Range(0, 1));
        command->add_flag("--tutorial", _tutorial, "Tell the tutorial's fixed stops in order");
        return command;
    }

    int run() override {
        if (_tutorial) {
            printTutorial();
            return app::kExitSuccess;
        }
        const VRLaunchNeeds& needs = AppDelegate::shared().launchNeeds();
        const bool answering = _answer || _grant || _refuse;
        if (needs.showsHomeScreen) {
            std::cout << "Launch: " << describeLaunchNeeds(needs) << std::endl;
            return answering ? app::reportUsageError("no launch step is due") : app::kExitSuccess;
        }
        auto finish = std::make_shared<Finish>();
        VRLaunchController controller(finish, needs.step, events(needs.staticMode), services());
        controller.setStaticMode(needs.staticMode);
        controller.viewDidLoad();
        if (!answering) return app::kExitSuccess;
        if (const int problem = checkAnswer(controller); problem != app::kExitSuccess)
            return problem;
        std::cout << "> " << controller.content().button << std::endl;
        controller.touchButton();
        if (controller.isHomeScreenModeControllerPresented()) chooseMode(controller);
        return app::kExitSuccess;
    }

  private:
    int checkAnswer(const VRLaunchController& controller) const {
        const std::string& button = controller.content().button;
        if (button.empty()) return app::reportUsageError("this step has no button");
        const bool accessStep = controller.step() == VRLaunchStepPhotoLibrary ||
                                controller.step() == VRLaunchStepPhotoAccessUndecided;
        if ((_grant || _refuse) && !accessStep)
            return app::reportUsageError(
                "--grant and --refuse answer a photo-library step; this "
                "step's button is \"" +
                button + "\"");
        if (_answer && lowercase(*_answer) != lowercase(button))
            return app::reportUsageError("the button of this step is \"" + button + "\", not \"" +
                                         *_answer + "\"");
        if (_mode && controller.step() != VRLaunchStepHomeScreen)
            return app::reportUsageError("--mode answers the Home Screen step");
        return app::kExitSuccess;
    }

    void chooseMode(VRLaunchController& controller) const {
        if (!_mode) {
            std::cout << "Home Screen mode: choose one with --mode 0 or --mode 1" << std::endl;
            controller.homeScreenModeControllerDidClose();
            return;
        }
        VRSettings::setHomeScreenMode(*_mode);
        std::cout << "Home Screen mode: " << *_mode << std::endl;
        controller.homeScreenModeControllerDidFinish();
    }

    static VRLaunchControllerEvents events(bool staticMode) {
        VRLaunchControllerEvents events;
        events.showStep = [staticMode](std::int64_t step, const VRLaunchStepContent& content) {
            printStep(step, content, staticMode);
        };
        events.openSettings = [] {
            std::cout << "Settings: make the photo library readable and writable at "
                      << platform::defaultPhotoLibraryLocations(VRSettings::libraryPath()).root
                      << std::endl;
        };
        return events;
    }

    // --refuse answers for the user without asking the library; otherwise the library is asked.
    VRLaunchServices services() const {
        VRLaunchServices services = VRLaunchServices::standard();
        if (_refuse)
            services.requestPhotoAccessPermission = [](auto completion) { completion(false); };
        return services;
    }

    std::optional<std::string> _answer;
    bool _grant = false;
    bool _refuse = false;
    std::optional<std::int64_t> _mode;
    bool _tutorial = false;
};

}  // namespace

UNWARP_REGISTER_COMMAND(LaunchCommand)
