#include "core/VRLaunchController.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <vector>

#include "core/AppDelegate.h"
#include "core/VRLaunchManager.h"
#include "core/VRReleaseNotes.h"
#include "platform/Environment.h"
#include "storage/VRSettings.h"
#include "storage/VXHelperState.h"
#include "support/TestHome.h"

namespace {

enum class Library { missing, denied };

// A start of the program under a scratch home, with the launch screens it opens. The library
// is the pictures folder: missing is undecided (asking creates it), a file in its place refuses.
struct Start {
    testing_support::TestHome home;
    std::vector<std::int64_t> shown;
    std::optional<std::int64_t> finishedFrom;
    int settingsOpened = 0;
    int modePresented = 0;
    int modeDismissed = 0;

    struct Delegate : VRLaunchControllerDelegate {
        Start* start;
        explicit Delegate(Start* s) : start(s) {}
        void launchControllerDidFinishFromStep(VRLaunchController&, std::int64_t step) override {
            start->finishedFrom = step;
        }
    };
    std::shared_ptr<Delegate> delegate = std::make_shared<Delegate>(this);
    std::unique_ptr<VRLaunchController> controller;

    explicit Start(Library library = Library::missing) {
        VRLaunchManager::defaultManager()._reset();
        if (library == Library::denied) testing_support::touch(home.path("Pictures"));
    }
    ~Start() { VRLaunchManager::defaultManager()._reset(); }

    // The start's needs, and the launch screens at their step when they are due.
    VRLaunchNeeds launch() {
        shown.clear();
        finishedFrom.reset();
        const VRLaunchNeeds needs = AppDelegate::shared().didFinishLaunchingWithOptions({});
        if (needs.showsHomeScreen) return needs;
        VRLaunchControllerEvents events;
        events.showStep = [this](std::int64_t step, const VRLaunchStepContent&) {
            shown.push_back(step);
        };
        events.openSettings = [this] { ++settingsOpened; };
        events.presentHomeScreenModeController = [this] { ++modePresented; };
        events.dismissHomeScreenModeController = [this] { ++modeDismissed; };
        controller = std::make_unique<VRLaunchController>(delegate, needs.step, events);
        controller->viewDidLoad();
        return needs;
    }
};

using Steps = std::vector<std::int64_t>;

}  // namespace

// A first start walks 0, 1, 3, 2 and ends there, or goes on to the release notes when they are
// due by then; each button stores the step the next start would resume from.
TEST(VRLaunchController, FirstStartWalksWelcomeLibraryHomeScreenTutorial) {
    for (const bool notesDue : {false, true}) {
        SCOPED_TRACE(notesDue);
        Start s;
        ASSERT_EQ(s.launch().step, 0);
        VRLaunchController& c = *s.controller;
        c.touchButton();
        EXPECT_EQ(VRLaunchManager::defaultManager().launchStep(), 1);
        c.touchButton();  // the library is asked and grants
        EXPECT_TRUE(std::filesystem::is_directory(s.home.path("Pictures")));
        EXPECT_EQ(VRLaunchManager::defaultManager().launchStep(), 3);
        c.touchButton();
        ASSERT_TRUE(c.isHomeScreenModeControllerPresented());
        c.touchButton();  // the mode screen covers the step
        EXPECT_EQ(s.shown, (Steps{0, 1, 3}));
        VRSettings::setHomeScreenChoiceRequired(true);
        c.homeScreenModeControllerDidFinish();
        EXPECT_FALSE(VRSettings::homeScreenChoiceRequired());
        EXPECT_EQ(s.modeDismissed, 1);
        EXPECT_EQ(VRLaunchManager::defaultManager().launchStep(), 2);
        EXPECT_EQ(c.content().button, "Get Started");
        if (notesDue) VXHelper::setReleaseNotesVersion("0.0.1");
        c.touchButton();
        EXPECT_FALSE(VRLaunchManager::defaultManager().isLaunchRequired());
        if (notesDue) {
            EXPECT_EQ(s.shown, (Steps{0, 1, 3, 2, 4}));
            EXPECT_FALSE(s.finishedFrom);
            EXPECT_EQ(c.content().title, "What's New in " + platform::Environment::appVersion());
            EXPECT_EQ(c.content().text, VRReleaseNotesContent());
            EXPECT_NE(c.content().text.find(VRReleaseNotes::entries().back().lines.back()),
                      std::string::npos);
            c.touchButton();
            EXPECT_EQ(VXHelper::releaseNotesVersion(), VRReleaseNotes::lastVersion());
        }
        EXPECT_EQ(s.shown, (notesDue ? Steps{0, 1, 3, 2, 4} : Steps{0, 1, 3, 2}));
        EXPECT_EQ(s.finishedFrom, notesDue ? 4 : 2);
        c.touchButton();  // nothing after the end
        EXPECT_EQ(s.finishedFrom, notesDue ? 4 : 2);
        // The next start goes straight home.
        EXPECT_TRUE(s.launch().showsHomeScreen);
    }
}

