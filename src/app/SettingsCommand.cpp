// `unwarp settings list|get KEY|set KEY VALUE|reset`: the persistent settings by their stored
// keys, each shown with its stored value and, beside it, what that value means ("...Disabled"
// keys store the negation of their accessor). A setting is set by its stored key with a stored
// value, or by its accessor's name with the accessor's value.
#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <functional>
#include <iostream>
#include <regex>
#include <sstream>

#include "app/Command.h"
#include "app/TemplateArguments.h"
#include "core/CrashReporting.h"
#include "model/VXHelperSize.h"
#include "model/VXHelperText.h"
#include "storage/VRSettings.h"
#include "storage/VRSettings2.h"

namespace {

using platform::PlistArray;
using platform::PlistValue;

// Reads a value from the command line; false with the reason when it can't. `byAccessor`
// tells that the setting was named by its accessor, whose value a "...Disabled" key negates.
using Setter = std::function<bool(const std::string& text, bool byAccessor, std::string* problem)>;

struct Setting {
    std::string key;
    std::string accessor;
    std::function<std::string()> get;  // the stored value
    Setter set;                        // empty: read-only
    std::function<std::string()> meaning = nullptr;
};

std::string boolText(bool value) {
    return value ? "true" : "false";
}

std::string numberText(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
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

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// `whenOn` and `whenOff` tell what the accessor's true and false mean.
Setting boolSetting(std::string key, std::string accessor, std::function<bool()> get,
                    std::function<void(bool)> set, std::string whenOn = {},
                    std::string whenOff = {}) {
    const bool negated = endsWith(key, "Disabled");
    return {std::move(key), std::move(accessor),
            [get, negated] { return boolText(get() != negated); },
            [set, negated](const std::string& text, bool byAccessor, std::string* problem) {
                auto value = parseBool(text);
                if (!value) *problem = "expected true or false: " + text;
                if (value) set(byAccessor ? *value : *value != negated);
                return value.has_value();
            },
            whenOn.empty() ? nullptr : std::function<std::string()>([get, whenOn, whenOff] {
                return get() ? whenOn : whenOff;
            })};
}

Setting doubleSetting(std::string key, std::string accessor, std::function<double()> get,
                      std::function<void(double)> set, double minimum, double maximum) {
    return {std::move(key), std::move(accessor), [get] { return numberText(get()); },
            [set, minimum, maximum](const std::string& text, bool, std::string* problem) {
                auto value = parseDouble(text);
                if (!value || *value < minimum || *value > maximum) {
                    *problem = "expected a number from " + numberText(minimum) + " to " +
                               numberText(maximum) + ": " + text;
                    return false;
                }
                set(*value);
                return true;
            }};
}

Setting integerSetting(std::string key, std::string accessor, std::function<std::int64_t()> get,
                       std::function<void(std::int64_t)> set, std::int64_t minimum,
                       std::int64_t maximum) {
    return {std::move(key), std::move(accessor), [get] { return std::to_string(get()); },
            [set, minimum, maximum](const std::string& text, bool, std::string* problem) {
                auto value = parseInteger(text);
                if (!value || *value < minimum || *value > maximum) {
                    *problem = "expected a whole number from " + std::to_string(minimum) + " to " +
                               std::to_string(maximum) + ": " + text;
                    return false;
                }
                set(*value);
                return true;
            }};
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

Setting sizesSetting(std::string key, std::function<PlistArray()> get,
                     std::function<void(const PlistArray&)> set) {
    std::string accessor = key;
    return {std::move(key), std::move(accessor), [get] { return sizesText(get()); },
            [set](const std::string& text, bool, std::string* problem) {
                PlistArray sizes;
                for (const auto& part : split(text)) {
                    auto size = app::parseSourceSize(part, problem);
                    if (!size) return false;
                    sizes.emplace_back(VXHelper::sizeArrayWithSize(*size));
                }
                if (sizes.empty() || sizes.size() > 10) {
                    *problem = "expected 1 to 10 sizes, WxH separated by commas";
                    return false;
                }
                set(sizes);
                return true;
            }};
}

std::string integersText(const VRSizeOptions& values) {
    std::string text = "[";
    for (auto value : values) text += (text.size() > 1 ? ", " : "") + std::to_string(value);
    return text + "]";
}

Setting optionsSetting(std::string key, std::function<VRSizeOptions()> get,
                       std::function<void(const VRSizeOptions&)> set) {
    std::string accessor = key;
    return {std::move(key), std::move(accessor), [get] { return integersText(get()); },
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
            }};
}

Setting formatSetting(std::string key, std::uint64_t mediaType, std::function<std::int64_t()> get,
                      std::function<void(std::int64_t)> set) {
    std::string accessor = key;
    return {std::move(key), std::move(accessor),
            [get, mediaType] {
                auto type = get();
                return std::to_string(type) + " (" +
                       VRFormat::formatWithTypeMediaType(static_cast<std::uint64_t>(type),
                                                         mediaType)
                           .name() +
                       ")";
            },
            [set, mediaType](const std::string& text, bool, std::string* problem) {
                auto format = app::parseFormat(text, mediaType, problem);
                if (!format) return false;
                set(static_cast<std::int64_t>(format->rawType()));
                return true;
            }};
}

std::string colorText(const std::optional<VRColor>& color) {
    if (!color) return "none";
    return numberText(color->red) + "," + numberText(color->green) + "," + numberText(color->blue) +
           "," + numberText(color->alpha);
}

Setting colorSetting(std::string key, std::string accessor,
                     std::function<std::optional<VRColor>()> get,
                     std::function<void(const std::optional<VRColor>&)> set) {
    return {std::move(key), std::move(accessor), [get] { return colorText(get()); },
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
            }};
}

Setting stringSetting(std::string key, std::string accessor, std::function<std::string()> get,
                      std::function<void(const std::string&)> set) {
    return {std::move(key), std::move(accessor), get,
            [set](const std::string& text, bool, std::string*) {
                set(text);
                return true;
            }};
}

// The bit rate field's rules: at most two decimals, a comma counts as a point, no leading
// zero before other digits ("05" is refused, "0.5" and ".5" are not); an empty text changes
// nothing.
Setting bitrateSetting() {
    return {"videoBitrate", "videoBitrate", [] { return numberText(VRSettings::videoBitrate()); },
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
            }};
}

