#include "core/SettingsItemBuilders.h"

#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <regex>
#include <sstream>

#include "core/CrashReporting.h"
#include "model/VRFormat.h"
#include "model/VXHelperSize.h"
#include "model/VXHelperText.h"
#include "storage/VRSettings.h"
#include "storage/VRSettings2.h"

namespace settings_items {

using platform::PlistArray;
using platform::PlistValue;

namespace {

std::string boolText(bool value) {
    return value ? "true" : "false";
}

std::string numberText(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

std::string lowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> parts;
    std::stringstream stream(text);
    for (std::string part; std::getline(stream, part, ',');) {
        auto first = part.find_first_not_of(' ');
        auto last = part.find_last_not_of(' ');
        parts.push_back(first == std::string::npos ? "" : part.substr(first, last - first + 1));
    }
    return parts;
}

std::optional<bool> parseBool(const std::string& text) {
    for (const char* yes : {"true", "yes", "on", "1"}) {
        if (text == yes) return true;
    }
    for (const char* no : {"false", "no", "off", "0"}) {
        if (text == no) return false;
    }
    return std::nullopt;
}

std::optional<double> parseDouble(const std::string& text) {
    char* end = nullptr;
    double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(value)) return std::nullopt;
    return value;
}

std::optional<std::int64_t> parseInteger(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    long long value = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno == ERANGE) return std::nullopt;
    return value;
}

// "WxH" in whole pixels from 1 to 1000000, digits only.
std::optional<CGSize> parsePixelSize(const std::string& input, std::string* problem) {
    static const std::regex pattern("^([0-9]{1,7})x([0-9]{1,7})$");
    std::smatch match;
    const std::string text = lowercase(input);
    if (std::regex_match(text, match, pattern)) {
        const double width = std::stod(match[1]), height = std::stod(match[2]);
        if (width >= 1 && height >= 1 && width <= 1000000 && height <= 1000000)
            return CGSize{width, height};
    }
    *problem = "a source size is WxH in whole pixels (e.g. 4032x3024): " + input;
    return std::nullopt;
}

// A format by its name ("jpg" too) that belongs to the media type.
std::optional<VRFormat> parseFormat(const std::string& input, std::uint64_t mediaType,
                                    std::string* problem) {
    const std::string text = lowercase(input);
    for (std::uint64_t type = VRFormatTypeAuto; type <= VRFormatType3G2; ++type) {
        VRFormat format = VRFormat::formatWithTypeMediaType(type, mediaType);
        if (lowercase(format.name()) != text && !(type == VRFormatTypeJPEG && text == "jpg"))
            continue;
        if (format.mediaType() != mediaType) {
            *problem = format.name() + " is not a " +
                       (mediaType == VRFormatMediaTypeVideo ? "video" : "photo") + " format";
            return std::nullopt;
        }
        return format;
    }
    *problem = "unknown format: " + input;
    return std::nullopt;
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string sizesText(const PlistArray& sizes) {
    std::string text;
    for (const auto& size : sizes) {
        if (!text.empty()) text += ", ";
        const PlistArray* pair = size.array();
        text += VXHelper::stringFromSize(VXHelper::sizeWithSizeArray(pair ? *pair : PlistArray{}));
    }
    return text;
}

std::string integersText(const VRSizeOptions& values) {
    std::string text = "[";
    for (auto value : values) text += (text.size() > 1 ? ", " : "") + std::to_string(value);
    return text + "]";
}

std::string colorText(const std::optional<VRColor>& color) {
    if (!color) return "none";
    return numberText(color->red) + "," + numberText(color->green) + "," + numberText(color->blue) +
           "," + numberText(color->alpha);
}

std::string storedNumber(const char* key) {
    PlistValue value = VRSettings::objectForKey(key);
    return value.isNull() ? "absent" : numberText(value.doubleValue());
}

}  // namespace

Item shown(Item item, const Words& words) {
    item.screen = words.screen;
    item.section = words.section;
    item.label = words.label;
    item.footer = words.footer;
    item.unit = words.unit;
    item.placeholder = words.placeholder;
    item.rank = words.rank;
    return item;
}

Item withChoices(Item item, std::vector<VRSettingsChoice> choices) {
    item.kind = Kind::choice;
    item.choices = std::move(choices);
    return item;
}

