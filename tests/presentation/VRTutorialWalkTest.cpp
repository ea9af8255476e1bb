#include "presentation/VRTutorialWalk.h"

#include <gtest/gtest.h>

#include "presentation/VRTutorialFocus.h"

namespace {

// The walk moves on only on the doing its step waits for, and hands over to the results
// screen's step when the run's screen shows.
TEST(VRTutorialWalk, MovesOnOnlyOnTheDoingItsStepWaitsFor) {
    const struct {
        std::int64_t step;
        const char* event;
        std::int64_t after;
    } cases[] = {
        {1, "selected", 2},
        {1, "screen:templates", 1},
        {2, "selected", 2},
        {2, "screen:templates", 3},
        {3, "screen:summary", 4},
        {3, "screen:home", 3},
        {4, "screen:results", VRTutorial::kResultsStep},
        {VRTutorial::kResultsStep, "screen:home", VRTutorial::kResultsStep},
        {VRTutorial::kBackOnMainStep, "selected", VRTutorial::kBackOnMainStep},
        {0, "selected", 0},
    };
    for (const auto& c : cases)
        EXPECT_EQ(VRTutorial::stepAfterEvent(c.step, c.event), c.after) << c.step << " " << c.event;
}

// Every stop of the walk is reached from the first one, and the last hands over to the results.
TEST(VRTutorialWalk, EveryStopIsReachedAndTheLastLeadsToTheResults) {
    std::int64_t step = 1;
    for (const auto& stop : VRTutorial::walkStops()) {
        ASSERT_EQ(stop.step, step);
        EXPECT_NE(stop.text.find("[red]"), std::string::npos) << stop.text;
        step = VRTutorial::stepAfterEvent(step, stop.movesOnWhen);
    }
    EXPECT_EQ(step, VRTutorial::kResultsStep);
    EXPECT_FALSE(VRTutorial::walkStopAtStep(VRTutorial::kResultsStep));
}

}  // namespace