Setting readOnly(std::string key, std::string accessor, std::function<std::string()> get) {
    return {std::move(key), std::move(accessor), std::move(get), nullptr};
}

std::string storedNumber(const char* key) {
    PlistValue value = VRSettings::objectForKey(key);
    return value.isNull() ? "absent" : numberText(value.doubleValue());
}

std::vector<Setting> settingsTable() {
    using S = VRSettings;
    using S2 = VRSettings2;
    return {
        readOnly("settingsInit", "settingsInit", [] { return storedNumber("settingsInit"); }),
        readOnly("settingsFix271215", "settingsFix271215",
                 [] { return storedNumber("settingsFix271215"); }),
        readOnly("settingsFix281024b", "settingsFix281024b",
                 [] { return storedNumber("settingsFix281024b"); }),
        readOnly("settingsSmartSizeUpdate", "settingsSmartSizeUpdate",
                 [] { return storedNumber("settingsSmartSizeUpdate"); }),
        sizesSetting("imageSizes", S::imageSizes, S::setImageSizes),
        formatSetting("imageFormat", VRFormatMediaTypePhoto, S::imageFormat, S::setImageFormat),
        optionsSetting("imageOptions", S::imageOptions, S::setImageOptions),
        sizesSetting("videoSizes", S::videoSizes, S::setVideoSizes),
        formatSetting("videoFormat", VRFormatMediaTypeVideo, S::videoFormat, S::setVideoFormat),
        optionsSetting("videoOptions", S::videoOptions, S::setVideoOptions),
        boolSetting("homeScreenRequiredDisabled", "homeScreenChoiceRequired",
                    S::homeScreenChoiceRequired, S::setHomeScreenChoiceRequired,
                    "the home screen choice is asked for",
                    "the home screen choice is not asked for"),
        boolSetting("pixelSizeDisabled", "isPixelSizeEnabled", S::isPixelSizeEnabled,
                    S::setPixelSizeEnabled, "sizes are shown in pixels",
                    "sizes are not shown in pixels"),
        boolSetting("autoSaveDisabled", "isAutoSaveEnabled", S::isAutoSaveEnabled,
                    S::setAutoSaveEnabled, "results are saved to the library",
                    "results are not saved to the library"),
        boolSetting("albumsResultsDisabled", "areAlbumsForResultsEnabled",
                    S::areAlbumsForResultsEnabled, S::setAlbumsForResultsEnabled,
                    "results go into albums", "results do not go into albums"),
        boolSetting("albumOriginalsDisabled", "isAlbumForOriginalsEnabled",
                    S::isAlbumForOriginalsEnabled, S::setAlbumForOriginalsEnabled,
                    "originals go into an album", "originals do not go into an album"),
        boolSetting("notifyExceedingMaxSizeDisabled", "isNotifyExceedingMaxSizeEnabled",
                    S::isNotifyExceedingMaxSizeEnabled, S::setNotifyExceedingMaxSizeEnabled,
                    "sizes over the limit are reported", "sizes over the limit are made smaller"),
        boolSetting("copyExifMetadataDisabled", "shouldCopyExifMetadata", S::shouldCopyExifMetadata,
                    S::setCopyExifMetadata, "EXIF is copied", "EXIF is not copied"),
        boolSetting("copyIptcMetadataDisabled", "shouldCopyIptcMetadata", S::shouldCopyIptcMetadata,
                    S::setCopyIptcMetadata, "IPTC is copied", "IPTC is not copied"),
        boolSetting("copyGpsMetadataDisabled", "shouldCopyGpsMetadata", S::shouldCopyGpsMetadata,
                    S::setCopyGpsMetadata, "GPS is copied", "GPS is not copied"),
        boolSetting("copyVideoGpsMetadataDisabled", "shouldCopyVideoGpsMetadata",
                    S::shouldCopyVideoGpsMetadata, S::setCopyVideoGpsMetadata,
                    "GPS of videos is copied", "GPS of videos is not copied"),
        boolSetting("originalFilenameSuffixActive", "isOriginalFilenameSuffixEnabled",
                    S::isOriginalFilenameSuffixEnabled, S::setOriginalFilenameSuffixEnabled,
                    "original names get a suffix", "original names get no suffix"),
        boolSetting("livePhotoIndicatorEnabled", "isLivePhotoIndicatorEnabled",
                    S::isLivePhotoIndicatorEnabled, S::setLivePhotoIndicatorEnabled,
                    "the Live Photo mark is shown", "the Live Photo mark is not shown"),
        boolSetting("livePhotoEnabled", "isLivePhotoEnabled", S::isLivePhotoEnabled,
                    S::setLivePhotoEnabled, "Live Photos are made", "Live Photos are not made"),
        doubleSetting("photoDPI", "photoDPI", S::photoDPI, S::setPhotoDPI, 0, 100000),
        boolSetting("photoDPIAuto", "isPhotoDPIAuto", S::isPhotoDPIAuto, S::setPhotoDPIAuto,
                    "the source's DPI is kept", "photoDPI is written"),
        doubleSetting("photoJPEGCompression", "photoJPEGCompression", S::photoJPEGCompression,
                      S::setPhotoJPEGCompression, 0, 100),
        bitrateSetting(),
        boolSetting("videoBitrateAuto", "isVideoBitrateAuto", S::isVideoBitrateAuto,
                    S::setVideoBitrateAuto, "bit rate of the source, recalculated for the new size",
                    "videoBitrate is used"),
        integerSetting("videoCodecType", "codecType", S::codecType, S::setCodecType, 0, 2),
        integerSetting("exportFilenameType", "exportFilenameType", S::exportFilenameType,
                       S::setExportFilenameType, 0, 1),
        stringSetting("exportFilenameBasename", "exportFilenameBasename", S::exportFilenameBasename,
                      S::setExportFilenameBasename),
        {"libraryPath", "libraryPath", S::libraryPath,
         stringSetting("", "", S::libraryPath, S::setLibraryPath).set,
         [] {
             return std::string("The folder of the photo library; empty for the pictures folder");
         }},
        {"cameraDevice", "cameraDevice", S::cameraDevice,
         stringSetting("", "", S::cameraDevice, S::setCameraDevice).set,
         [] {
             return std::string(
                 "The camera: a video device, or an FFmpeg input as FORMAT:INPUT; empty for "
                 "/dev/video0");
         }},
        integerSetting("colorThemeType", "colorThemeType", S::colorThemeType, S::setColorThemeType,
                       0, 2),
        {"supportEmailAddress", "supportEmailAddress", S::supportEmailAddress,
         [](const std::string& text, bool, std::string* problem) {
             // One plain address: it goes to the mail program as an argument of its own.
             static const std::regex pattern("^([^-\\s@][^\\s@]*@[^\\s@]+)?$");
             if (!std::regex_match(text, pattern)) {
                 *problem = "one e-mail address, like name@example.com: " + text;
                 return false;
             }
             S::setSupportEmailAddress(text);
             return true;
         },
         [] { return std::string("Where error reports are mailed; empty for the default"); }},
        {"vr-unwarp-home-screen-mode", "homeScreenMode",
         [] {
             return S::isHomeScreenModeUnknown() ? std::string("unknown")
                                                 : std::to_string(S::homeScreenMode());
         },
         integerSetting("", "", S::homeScreenMode, S::setHomeScreenMode, 0, 100).set},
        readOnly(
            "recentAssetsIdentifiers", "recentAssetsIdentifiers",
            [] { return std::to_string(S::recentAssetsIdentifiers().size()) + " identifiers"; }),
        readOnly("incrementedIndexKey", "incrementedIndex",
                 [] { return storedNumber("incrementedIndexKey"); }),
        stringSetting(
            "templateBuiltInTableVersionKey", "templateBuiltInTableVersion",
            [] {
                const PlistValue value = VRSettings::objectForKey("templateBuiltInTableVersionKey");
                const std::string* text = value.string();
                return text ? *text : std::string("absent");
            },
            S::setBuiltInTemplateTableVersion),
        readOnly("templateListKey", "templateList",
                 [] {
                     const PlistValue value = VRSettings::objectForKey("templateListKey");
                     const PlistArray* list = value.array();
                     return list ? std::to_string(list->size()) + " legacy rows"
                                 : std::string("absent");
                 }),
        boolSetting(VRSettings2SummaryNoteHiddenKey, "isSummaryNoteHidden", S2::isSummaryNoteHidden,
                    S2::setSummaryNoteHidden),
        boolSetting(VRSettings2AdvancedNoteHiddenKey, "isAdvancedNoteHidden",
                    S2::isAdvancedNoteHidden, S2::setAdvancedNoteHidden),
        colorSetting(VRSettings2VideoColorKey, "defaultVideoColor", S2::defaultVideoColor,
                     S2::setDefaultVideoColor),
        colorSetting(VRSettings2PhotoColorKey, "defaultPhotoColor", S2::defaultPhotoColor,
                     S2::setDefaultPhotoColor),
        boolSetting(VRSettings2PrivateAccessWarnedKey, "isPrivateAccessWarned",
                    S2::isPrivateAccessWarned, S2::setPrivateAccessWarned),
        boolSetting(VRSettings2RecentsSelectedKey, "isRecentsSelected", S2::isRecentsSelected,
                    S2::setRecentsSelected),
        {VRSettings2TemplateSortingKey, "templateSorting", S2::templateSorting,
         [](const std::string& text, bool, std::string* problem) {
             if (text != VRTemplateSortingStandardName && text != VRTemplateSortingSelectionName) {
                 *problem = "the sorting is standard or selection: " + text;
                 return false;
             }
             S2::setTemplateSorting(text);
             return true;
         }},
        boolSetting(VRSettings2TemplateCustomPersonalKey, "isTemplateCustomPersonal",
                    S2::isTemplateCustomPersonal, S2::setTemplateCustomPersonal),
        boolSetting(VRSettings2TemplateCustomOnKey, "isTemplateCustomOn", S2::isTemplateCustomOn,
                    S2::setTemplateCustomOn),
        {VRCrashReportURLKey, VRCrashReportURLKey, CrashReporting::reportURLText,
         [](const std::string& text, bool, std::string* problem) {
             return CrashReporting::setReportURL(text, problem);
         }},
    };
}

