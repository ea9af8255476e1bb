// JSON coding of the template list files (templates/list, templates/recents: arrays of list
// items; templates/collection: an array of keys), in the form the platform's JSON coder writes.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/Error.h"
#include "platform/PlistValue.h"
#include "templates/VRTemplateListItem.h"

namespace VRTemplateListCoding {

// Files larger than this are not read.
inline constexpr std::size_t kMaxFileBytes = 8u << 20;
// Arrays and objects nested deeper than this are refused before parsing.
inline constexpr int kMaxNesting = 16;

// An item is an object with identifier, title (absent when none), description (absent when
// none), mediaTypes (array of numbers), imageSource and iconSource ({"bundle":{"_0":name}},
// {"empty":{}} or {"templateIdentifier":{}}), subtitles and keywords (arrays of strings).
platform::PlistData encodeItems(const std::vector<VRTemplateListItem>& items);
// The whole array or nothing: one malformed item fails the read, as the platform's decoder
// does. Errors are NSCocoaErrorDomain / NSFileReadCorruptFileError with the reason.
std::optional<std::vector<VRTemplateListItem>> decodeItems(const platform::PlistData& data,
                                                           platform::ErrorRef* error = nullptr);

platform::PlistData encodeStrings(const std::vector<std::string>& strings);
std::optional<std::vector<std::string>> decodeStrings(const platform::PlistData& data,
                                                      platform::ErrorRef* error = nullptr);

// One item as a JSON text, for the command's --json output.
std::string itemJSON(const VRTemplateListItem& item);

}  // namespace VRTemplateListCoding
