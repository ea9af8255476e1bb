#include "core/VRReleaseNotes.h"

const std::vector<VRReleaseNotes::Entry>& VRReleaseNotes::entries() {
    static const std::vector<Entry> notes = {
        {"0.1.0",
         {"• Batch resizing of photos, videos and Live Photos with templates, including the "
          "Anamorphic un-warp group from 1.33x to 2.00x.",
          "• Flip, rotate and shift each item inside its frame, with a fill colour of your own.",
          "• Results kept in a list, saved to the albums of your photo library or shared under "
          "names of your choice.",
          "• Files opened from other applications go straight to the home screen."}},
    };
    return notes;
}

std::string VRReleaseNotes::lastVersion() {
    return entries().back().version;
}