// Refusing access at step 1 stores the home-screen step but shows the settings step, and the
// next start opens there again; a later start with access undecided asks at step 9, which ends
// the launch when granted and shows the settings step when refused.
TEST(VRLaunchController, PhotoAccessAnswers) {
    {
        SCOPED_TRACE("refused at step 1");
        Start s(Library::denied);
        s.launch();
        s.controller->touchButton();
        s.controller->touchButton();
        EXPECT_EQ(VRLaunchManager::defaultManager().launchStep(), 3);
        EXPECT_EQ(s.shown, (Steps{0, 1, 10}));
        EXPECT_EQ(s.controller->content().button, "Settings");
        s.controller->touchButton();
        EXPECT_EQ(s.settingsOpened, 1);
        EXPECT_EQ(s.shown, (Steps{0, 1, 10}));
        EXPECT_EQ(s.launch().step, 10);
        EXPECT_EQ(s.shown, (Steps{10}));
        EXPECT_FALSE(s.finishedFrom);
    }
    struct Case {
        const char* name;
        Library library;
        Steps shown;
        std::optional<std::int64_t> finishedFrom;
    };
    for (const Case& c : {Case{"granted at step 9", Library::missing, {9}, 9},
                          Case{"refused at step 9", Library::denied, {9, 10}, std::nullopt}}) {
        SCOPED_TRACE(c.name);
        Start s;
        VXHelper::setLaunchStep(3);
        // Undecided at the start; the answer comes from the library when asked.
        ASSERT_EQ(s.launch().step, 9);
        if (c.library == Library::denied) testing_support::touch(s.home.path("Pictures"));
        s.controller->touchButton();
        EXPECT_EQ(s.shown, c.shown);
        EXPECT_EQ(s.finishedFrom, c.finishedFrom);
        EXPECT_EQ(VRLaunchManager::defaultManager().isLaunchRequired(), !c.finishedFrom);
    }
}

// The home-screen choice asked at a later start: closing the mode screen leaves the step as it
// was; a choice ends the launch without the tutorial's step.
TEST(VRLaunchController, HomeScreenChoiceOnALaterStart) {
    Start s;
    std::filesystem::create_directories(s.home.path("Pictures"));
    VXHelper::setLaunchComplete(true);
    VXHelper::setLaunchStep(4);
    VXHelper::setReleaseNotesVersion(VRReleaseNotes::lastVersion());
    VRSettings::setHomeScreenChoiceRequired(true);
    ASSERT_EQ(s.launch().step, 3);
    s.controller->touchButton();
    s.controller->homeScreenModeControllerDidClose();
    EXPECT_EQ(s.modeDismissed, 1);
    EXPECT_TRUE(VRSettings::homeScreenChoiceRequired());
    EXPECT_FALSE(s.finishedFrom);
    s.controller->homeScreenModeControllerDidFinish();  // not presented any more: ignored
    EXPECT_TRUE(VRSettings::homeScreenChoiceRequired());
    s.controller->touchButton();
    s.controller->homeScreenModeControllerDidFinish();
    EXPECT_EQ(s.modePresented, 2);
    EXPECT_EQ(s.shown, (Steps{3}));
    EXPECT_EQ(s.finishedFrom, 3);
    EXPECT_EQ(VRLaunchManager::defaultManager().launchStep(), 4);
    EXPECT_TRUE(s.launch().showsHomeScreen);
}
