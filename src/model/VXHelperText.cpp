#include "model/VXHelperText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "model/VRFormatMediaType.h"
#include "model/VXHelperSize.h"

namespace VXHelper {

namespace {

constexpr const char* kUpArrow = "\u2191";
constexpr const char* kDownArrow = "\u2193";
constexpr const char* kSeparator = " | ";

std::string format(const char* pattern, double value) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, pattern, value);
    return buffer;
}

std::string sideString(double value, bool useAuto) {
    if (useAuto && value == 0) return "Auto";
    return stringFromValue(value);
}

// Adds one to the decimal digit string (no sign, no point), carrying to the left.
void incrementDigits(std::string& digits) {
    for (auto i = digits.size(); i-- > 0;) {
        if (digits[i] != '9') {
            ++digits[i];
            return;
        }
        digits[i] = '0';
    }
    digits.insert(digits.begin(), '1');
}

std::string groupThousands(const std::string& integer) {
    std::string out;
    const auto n = integer.size();
    for (std::size_t i = 0; i < n; ++i) {
        if (i > 0 && (n - i) % 3 == 0) out.push_back(',');
        out.push_back(integer[i]);
    }
    return out;
}

AttributedText joinedItems(const std::vector<std::string>& items, const std::string& separator) {
    AttributedText text;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0) text.push_back({separator, true});
        text.push_back({items[i], false});
    }
    return text;
}

}  // namespace

std::string plainText(const AttributedText& text) {
    std::string out;
    for (const auto& run : text) out += run.text;
    return out;
}

std::string stringFromValue(double value) {
    const double r = std::round(value);
    return format("%0.0f", r == 0 ? 0.0 : r);
}

std::string stringFromSize(CGSize size, bool useAutoSize) {
    return sideString(size.width, useAutoSize) + " x " + sideString(size.height, useAutoSize);
}

std::string stringFromSize(CGSize size) {
    return stringFromSize(size, true);
}

std::string stringFromSizeEntry(const VRSizeEntry& entry, bool longVariant) {
    std::string separator = "x", tail, appended;
    switch (entry.type()) {
        case VRSizeTypePixels:
            appended = " px";
            break;
        case VRSizeTypePercent:
            separator = longVariant ? "x" : "%";
            appended = " %";
            break;
        case VRSizeTypeRatioUp:
            separator = ":";
            tail = std::string(" ") + kUpArrow;
            break;
        case VRSizeTypeRatioDown:
            separator = ":";
            tail = std::string(" ") + kDownArrow;
            break;
        default:
            break;
    }
    std::string text = sideString(entry.width(), true) + " " + separator + " " +
                       sideString(entry.height(), true) + tail;
    if (longVariant) text += appended;
    return text;
}

// A decimal formatter with at most two fraction digits and halves rounded up, working on the
// shortest decimal form of the double as a number formatter does, so 2.345 gives "2.35".
std::string ratioFormatterString(double value) {
    if (!std::isfinite(value)) return value != value ? "NaN" : (value < 0 ? "-∞" : "∞");
    char buffer[512];
    auto [end, ec] =
        std::to_chars(buffer, buffer + sizeof buffer, std::fabs(value), std::chars_format::fixed);
    if (ec != std::errc()) return stringFromValue(value);
    std::string_view text(buffer, static_cast<std::size_t>(end - buffer));
    const auto point = text.find('.');
    std::string integer(text.substr(0, point));
    std::string fraction =
        point == std::string_view::npos ? "" : std::string(text.substr(point + 1));
    if (fraction.size() > 2) {
        const bool up = fraction[2] >= '5';
        std::string digits = integer + fraction.substr(0, 2);
        if (up) incrementDigits(digits);
        integer = digits.substr(0, digits.size() - 2);
        fraction = digits.substr(digits.size() - 2);
    }
    while (!fraction.empty() && fraction.back() == '0') fraction.pop_back();
    std::string out = groupThousands(integer);
    if (!fraction.empty()) out += "." + fraction;
    const bool negative = value < 0 && out.find_first_not_of("0.,") != std::string::npos;
    return negative ? "-" + out : out;
}

