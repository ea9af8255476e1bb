// Template helpers of VXHelper: the name check of the save dialog, the two-line description,
// and the detail lines (subtitles) of a template's list item. Used by the store, the catalogue
// and the command.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "model/VRSizeEntry.h"
#include "model/VRSizeOption.h"
#include "templates/VXTemplate.h"

namespace VXHelper {

// A name with a character other than white space or newline (of any script: a no-break space
// is blank) comes back as given, untrimmed;
// otherwise "Template N" with N = nextTemplateIndex + 1.
std::string validateTemplateName(const std::optional<std::string>& name,
                                 std::uint64_t nextTemplateIndex);

// "Photo: Clip 1080 x 1080 px Normal to JPEG\nVideo: ..." ("No photo settings" for a missing
// media type).
std::string descriptionForTemplate(const VXTemplate& tpl);

// One detail line of a size entry as the lists style it: "360 x 360 PX", "600 x Auto PX",
// "133 x 100 %", "1 : 1 0x2193" ("0x2191" for ratio up), with " [S]" when `smart`. "[S]" and
// "0x2193" are tokens of the list's text styling, kept as they are.
std::string subtitleForSizeEntry(const VRSizeEntry& entry, bool smart);

// The detail lines of a template: the photo line (or the video line of a video-only
// template), and the video size when it differs from the photo's.
std::vector<std::string> subtitlesForTemplate(const VXTemplate& tpl);

}  // namespace VXHelper
