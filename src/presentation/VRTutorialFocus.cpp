#include "presentation/VRTutorialFocus.h"

namespace VRTutorial {

namespace {

// Each "%@" in turn takes the next value; extra marks stay as written.
std::string format(std::string text, const std::vector<std::string>& values) {
    std::size_t from = 0;
    for (const std::string& value : values) {
        const std::size_t at = text.find("%@", from);
        if (at == std::string::npos) break;
        text.replace(at, 2, value);
        from = at + value.size();
    }
    return text;
}

}  // namespace

VRFocusViewState closeButtonFocus(CGRect bounds) {
    constexpr double kScale = 0.5;
    const CGRect rect{{bounds.origin.x * kScale, bounds.origin.y * kScale},
                      {bounds.size.width * kScale, bounds.size.height * kScale}};
    return {kCloseButtonView, rect, kBackText};
}

std::string autoSaveNoteText(const std::string& photosAlbum, const std::string& videosAlbum,
                             const std::string& originalsAlbum) {
    return format(
        "When Auto-Save is enabled, results are automatically saved to Photo Library in albums "
        "[red]%@[/red] and [red]%@[/red], originals - to [red]%@[/red]",
        {photosAlbum, videosAlbum, originalsAlbum});
}

std::vector<VRTutorialStop> fixedStops(const std::string& photosAlbum,
                                       const std::string& videosAlbum,
                                       const std::string& originalsAlbum) {
    return {
        {kResultsStep, "results", "note",
         autoSaveNoteText(photosAlbum, videosAlbum, originalsAlbum), kAutoSaveNoteButton},
        {kResultsStep, "results", kCloseButtonView, kBackText, ""},
    };
}

}  // namespace VRTutorial