// `whenOn` and `whenOff` tell what the accessor's true and false mean.
Item boolSetting(std::string key, std::string accessor, std::function<bool()> get,
                 std::function<void(bool)> set, std::string whenOn, std::string whenOff) {
    const bool negated = endsWith(key, "Disabled");
    Item item;
    item.key = std::move(key);
    item.accessor = std::move(accessor);
    item.kind = Kind::toggle;
    item.negated = negated;
    item.get = [get, negated] { return boolText(get() != negated); };
    item.set = [set, negated](const std::string& text, bool byAccessor, std::string* problem) {
        auto value = parseBool(text);
        if (!value) *problem = "expected true or false: " + text;
        if (value) set(byAccessor ? *value : *value != negated);
        return value.has_value();
    };
    if (!whenOn.empty()) item.meaning = [get, whenOn, whenOff] { return get() ? whenOn : whenOff; };
    return item;
}

Item plainSetting(std::string key, std::string accessor, Kind kind,
                  std::function<std::string()> get, decltype(Item::set) set,
                  std::function<std::string()> meaning) {
    Item item;
    item.key = std::move(key);
    item.accessor = std::move(accessor);
    item.kind = kind;
    item.get = std::move(get);
    item.set = std::move(set);
    item.meaning = std::move(meaning);
    return item;
}

Item doubleSetting(std::string key, std::string accessor, std::function<double()> get,
                   std::function<void(double)> set, double minimum, double maximum) {
    Item item = plainSetting(
        std::move(key), std::move(accessor), Kind::number, [get] { return numberText(get()); },
        [set, minimum, maximum](const std::string& text, bool, std::string* problem) {
            auto value = parseDouble(text);
            if (!value || *value < minimum || *value > maximum) {
                *problem = "expected a number from " + numberText(minimum) + " to " +
                           numberText(maximum) + ": " + text;
                return false;
            }
            set(*value);
            return true;
        });
    item.minimum = minimum;
    item.maximum = maximum;
    return item;
}

Item integerSetting(std::string key, std::string accessor, std::function<std::int64_t()> get,
                    std::function<void(std::int64_t)> set, std::int64_t minimum,
                    std::int64_t maximum) {
    Item item = plainSetting(
        std::move(key), std::move(accessor), Kind::number, [get] { return std::to_string(get()); },
        [set, minimum, maximum](const std::string& text, bool, std::string* problem) {
            auto value = parseInteger(text);
            if (!value || *value < minimum || *value > maximum) {
                *problem = "expected a whole number from " + std::to_string(minimum) + " to " +
                           std::to_string(maximum) + ": " + text;
                return false;
            }
            set(*value);
            return true;
        });
    item.minimum = static_cast<double>(minimum);
    item.maximum = static_cast<double>(maximum);
    return item;
}

Item sizesSetting(std::string key, std::function<PlistArray()> get,
                  std::function<void(const PlistArray&)> set) {
    std::string accessor = key;
    return plainSetting(
        std::move(key), std::move(accessor), Kind::text, [get] { return sizesText(get()); },
        [set](const std::string& text, bool, std::string* problem) {
            PlistArray sizes;
            for (const auto& part : split(text)) {
                auto size = parsePixelSize(part, problem);
                if (!size) return false;
                sizes.emplace_back(VXHelper::sizeArrayWithSize(*size));
            }
            if (sizes.empty() || sizes.size() > 10) {
                *problem = "expected 1 to 10 sizes, WxH separated by commas";
                return false;
            }
            set(sizes);
            return true;
        });
}

Item optionsSetting(std::string key, std::function<VRSizeOptions()> get,
                    std::function<void(const VRSizeOptions&)> set) {
    std::string accessor = key;
    return plainSetting(
        std::move(key), std::move(accessor), Kind::text, [get] { return integersText(get()); },
        [set](const std::string& text, bool, std::string* problem) {
            VRSizeOptions options;
            for (const auto& part : split(text)) {
                auto value = parseInteger(part);
                if (!value || *value < VRSizeOptionNormal || *value > VRSizeOptionStretch) {
                    *problem = "size options are codes 0 to 5 separated by commas: " + text;
                    return false;
                }
                options.push_back(*value);
            }
            set(options);
            return true;
        });
}

// The formats of a media type as choices, by their names.
static std::vector<VRSettingsChoice> formatChoices(std::uint64_t mediaType) {
    std::vector<VRSettingsChoice> choices;
    for (std::uint64_t type = VRFormatTypeAuto; type <= VRFormatType3G2; ++type) {
        VRFormat format = VRFormat::formatWithTypeMediaType(type, mediaType);
        if (type == VRFormatTypeAuto || format.mediaType() == mediaType)
            choices.push_back({format.name(), format.name(), ""});
    }
    return choices;
}

