#include "core/VRLaunchManager.h"

#include <gtest/gtest.h>

#include "storage/VXHelperState.h"
#include "support/TestHome.h"

namespace {

class Recorder : public VRLaunchManagerDelegate {
  public:
    void launchManagerDidRequestExtenralURL(VRLaunchManager& manager) override {
        delivered.push_back(manager.externalURL().value_or("(none)"));
    }
    std::vector<std::string> delivered;
};

struct Fixture {
    testing_support::TestHome home;
    VRLaunchManager& manager = VRLaunchManager::defaultManager();
    Fixture() { manager._reset(); }
    ~Fixture() { manager._reset(); }
};

}  // namespace

// A file reaches the delegate only once there is one and no tutorial is due: set before the
// delegate it waits for setDelegate, set during the tutorial it waits for completeTutorial.
TEST(VRLaunchManager, ExternalFileWaitsForDelegateAndTutorial) {
    struct Case {
        const char* name;
        bool tutorialComplete;
        bool delegateFirst;
        std::vector<std::string> afterSetting;
        std::vector<std::string> afterCompleting;
    };
    const std::vector<Case> cases = {
        {"no delegate yet", true, false, {"/in/a.jpg"}, {"/in/a.jpg"}},
        {"delegate ready", true, true, {"/in/a.jpg"}, {"/in/a.jpg"}},
        {"tutorial due, delegate ready", false, true, {}, {"/in/a.jpg"}},
        {"tutorial due, no delegate yet", false, false, {}, {"/in/a.jpg"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Fixture f;
        VXHelper::setTutorialComplete(c.tutorialComplete);
        auto recorder = std::make_shared<Recorder>();
        if (c.delegateFirst) f.manager.setDelegate(recorder);
        f.manager.setExternalURL("/in/a.jpg");
        if (!c.delegateFirst) {
            EXPECT_TRUE(recorder->delivered.empty());
            f.manager.setDelegate(recorder);
        }
        EXPECT_EQ(recorder->delivered, c.afterSetting);
        if (!c.tutorialComplete) {
            f.manager.startTutorial();
            EXPECT_TRUE(f.manager.isTutorialActive());
            f.manager.completeTutorial();
            EXPECT_FALSE(f.manager.isTutorialRequired());
            EXPECT_EQ(f.manager.tutorialState(), VRLaunchManager::VRTutorialStateFinished);
            EXPECT_EQ(f.manager.tutorialStep(), 0);
        }
        EXPECT_EQ(recorder->delivered, c.afterCompleting);
        // The file stays in the field for the delegate to take.
        EXPECT_EQ(f.manager.externalURL(), "/in/a.jpg");
    }
}

// The delegate is held weakly: once the front end is gone, a file waits for the next one.
TEST(VRLaunchManager, DelegateIsHeldWeakly) {
    Fixture f;
    VXHelper::setTutorialComplete(true);
    auto first = std::make_shared<Recorder>();
    f.manager.setDelegate(first);
    first.reset();
    EXPECT_EQ(f.manager.delegate(), nullptr);
    f.manager.setExternalURL("/in/b.mov");
    auto second = std::make_shared<Recorder>();
    f.manager.setDelegate(second);
    EXPECT_EQ(second->delivered, std::vector<std::string>{"/in/b.mov"});
}

// The tutorial counts as active while running and short of its last step; the launch values
// live in the defaults store, so another process (or a restart) sees them.
TEST(VRLaunchManager, TutorialActivityAndStoredLaunchValues) {
    Fixture f;
    EXPECT_TRUE(f.manager.isLaunchRequired());
    EXPECT_TRUE(f.manager.isTutorialRequired());
    EXPECT_FALSE(f.manager.isTutorialActive());
    f.manager.startTutorial();
    EXPECT_EQ(f.manager.tutorialStep(), 1);
    f.manager.setTutorialStep(VRLaunchManager::kLastTutorialStep);
    EXPECT_FALSE(f.manager.isTutorialActive());
    f.manager.setLaunchStep(3);
    f.manager.completeLaunch();
    EXPECT_EQ(VXHelper::launchStep(), 3);
    EXPECT_TRUE(VXHelper::isLaunchComplete());
    EXPECT_FALSE(f.manager.isLaunchRequired());
}
