#include "app/TemplateArguments.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>

namespace app {

namespace {

std::string lowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// A plain decimal number, the whole text; nothing else (no "inf", no hex, no sign).
std::optional<double> parseNumber(const std::string& text) {
    if (text.empty() || text.size() > 32) return std::nullopt;
    bool digit = false, point = false;
    for (char c : text) {
        if (std::isdigit(static_cast<unsigned char>(c))) {
            digit = true;
        } else if (c == '.' && !point) {
            point = true;
        } else {
            return std::nullopt;
        }
    }
    if (!digit) return std::nullopt;
    return std::strtod(text.c_str(), nullptr);
}

std::optional<double> parseSide(std::string text, bool allowAuto, double maximum) {
    if (allowAuto && lowercase(text) == "auto") return 0.0;
    auto value = parseNumber(text);
    if (!value || *value > maximum) return std::nullopt;
    return value;
}

bool splitAt(const std::string& text, char separator, std::string* first, std::string* second) {
    auto at = text.find(separator);
    if (at == std::string::npos || text.find(separator, at + 1) != std::string::npos) return false;
    *first = text.substr(0, at);
    *second = text.substr(at + 1);
    return true;
}

template <class T>
std::optional<T> fail(std::string* problem, std::string message) {
    if (problem) *problem = std::move(message);
    return std::nullopt;
}

}  // namespace

std::optional<VRSizeEntry> parseSizeEntry(const std::string& input, std::string* problem) {
    const std::string text = lowercase(input);
    std::string first, second;
    if (splitAt(text, ':', &first, &second)) {
        VRSizeEntryType type = VRSizeTypeRatioDown;
        for (auto [suffix, suffixType] :
             {std::pair{"up", VRSizeTypeRatioUp}, std::pair{"down", VRSizeTypeRatioDown}}) {
            std::string word(suffix);
            if (second.size() > word.size() && second.ends_with(word)) {
                second.resize(second.size() - word.size());
                type = suffixType;
            }
        }
        auto width = parseSide(first, false, 100000), height = parseSide(second, false, 100000);
        if (!width || !height || *width <= 0 || *height <= 0) {
            return fail<VRSizeEntry>(problem, "a ratio needs two positive numbers: " + input);
        }
        return VRSizeEntry::sizeEntryWithWidth(*width, *height, type);
    }
    if (!splitAt(text, 'x', &first, &second)) {
        return fail<VRSizeEntry>(
            problem, "a size is WxH, W%xH% or W:H (e.g. 1200x600, 133%x100%, 16:9): " + input);
    }
    const bool percent = first.ends_with('%') || second.ends_with('%');
    if (percent) {
        if (!first.ends_with('%') || !second.ends_with('%')) {
            return fail<VRSizeEntry>(problem, "both sides of a percent size end in %: " + input);
        }
        first.pop_back();
        second.pop_back();
    }
    auto width = parseSide(first, !percent, percent ? 10000 : 100000);
    auto height = parseSide(second, !percent, percent ? 10000 : 100000);
    if (!width || !height) {
        return fail<VRSizeEntry>(problem, "unreadable size: " + input);
    }
    return VRSizeEntry::sizeEntryWithWidth(*width, *height,
                                           percent ? VRSizeTypePercent : VRSizeTypePixels);
}

std::optional<CGSize> parseSourceSize(const std::string& input, std::string* problem) {
    std::string first, second;
    if (splitAt(lowercase(input), 'x', &first, &second)) {
        auto width = parseSide(first, false, 1000000), height = parseSide(second, false, 1000000);
        if (width && height && *width >= 1 && *height >= 1 && std::floor(*width) == *width &&
            std::floor(*height) == *height) {
            return CGSize{*width, *height};
        }
    }
    return fail<CGSize>(problem, "a source size is WxH in whole pixels (e.g. 4032x3024): " + input);
}

std::optional<VRSizeOption> parseMethod(const std::string& input, std::string* problem) {
    const std::string text = lowercase(input);
    if (text == "stretch") return VRSizeOptionStretch;
    if (text == "fit") return VRSizeOptionRatioFit;
    if (text == "clip") return VRSizeOptionRatioClip;
    return fail<VRSizeOption>(problem, "a method is stretch, fit or clip: " + input);
}

std::optional<VRFormat> parseFormat(const std::string& input, std::uint64_t mediaType,
                                    std::string* problem) {
    const std::string text = lowercase(input);
    for (std::uint64_t type = VRFormatTypeAuto; type <= VRFormatType3G2; ++type) {
        VRFormat format = VRFormat::formatWithTypeMediaType(type, mediaType);
        if (lowercase(format.name()) != text && !(type == VRFormatTypeJPEG && text == "jpg")) {
            continue;
        }
        if (format.mediaType() != mediaType) {
            return fail<VRFormat>(
                problem, format.name() + " is not a " +
                             (mediaType == VRFormatMediaTypeVideo ? "video" : "photo") + " format");
        }
        return format;
    }
    return fail<VRFormat>(problem, "unknown format: " + input);
}

std::optional<std::uint64_t> parseMediaType(const std::string& input, std::string* problem) {
    const std::string text = lowercase(input);
    if (text == "photo") return VRFormatMediaTypePhoto;
    if (text == "video") return VRFormatMediaTypeVideo;
    return fail<std::uint64_t>(problem, "a media type is photo or video: " + input);
}

std::string methodWord(const VRSizeOptions& options) {
    if (containsOption(options, VRSizeOptionRatioClip)) return "clip";
    if (containsOption(options, VRSizeOptionRatioFit)) return "fit";
    return "stretch";
}

}  // namespace app
