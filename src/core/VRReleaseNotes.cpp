#include "core/VRReleaseNotes.h"

const std::vector<VRReleaseNotes::Entry>& VRReleaseNotes::entries() {
    static const std::vector<Entry> notes = {
        {"0.1.0", {"Batch resizing of photos, videos and Live Photos from the command line."}},
    };
    return notes;
}

std::string VRReleaseNotes::lastVersion() {
    return entries().back().version;
}
