// Reading the template commands' values from the command line: sizes ("1200x600",
// "600xauto", "133%x100%", "16:9", "16:9up"), methods (stretch, fit, clip), format names and
// media words. Each answers an absent value, with the reason, for text it can't read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "model/VRFormat.h"
#include "model/VRSizeEntry.h"
#include "model/VRSizeOption.h"
#include "platform/Geometry.h"

namespace app {

// Pixels "WxH" (a side may be "auto" or 0), percent "W%xH%", ratio "W:H" (shrinking into the
// source; "W:Hup" grows around it). Sides are finite and at most 100000 (percent 10000).
std::optional<VRSizeEntry> parseSizeEntry(const std::string& text, std::string* problem);
// "WxH" with both sides positive whole numbers up to 1000000.
std::optional<CGSize> parseSourceSize(const std::string& text, std::string* problem);
// stretch, fit, clip: the size option code 5, 4 or 3.
std::optional<VRSizeOption> parseMethod(const std::string& text, std::string* problem);
// A format name of the given media type (or Auto), any case: "jpeg", "PNG", "mov", "auto".
std::optional<VRFormat> parseFormat(const std::string& text, std::uint64_t mediaType,
                                    std::string* problem);
// "photo" 1, "video" 2.
std::optional<std::uint64_t> parseMediaType(const std::string& text, std::string* problem);

// "stretch", "fit" or "clip" as the pipelines read the options (clip before fit).
std::string methodWord(const VRSizeOptions& options);

}  // namespace app