const Setting* findSetting(const std::vector<Setting>& table, const std::string& name) {
    for (const auto& setting : table) {
        if (setting.key == name || setting.accessor == name) return &setting;
    }
    return nullptr;
}

// "copyGpsMetadataDisabled = true (GPS is not copied)": the stored key and value as they are
// in the file, and what they mean.
void printSetting(const Setting& setting) {
    std::cout << setting.key << " = " << setting.get();
    if (setting.meaning) std::cout << " (" << setting.meaning() << ")";
    std::cout << (setting.set ? "" : "  [read-only]") << "\n";
}

// The settings file could not be written: the change is lost when the command ends.
int reportNotSaved(const platform::ErrorRef& error) {
    std::string reason = error ? error->localizedDescription() : std::string("unknown error");
    return app::reportFailure("the settings were not saved to " +
                              VRSettings::userDefaults().path() + ": " + reason);
}

class SettingsCommand : public app::Command {
  public:
    CLI::App* setup(CLI::App& program) override {
        auto* command =
            program.add_subcommand("settings", "Show or change the persistent settings");
        command->require_subcommand(1);
        _list = command->add_subcommand("list", "Every setting with its accessor and value");
        _get = command->add_subcommand("get", "One setting, by stored key or accessor name");
        _get->add_option("KEY", _key, "Stored key or accessor name")->required();
        _set =
            command->add_subcommand("set",
                                    "Change a setting: by its stored key with the value to store "
                                    "(`set autoSaveDisabled false` turns auto-save on), or by its "
                                    "accessor's name with the accessor's value "
                                    "(`set isAutoSaveEnabled true`)");
        _set->add_option("KEY", _key, "Stored key or accessor name")->required();
        _set->add_option("VALUE", _value, "New value")->required();
        _reset = command->add_subcommand("reset", "Back to the first-run values");
        return command;
    }

