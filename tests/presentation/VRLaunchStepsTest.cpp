#include "presentation/VRLaunchSteps.h"

#include <gtest/gtest.h>

#include "presentation/VRTutorialFocus.h"

// Every step's words; the two photo-library steps that ask share theirs, the release notes take
// the version and the notes handed in, and unused steps are empty.
TEST(VRLaunchSteps, WordsAndButtonsByStep) {
    const std::string asks =
        "The app requires limited or full\naccess to your photo library to\noperate properly. "
        "Please grant\nit when prompted.";
    const struct {
        std::int64_t step;
        VRLaunchStepContent content;
    } rows[] = {
        {0,
         {"Welcome",
          "Unwarp empowers you with\nbatch resizing and optimization\ntools to process Photos, "
          "Videos,\nand Live Photos.",
          "Continue"}},
        {1, {"Photo Library", asks, "Continue"}},
        {2,
         {"Tutorial",
          "Unwarp offers a quick walk-\nthrough tour to explore the app\nand its functionalities.",
          "Get Started"}},
        {3,
         {"Home Screen",
          "The app provides two different\nHome Screen behavior options.\nSelect the option that "
          "suits you\nbest when prompted.",
          "Select Mode"}},
        {4, {"What's New in 2.1", "- one\n- two", "Continue"}},
        {9, {"Photo Library", asks, "Continue"}},
        {10,
         {"Photo Library",
          "The app requires limited or full\naccess to your photo library to\noperate properly. "
          "Please grant\nit in the Settings.",
          "Settings"}},
        {5, {}},
        {8, {}},
        {11, {}},
        {-1, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.step);
        EXPECT_EQ(VRLaunchStepContentForStep(row.step, "2.1", "- one\n- two"), row.content);
    }
}

// The results screen's stops: the note names the three albums in order, and the focus points at
// half the close button's bounds.
TEST(VRTutorialFocus, ResultsScreenStops) {
    EXPECT_EQ(VRTutorial::autoSaveNoteText("P", "V", "O"),
              "When Auto-Save is enabled, results are automatically saved to Photo Library in "
              "albums [red]P[/red] and [red]V[/red], originals - to [red]O[/red]");
    // A name holding the mark itself is not filled again.
    EXPECT_EQ(VRTutorial::autoSaveNoteText("%@", "V", "O"),
              "When Auto-Save is enabled, results are automatically saved to Photo Library in "
              "albums [red]%@[/red] and [red]V[/red], originals - to [red]O[/red]");
    const VRFocusViewState focus = VRTutorial::closeButtonFocus({{10, 20}, {44, 30}});
    EXPECT_EQ(focus.targetView, "closeButton");
    EXPECT_EQ(focus.targetRect, (CGRect{{5, 10}, {22, 15}}));
    EXPECT_EQ(focus.text, "Tap [red]Back[/red] button to return to the [red]Main[/red] screen");
}
