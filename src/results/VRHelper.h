// The stem of every result file: the source's name with the program's "-uwrp" suffix, kept
// idempotent so a file that went through the program before gets its number moved on instead.
// Used by the processor when it names photo and video results.
#pragma once

#include <string>

inline constexpr const char* VRResultFilenameSuffix = "-uwrp";

class VRHelper {
  public:
    // The result stem for `name` (no extension) under the setting
    // isOriginalFilenameSuffixEnabled of VRSettings. The name keeps its historical spelling.
    static std::string originaFilenameForCurrentSettings(const std::string& name,
                                                         bool incrementing);

    // The same rule with the suffix choice given, so it is a pure function of its arguments.
    // The name is matched as "^(.+?)-uwrp([-\s]*)(\d+)?$": the base is the shortest non-empty
    // prefix (without line breaks) that lets the rest match; the number loses leading zeros and
    // moves on by 1 when incrementing; a number beyond 2^63-1 counts as no number.
    static std::string originaFilename(const std::string& name, bool suffixEnabled,
                                       bool incrementing);
};
