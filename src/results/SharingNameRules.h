// What the sharing-name view decides as the user types a base name: whether the text is
// accepted, and the preview of the names it will give. Used by export and the command.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The text is valid when it has at most one "%" and, without that "%", is a valid file name
// (VXHelper::isValidFileName). The empty text and a lone "%" are invalid.
bool isValidSharingBaseName(const std::string& text);

// The preview under the field (`_infoTextWithName:`): with at most one extension, the name with
// that extension after a dot; with more, "NAME1, NAME2, etc" from the sharing names of index 1
// (first extension) and 2 (last extension), padded to `digits`.
std::string sharingNamePreviewText(const std::string& name, std::uint64_t digits,
                                   const std::vector<std::string>& extensions);