Item formatSetting(std::string key, std::uint64_t mediaType, std::function<std::int64_t()> get,
                   std::function<void(std::int64_t)> set) {
    std::string accessor = key;
    Item item = plainSetting(
        std::move(key), std::move(accessor), Kind::choice,
        [get, mediaType] {
            auto type = get();
            return std::to_string(type) + " (" +
                   VRFormat::formatWithTypeMediaType(static_cast<std::uint64_t>(type), mediaType)
                       .name() +
                   ")";
        },
        [set, mediaType](const std::string& text, bool, std::string* problem) {
            auto format = parseFormat(text, mediaType, problem);
            if (!format) return false;
            set(static_cast<std::int64_t>(format->rawType()));
            return true;
        });
    item.choices = formatChoices(mediaType);
    item.edit = [get, mediaType] {
        return VRFormat::formatWithTypeMediaType(static_cast<std::uint64_t>(get()), mediaType)
            .name();
    };
    return item;
}

Item colorSetting(std::string key, std::string accessor,
                  std::function<std::optional<VRColor>()> get,
                  std::function<void(const std::optional<VRColor>&)> set) {
    return plainSetting(
        std::move(key), std::move(accessor), Kind::text, [get] { return colorText(get()); },
        [set](const std::string& text, bool, std::string* problem) {
            if (text == "none") {
                set(std::nullopt);
                return true;
            }
            auto parts = split(text);
            std::vector<double> components;
            for (const auto& part : parts) {
                auto value = parseDouble(part);
                if (!value || *value < 0 || *value > 1) break;
                components.push_back(*value);
            }
            if (components.size() != 4 || parts.size() != 4) {
                *problem = "a colour is none or red,green,blue,alpha from 0 to 1: " + text;
                return false;
            }
            set(VRColor{components[0], components[1], components[2], components[3]});
            return true;
        });
}

Item stringSetting(std::string key, std::string accessor, std::function<std::string()> get,
                   std::function<void(const std::string&)> set,
                   std::function<std::string()> meaning) {
    return plainSetting(
        std::move(key), std::move(accessor), Kind::text, std::move(get),
        [set](const std::string& text, bool, std::string*) {
            set(text);
            return true;
        },
        std::move(meaning));
}

Item checkedString(std::string key, std::string accessor, std::function<std::string()> get,
                   decltype(Item::set) set, std::function<std::string()> meaning) {
    return plainSetting(std::move(key), std::move(accessor), Kind::text, std::move(get),
                        std::move(set), std::move(meaning));
}

// The bit rate field's rules: at most two decimals, a comma counts as a point, no leading
// zero before other digits ("05" is refused, "0.5" and ".5" are not); an empty text changes
// nothing.
Item bitrateSetting() {
    Item item = plainSetting(
        "videoBitrate", "videoBitrate", Kind::number,
        [] { return numberText(VRSettings::videoBitrate()); },
        [](const std::string& text, bool, std::string* problem) {
            static const std::regex pattern("^(0?|[1-9][0-9]*)([\\.,][0-9]{0,2})?$");
            if (text.empty()) return true;
            std::string number = text;
            std::replace(number.begin(), number.end(), ',', '.');
            auto value = std::regex_match(text, pattern) ? parseDouble(number) : std::nullopt;
            if (!value) {
                *problem =
                    "expected megabits per second with at most two decimals, like "
                    "11.5: " +
                    text;
                return false;
            }
            VRSettings::setVideoBitrate(*value);
            return true;
        },
        [] {
            return VRSettings::isVideoBitrateAuto()
                       ? std::string("not used while videoBitrateAuto is true")
                       : numberText(VRSettings::videoBitrate()) + " Mbit/s";
        });
    item.maximum = 1000000;
    return item;
}

Item readOnly(std::string key, std::string accessor, std::function<std::string()> get) {
    return plainSetting(std::move(key), std::move(accessor), Kind::text, std::move(get), nullptr);
}

Item stateNumber(const char* key, const char* accessor) {
    return shown(readOnly(key, accessor, [key] { return storedNumber(key); }),
                 {Screen::state, "Stored state", key});
}

}  // namespace settings_items