std::string ratioStringWithRatioSize(CGSize ratioSize) {
    return ratioFormatterString(ratioSize.width) + " : " + ratioFormatterString(ratioSize.height);
}

AttributedText stringFromImageUTI(const std::string& typeIdentifier, CGSize pixelSize) {
    return joinedItems(
        {VRFormat::formatFromUTI(typeIdentifier).name(), stringFromSize(pixelSize, false),
         ratioStringWithRatioSize(ratioSizeWithSize(pixelSize))},
        kSeparator);
}

AttributedText stringForEditingPreviewWithAbsoluteSize(CGSize absoluteSize, CGSize originalSize,
                                                       bool detailed) {
    const double a = ratio(absoluteSize), o = ratio(originalSize);
    const double warp = (a == 0 || o == 0) ? 1.0 : std::max(a, o) / std::min(a, o);
    std::string size = stringFromSize(absoluteSize);
    std::string ratioText = ratioStringWithRatioSize(ratioSizeWithSize(absoluteSize));
    std::string warpText = ratioFormatterString(warp) + "x";
    if (!detailed) return joinedItems({size, ratioText, warpText}, kSeparator);
    return joinedItems({"Size " + size, "Ratio " + ratioText, "Warp " + warpText},
                       std::string(" ") + kSeparator + " ");
}

std::string stringForAdjustPreviewWithAbsoluteSize(CGSize absoluteSize, bool smart) {
    return std::string(smart ? "Smart" : "Normal") + " size " + stringFromSize(absoluteSize);
}

std::string stringFromDataLength(std::uint64_t length) {
    constexpr double kKiB = 1024.0, kMiB = kKiB * 1024, kGiB = kMiB * 1024;
    if (length <= 512) return std::to_string(length) + "b";
    const double bytes = static_cast<double>(length);
    double value;
    const char* unit;
    if (bytes <= 512 * kKiB) {
        value = bytes / kKiB;
        unit = "Kb";
    } else if (bytes <= 512 * kMiB) {
        value = bytes / kMiB;
        unit = "Mb";
    } else {
        value = bytes / kGiB;
        unit = "Gb";
    }
    if (value < 10) return format("%0.1f", std::round(value * 10) / 10) + unit;
    return format("%0.0f", std::round(value)) + unit;
}

std::string descriptionForMediaSettings(std::uint64_t mediaType,
                                        const TemplateMediaSettings& settings) {
    if (!settings.sizeEntry) {
        std::string word = titleForMediaType(mediaType);
        std::transform(word.begin(), word.end(), word.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        return "No " + word + " settings";
    }
    const VRSizeEntry& entry = *settings.sizeEntry;
    const char* method = containsOption(settings.options, VRSizeOptionRatioFit)    ? "Fit"
                         : containsOption(settings.options, VRSizeOptionRatioClip) ? "Clip"
                                                                                   : "Stretch";
    std::string sizeWord = "Normal";
    if (containsOption(settings.options, VRSizeOptionSmart)) {
        sizeWord = "Smart";
        const bool targetPortrait = containsOption(settings.options, VRSizeOptionTargetPortrait);
        if (!entry.isSquare() && targetPortrait != entry.isPortrait()) sizeWord += " Inv.";
    }
    std::string formatName = settings.format.name();
    std::transform(formatName.begin(), formatName.end(), formatName.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return titleForMediaType(mediaType) + ": " + method + " " + stringFromSizeEntry(entry, true) +
           " " + sizeWord + " to " + formatName;
}

std::string descriptionForTemplate(const TemplateMediaSettings& photo,
                                   const TemplateMediaSettings& video) {
    return descriptionForMediaSettings(VRFormatMediaTypePhoto, photo) + "\n" +
           descriptionForMediaSettings(VRFormatMediaTypeVideo, video);
}

}  // namespace VXHelper
