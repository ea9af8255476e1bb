// The decision before a share: whether to ask for a base name (exportFilenameType 1, "Ask for
// a filename when sharing") and what the sharing-name view starts with; and taking the name
// the user accepted. Used by the results screen and `unwarp results share`.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct VRSharingNamePrompt {
    // The words of the sharing-name view.
    static constexpr const char* kTitle = "Sharing filename";
    static constexpr const char* kMessage = "Enter base name for files to share";
    static constexpr const char* kPlaceholder = "Enter base name";
    // The error label shown instead of the preview while the text can't be a base name.
    static constexpr const char* kInvalidNameText =
        "Use letters, digits and _-.@!* with at most one % for the number";

    std::string name;  // the stored exportFilenameBasename
    std::uint64_t count = 0;
    std::uint64_t digits = 1;             // digitsForCount of the count
    std::vector<std::string> extensions;  // of the output formats, in order
    // The preview under the field for `name`, or empty when the name is not valid.
    std::string previewForName(const std::string& text) const;
};

// The prompt to show for `count` items with these extensions; absent with exportFilenameType
// 0, when the share starts at once without a name.
std::optional<VRSharingNamePrompt> sharingNamePromptForCount(
    std::uint64_t count, const std::vector<std::string>& extensions);

// Takes an accepted name: stores it as exportFilenameBasename when it is valid (at most one
// "%", otherwise a valid file name) and answers whether it was.
bool acceptSharingName(const std::string& name);
