// The tutorial over the batch run and the home flow: the samples' prepared results, the still
// rate counters, the results screen's note and focus, and the file that waits for the end.
#include <gtest/gtest.h>

#include "core/BatchRunSupport.h"
#include "core/HomeLaunch.h"
#include "core/NavigationSupport.h"
#include "core/VRResultController.h"
#include "storage/VXHelperState.h"
#include "support/TestHome.h"

using batch_support::BatchFixture;
using batch_support::urlAsset;

namespace {

struct TutorialBatch : BatchFixture {
    std::int64_t state = 1;
    std::int64_t step = 0;
    std::vector<VRBatchAlert> notes;
    std::vector<std::optional<VRFocusViewState>> focus;
    int finished = 0;

    TutorialBatch() : BatchFixture({urlAsset("/s/a.jpg"), urlAsset("/s/b.mov")}) {}

    void begin() {
        VRBatchServices s = services();
        s.tutorialState = [this] { return state; };
        s.tutorialStep = [this] { return step; };
        s.setTutorialStep = [this](std::int64_t value) { step = value; };
        VRResultControllerEvents e = events();
        e.tutorialNote = [this](const VRBatchAlert& note) { notes.push_back(note); };
        e.focusView = [this](const std::optional<VRFocusViewState>& f) { focus.push_back(f); };
        e.didFinishWithAssets = [this](const std::vector<VRAssetRef>&, bool, bool) { ++finished; };
        controller = std::make_unique<VRResultController>(pending, nullptr, nullptr, e, s);
        controller->viewDidAppear();
    }
    std::string listed(std::size_t index) const {
        return controller->pickerView().assetList().at(index)->objectIdentifier();
    }
};

}  // namespace

// In the tutorial a failing sample shows its prepared result and no error, and no rate counter
// moves; outside it the same failure stops the run with its words.
TEST(TutorialRun, FailingSamplesGiveWayToTheirPreparedResults) {
    for (const std::int64_t state : {1, 0}) {
        SCOPED_TRACE(state);
        TutorialBatch t;
        t.state = state;
        t.begin();
        t.processor->fail(0, VRError::errorWithCode(VRErrorCode::loadFailed));
        if (state == 1) {
            EXPECT_TRUE(t.alerts.empty());
            EXPECT_EQ(t.listed(0), "/s/a-result.jpg");
            ASSERT_EQ(t.processor->calls.size(), 2u);
            t.processor->succeed(1);
            EXPECT_EQ(t.rateProcessed, 0);
            EXPECT_EQ(t.rateErrors, 0);
        } else {
            ASSERT_EQ(t.alerts.size(), 1u);
            EXPECT_EQ(t.listed(0), "/s/a.jpg");
            EXPECT_EQ(t.rateErrors, 1);
            t.controller->touchProcessingButton();
            t.processor->succeed(1);
            EXPECT_EQ(t.rateProcessed, 1);
        }
    }
    const struct {
        const char* path;
        const char* result;
    } names[] = {{"/s/a.jpg", "/s/a-result.jpg"},
                 {"/s.d/clip", "/s.d/clip-result"},
                 {"/s/one.two.mov", "/s/one.two-result.mov"}};
    for (const auto& n : names) {
        EXPECT_EQ(
            VRResultController::_resultAssetForSampleAsset(*urlAsset(n.path))->objectIdentifier(),
            n.result);
    }
}

// The results screen takes the walk to step 12; when the run ends there, the note names the
// albums, its "Next" brings the focus onto the close button, and a touch there reaches step 13,
// hides the focus and goes back.
TEST(TutorialRun, ResultsScreenEndsTheWalkAtTheCloseButton) {
    TutorialBatch t;
    t.step = 11;
    t.begin();
    EXPECT_EQ(t.step, 12);
    t.processor->succeed(0);
    EXPECT_TRUE(t.notes.empty());
    t.processor->succeed(1);
    ASSERT_EQ(t.notes.size(), 1u);
    EXPECT_EQ(t.notes[0].message,
              VRTutorial::autoSaveNoteText("Uwrp photos", "Uwrp videos", "Uwrp originals"));
    EXPECT_EQ(t.notes[0].buttons, std::vector<std::string>{"Next"});
    EXPECT_TRUE(t.focus.empty());
    t.controller->setCloseButtonBounds({{0, 0}, {40, 40}});
    t.notes[0].answer(0);
    ASSERT_EQ(t.focus.size(), 1u);
    ASSERT_TRUE(t.focus[0]);
    EXPECT_EQ(t.focus[0]->targetView, "closeButton");
    EXPECT_EQ(t.focus[0]->targetRect, (CGRect{{0, 0}, {20, 20}}));
    t.controller->focusViewDidRegisterTouch();
    EXPECT_EQ(t.step, 13);
    ASSERT_EQ(t.focus.size(), 2u);
    EXPECT_FALSE(t.focus[1]);
    EXPECT_EQ(t.finished, 1);
    EXPECT_FALSE(t.controller->focusViewState({}));
    t.controller->focusViewDidRegisterTouch();  // no focus any more
    EXPECT_EQ(t.finished, 1);
}

// The home flow set up by a front end: the tutorial starts with it, a file opened meanwhile
// waits, and it is offered when the walk comes back to the main screen at its last step.
TEST(TutorialRun, HomeFlowOffersTheWaitingFileWhenTheWalkEnds) {
    testing_support::TestHome home;
    VRLaunchManager& launch = VRLaunchManager::defaultManager();
    launch._reset();
    navigation_support::Recorder recorder;
    NavigationManager manager{recorder.services()};
    auto flow = VRHomeLaunch::present(manager);
    EXPECT_EQ(launch.tutorialState(), 1);
    EXPECT_EQ(launch.delegate(), flow);
    flow->viewDidAppear();
    launch.setExternalURL("/in/holiday.jpg");
    EXPECT_FALSE(manager.navController()->presentedViewController());
    launch.setTutorialStep(12);
    flow->viewDidAppear();  // back from a screen of the walk before its end
    EXPECT_FALSE(manager.navController()->presentedViewController());
    EXPECT_EQ(launch.tutorialState(), 1);

    launch.setTutorialStep(13);
    flow->viewDidAppear();
    EXPECT_EQ(launch.tutorialState(), 2);
    EXPECT_TRUE(VXHelper::isTutorialComplete());
    const VRScreenRef modal = manager.navController()->presentedViewController();
    ASSERT_TRUE(modal && modal->external());
    EXPECT_EQ(modal->external()->asset->objectIdentifier(), "/in/holiday.jpg");
    EXPECT_FALSE(launch.externalURL());
    launch._reset();
}