    int run() override {
        auto table = settingsTable();
        // The first run leaves the migrations to the next use; run both, so that a fresh
        // home shows the values that every later use will read.
        VRSettings::_prepareSettings();
        VRSettings::_prepareSettings();
        if (_list->parsed()) {
            for (const auto& setting : table) printSetting(setting);
            return app::kExitSuccess;
        }
        if (_reset->parsed()) {
            VRSettings::userDefaults().setObject(platform::PlistDictionary{},
                                                 VRSettingsDefaultsKey);
            VRSettings::_prepareSettings();
            platform::ErrorRef error;
            if (!VRSettings::save(&error)) return reportNotSaved(error);
            return app::kExitSuccess;
        }
        const Setting* setting = findSetting(table, _key);
        if (!setting) return app::reportUsageError("unknown setting: " + _key);
        if (_get->parsed()) {
            printSetting(*setting);
            return app::kExitSuccess;
        }
        if (!setting->set) return app::reportUsageError(_key + " is read-only");
        std::string problem;
        const bool byAccessor = _key != setting->key;
        if (!setting->set(_value, byAccessor, &problem)) return app::reportUsageError(problem);
        platform::ErrorRef error;
        if (!VRSettings::save(&error)) return reportNotSaved(error);
        printSetting(*setting);
        return app::kExitSuccess;
    }

  private:
    CLI::App *_list = nullptr, *_get = nullptr, *_set = nullptr, *_reset = nullptr;
    std::string _key, _value;
};

}  // namespace

UNWARP_REGISTER_COMMAND(SettingsCommand)
