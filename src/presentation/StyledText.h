// The small mark-up of the program's help texts: "Tap [red]Back[/red] to return" becomes runs
// of text with named styles. Used by every note and help text.
#pragma once

#include <string>
#include <vector>

#include "platform/PlistValue.h"

// The style entry whose attributes lie over the whole text.
inline constexpr const char* VRStyledTextBasicKey = "_vr_basic_key";

// One run of text. `styleName` is the tag that styled it, empty for plain text; `attributes` are
// the tag's attributes with the basic attributes over them (a basic attribute wins).
struct VRTextRun {
    std::string text;
    std::string styleName;
    platform::PlistDictionary attributes;
    friend bool operator==(const VRTextRun&, const VRTextRun&) = default;
};

struct VRAttributedString {
    std::vector<VRTextRun> runs;  // neighbours never share style and attributes
    std::string string() const;
};

// Tags are "[name]" with name of word characters (\w: letters and marks of any script, digits, _),
// closed by "[/name]", and do not nest. A tag is applied only when `styles` has an entry for its
// name (a non-dictionary entry gives no attributes) and its closing tag follows; otherwise the tag
// stays in the text as written.
VRAttributedString attributedStringWithStyledText(const std::string& text,
                                                  const platform::PlistDictionary& styles);
