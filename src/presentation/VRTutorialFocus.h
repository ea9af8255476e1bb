// What the tutorial's focus view shows: the control it points at and the help text beside it,
// and the note that ends the run of the walk. Used by the screens that take part in the walk.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/Geometry.h"

// The focus view's highlight: the view it points at (its name in the screen), where in that
// view, and the text, which may hold [red] marks.
struct VRFocusViewState {
    std::string targetView;
    CGRect targetRect;
    std::string text;
    friend bool operator==(const VRFocusViewState&, const VRFocusViewState&) = default;
};

namespace VRTutorial {

// The results screen's step, whose touch on the close button leads back to the main screen,
// and the step reached there, at which the walk is no longer active.
inline constexpr std::int64_t kResultsStep = 12;
inline constexpr std::int64_t kBackOnMainStep = 13;

inline constexpr const char* kCloseButtonView = "closeButton";
inline constexpr const char* kBackText =
    "Tap [red]Back[/red] button to return to the [red]Main[/red] screen";
inline constexpr const char* kAutoSaveNoteButton = "Next";
// The tag of the note view, by which the results screen knows its answer.
inline constexpr std::int64_t kAutoSaveNoteTag = 7;

// The results screen's focus: the close button, at half its bounds (origin and size scaled).
VRFocusViewState closeButtonFocus(CGRect closeButtonBounds);

// The note shown when the run ends at the results step: where Auto-Save puts the results and the
// originals, the album names marked red.
std::string autoSaveNoteText(const std::string& photosAlbum, const std::string& videosAlbum,
                             const std::string& originalsAlbum);

// One stop of the walk whose words are fixed: the step, the screen, what it shows (a focus on a
// control, or a note with a button) and its text.
struct VRTutorialStop {
    std::int64_t step;
    std::string screen;
    std::string target;
    std::string text;
    std::string button;
};
// The fixed stops in the order the user meets them.
std::vector<VRTutorialStop> fixedStops(const std::string& photosAlbum,
                                       const std::string& videosAlbum,
                                       const std::string& originalsAlbum);

}  // namespace VRTutorial
