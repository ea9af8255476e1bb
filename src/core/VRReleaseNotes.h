// The release notes kept in the program, newest last: one entry per version that has notes.
// The launch steps show the notes of lastVersion once after an upgrade.
#pragma once

#include <string>
#include <vector>

class VRReleaseNotes {
  public:
    struct Entry {
        std::string version;
        std::vector<std::string> lines;
    };

    VRReleaseNotes() = delete;

    // Oldest first.
    static const std::vector<Entry>& entries();
    // The version of the newest entry.
    static std::string lastVersion();
};
