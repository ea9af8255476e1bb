// The tutorial's walk over the screens before the results: at each step the control the focus
// view points at, its text, and what the user does there to move on. The results screen's own
// steps (the note and the way back) are VRTutorialFocus's. Used by the web front end.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace VRTutorial {

// What the user does, as a front end tells it: a screen shown ("screen:templates") or a choice
// made ("selected").
struct VRTutorialWalkStop {
    std::int64_t step;
    std::string screen;
    std::string target;
    std::string text;
    std::string movesOnWhen;
    std::int64_t nextStep;
};

// The stops from the first step to the results screen, in order.
const std::vector<VRTutorialWalkStop>& walkStops();
// The stop at a step; none at the results screen's steps and after.
std::optional<VRTutorialWalkStop> walkStopAtStep(std::int64_t step);
// The step after `event` at `step`: the stop's next step when it is the event the stop waits
// for, else `step` unchanged.
std::int64_t stepAfterEvent(std::int64_t step, const std::string& event);

}  // namespace VRTutorial
