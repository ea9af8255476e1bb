// The text forms of sizes, ratios, size entries, templates and data lengths, as the lists,
// editing views and dialogs show them. Pure apart from the cached ratio formatter.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "model/VRFormat.h"
#include "model/VRSizeEntry.h"
#include "model/VRSizeOption.h"
#include "platform/Geometry.h"

namespace VXHelper {

// A piece of text in one style: the separators of the preview lines are drawn in the theme's
// gray highlight colour, the rest in the plain text colour.
struct TextRun {
    std::string text;
    bool grayHighlight = false;
    friend bool operator==(const TextRun&, const TextRun&) = default;
};
using AttributedText = std::vector<TextRun>;
std::string plainText(const AttributedText& text);

// One number, "%0.0f" of the rounded value; never a negative zero.
std::string stringFromValue(double value);
// "W x H"; with useAutoSize a zero side prints "Auto".
std::string stringFromSize(CGSize size, bool useAutoSize);
std::string stringFromSize(CGSize size);
// "W x H", "W % H" / "W x H %", "W : H <arrow>"; long pixel forms end in " px".
std::string stringFromSizeEntry(const VRSizeEntry& entry, bool longVariant);
// 0 to 2 fraction digits, halves rounded up: 2.35 -> "2.35", 4 -> "4", 1234 -> "1,234".
std::string ratioFormatterString(double value);
// "W : H" by the ratio formatter.
std::string ratioStringWithRatioSize(CGSize ratioSize);
// Format name | size | ratio, separators gray.
AttributedText stringFromImageUTI(const std::string& typeIdentifier, CGSize pixelSize);
// Size | ratio | warp factor "x"; detailed adds "Size ", "Ratio ", "Warp " and wider
// separators. The warp factor is the larger ratio over the smaller, 1 when either is 0.
AttributedText stringForEditingPreviewWithAbsoluteSize(CGSize absoluteSize, CGSize originalSize,
                                                       bool detailed);
// "Smart size 1200 x 600" or "Normal size ...": the adjust screen's line, before styling.
std::string stringForAdjustPreviewWithAbsoluteSize(CGSize absoluteSize, bool smart);
// "512b", "0.5Kb", "10Kb", "1.2Mb", "3Gb" by binary units.
std::string stringFromDataLength(std::uint64_t length);

// What descriptionForTemplate needs of a template for one media type; no size entry means
// the template has no settings for that type.
struct TemplateMediaSettings {
    std::optional<VRSizeEntry> sizeEntry;
    VRSizeOptions options;
    VRFormat format;
};
// "Photo: Stretch 1200 x 600 px Normal to JPEG" (or "No photo settings"), then the video
// line, joined by "\n".
std::string descriptionForTemplate(const TemplateMediaSettings& photo,
                                   const TemplateMediaSettings& video);
// One line of it.
std::string descriptionForMediaSettings(std::uint64_t mediaType,
                                        const TemplateMediaSettings& settings);

}  // namespace VXHelper
