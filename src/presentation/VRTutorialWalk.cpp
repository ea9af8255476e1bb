#include "presentation/VRTutorialWalk.h"

#include "presentation/VRTutorialFocus.h"

namespace VRTutorial {

const std::vector<VRTutorialWalkStop>& walkStops() {
    static const std::vector<VRTutorialWalkStop> stops{
        {1, "home", "grid", "Select the first [red]photo[/red]", "selected", 2},
        {2, "home", "nextButton", "Tap [red]Next[/red] to choose a template", "screen:templates",
         3},
        {3, "templates", "templateList", "Choose a [red]template[/red] for the selection",
         "screen:summary", 4},
        // The run's screen takes over from here with its own steps.
        {4, "summary", "startButton", "Tap [red]Start[/red] to resize the selection",
         "screen:results", kResultsStep},
    };
    return stops;
}

std::optional<VRTutorialWalkStop> walkStopAtStep(std::int64_t step) {
    for (const auto& stop : walkStops())
        if (stop.step == step) return stop;
    return std::nullopt;
}

std::int64_t stepAfterEvent(std::int64_t step, const std::string& event) {
    auto stop = walkStopAtStep(step);
    return stop && stop->movesOnWhen == event ? stop->nextStep : step;
}

}  // namespace VRTutorial
