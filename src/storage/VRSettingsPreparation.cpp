#include "storage/VRSettingsPreparation.h"

#include <algorithm>

#include "model/VRSizeEntry.h"
#include "model/VRSizeOption.h"
#include "model/VXHelperDevice.h"
#include "model/VXHelperSize.h"
#include "storage/VRSettingsKeys.h"

using platform::PlistArray;
using platform::PlistDictionary;
using platform::PlistValue;
using namespace VRSettingsKeys;

namespace {

// The dictionary as the steps below read and write it: an absent key reads as null, and a
// null value removes the key.
class Settings {
  public:
    explicit Settings(PlistDictionary& values) : _values(values) {}
    PlistValue get(const char* key) const {
        auto it = _values.find(key);
        return it == _values.end() ? PlistValue() : it->second;
    }
    void set(const PlistValue& value, const char* key) {
        if (value.isNull()) {
            _values.erase(key);
        } else {
            _values[key] = value;
        }
    }

  private:
    PlistDictionary& _values;
};

PlistArray sizeList(std::initializer_list<CGSize> sizes) {
    PlistArray list;
    for (CGSize size : sizes) list.emplace_back(VXHelper::sizeArrayWithSize(size));
    return list;
}

PlistArray firstElement(const PlistArray& list) {
    if (list.empty() || !list.front().isArray()) return {};
    return *list.front().array();
}

PlistArray firstRunOptions() {
    return PlistArray{static_cast<std::int64_t>(VRSizeOptionSmart),
                      static_cast<std::int64_t>(VRSizeOptionStretch)};
}

void writeFirstRunValues(PlistDictionary& values) {
    Settings settings(values);
    settings.set(std::int64_t{1}, kSettingsInit);
    settings.set(std::int64_t{1}, kFix271215);
    VRSettingsPreparation::resetImageSizes(values);
    VRSettingsPreparation::resetImageSettings(values);
    VRSettingsPreparation::resetVideoSizes(values);
    VRSettingsPreparation::resetVideoSettings(values);
    // Each "...Disabled" key holds the negation of its accessor's first-run value.
    settings.set(true, kHomeScreenRequiredDisabled);
    settings.set(false, kPixelSizeDisabled);
    settings.set(true, kAutoSaveDisabled);
    settings.set(false, kAlbumsResultsDisabled);
    settings.set(false, kAlbumOriginalsDisabled);
    settings.set(false, kNotifyExceedingMaxSizeDisabled);
    settings.set(false, kCopyExifMetadataDisabled);
    settings.set(false, kCopyIptcMetadataDisabled);
    settings.set(false, kCopyGpsMetadataDisabled);
    settings.set(false, kCopyVideoGpsMetadataDisabled);
    settings.set(300.0, kPhotoDPI);
    settings.set(true, kPhotoDPIAuto);
    settings.set(85.0, kPhotoJPEGCompression);
    settings.set(10.0, kVideoBitrate);
    settings.set(true, kVideoBitrateAuto);
    settings.set(std::int64_t{0}, kExportFilenameType);
    settings.set(std::int64_t{0}, kColorThemeType);
    settings.set(std::string(), kLibraryPath);
    settings.set(std::string(), kCameraDevice);
}

bool isOption(const PlistValue& value, VRSizeOption option) {
    return value.isNumber() && value.doubleValue() == static_cast<double>(option);
}

bool holdsOption(const PlistArray& options, VRSizeOption option) {
    return std::any_of(options.begin(), options.end(),
                       [&](const PlistValue& value) { return isOption(value, option); });
}

void removeSizeModeOptions(PlistArray& options) {
    std::erase_if(options, [](const PlistValue& value) {
        return isOption(value, VRSizeOptionNormal) || isOption(value, VRSizeOptionSmart) ||
               isOption(value, VRSizeOptionTargetPortrait);
    });
}

// Older versions kept "normal" (0) and "portrait target" (2) where Smart size (1) now decides.
void updateSmartSizeOptions(Settings& settings, const char* optionsKey, const char* sizesKey) {
    PlistValue stored = settings.get(optionsKey);
    PlistArray options = stored.array() ? *stored.array() : PlistArray{};
    bool normal = holdsOption(options, VRSizeOptionNormal);
    bool portrait = holdsOption(options, VRSizeOptionTargetPortrait);
    removeSizeModeOptions(options);
    if (normal && portrait) {
        options.emplace_back(static_cast<std::int64_t>(VRSizeOptionNormal));
    } else if (!normal && !portrait) {
        options.emplace_back(static_cast<std::int64_t>(VRSizeOptionNormal));
        PlistValue sizes = settings.get(sizesKey);
        if (const PlistArray* list = sizes.array(); list && !list->empty()) {
            PlistArray first = firstElement(*list);
            if (auto entry = VRSizeEntry::sizeEntryWithSizeArray(first)) {
                PlistArray turned = *list;
                turned.front() = entry->sizeEntryRotated().sizeArray();
                settings.set(turned, sizesKey);
            }
        }
    } else {
        options.emplace_back(static_cast<std::int64_t>(VRSizeOptionSmart));
        if (normal) options.emplace_back(static_cast<std::int64_t>(VRSizeOptionTargetPortrait));
    }
    settings.set(options, optionsKey);
}

void runMigrations(PlistDictionary& values) {
    Settings settings(values);
    // Each marker is set before its work, so a step interrupted half-way is never repeated.
    if (settings.get(kFix271215).isNull()) {
        settings.set(std::int64_t{1}, kFix271215);
        VRSettingsPreparation::resetVideoSizes(values);
    }
    if (settings.get(kFix281024b).isNull()) {
        settings.set(std::int64_t{1}, kFix281024b);
        if (settings.get(kPhotoDPI).doubleValue() < 0.001) {
            settings.set(300.0, kPhotoDPI);
            settings.set(true, kPhotoDPIAuto);
        }
        if (settings.get(kVideoBitrate).doubleValue() < 0.001) {
            settings.set(10.0, kVideoBitrate);
            settings.set(true, kVideoBitrateAuto);
        }
    }
    if (settings.get(kSmartSizeUpdate).isNull()) {
        settings.set(std::int64_t{1}, kSmartSizeUpdate);
        updateSmartSizeOptions(settings, kImageOptions, kImageSizes);
        updateSmartSizeOptions(settings, kVideoOptions, kVideoSizes);
    }
}

}  // namespace

namespace VRSettingsPreparation {

bool needsPreparation(const PlistDictionary& settings) {
    for (const char* marker : {kSettingsInit, kFix271215, kFix281024b, kSmartSizeUpdate}) {
        auto it = settings.find(marker);
        if (it == settings.end()) return true;
        if (std::string(marker) == kSettingsInit && it->second.integerValue() == 0) return true;
    }
    return false;
}

void prepare(PlistDictionary& settings) {
    if (Settings(settings).get(kSettingsInit).integerValue() == 0) {
        writeFirstRunValues(settings);
    } else {
        runMigrations(settings);
    }
}

void resetImageSizes(PlistDictionary& settings) {
    Settings(settings).set(defaultImageSizes(VXHelper::deviceClass()), kImageSizes);
}
void resetVideoSizes(PlistDictionary& settings) {
    Settings(settings).set(defaultVideoSizes(VXHelper::deviceClass()), kVideoSizes);
}
void resetImageSettings(PlistDictionary& values) {
    Settings settings(values);
    settings.set(std::int64_t{0}, kImageFormat);
    settings.set(firstRunOptions(), kImageOptions);
}
void resetVideoSettings(PlistDictionary& values) {
    Settings settings(values);
    settings.set(std::int64_t{0}, kVideoFormat);
    settings.set(firstRunOptions(), kVideoOptions);
}

PlistArray defaultImageSizes(unsigned deviceClass) {
    bool limited = deviceClass == 0;
    return sizeList({{1200, 600},
                     limited ? CGSize{3264, 2448} : CGSize{4341, 2448},
                     limited ? CGSize{1224, 1632} : CGSize{5363, 3024},
                     {3840, 2160},
                     {1920, 1080},
                     {1024, 768},
                     {640, 640},
                     {1242, 2208},
                     {750, 1334},
                     {640, 1136}});
}

PlistArray defaultVideoSizes(unsigned deviceClass) {
    bool limited = deviceClass == 0;
    return sizeList({limited ? CGSize{1920, 1080} : CGSize{3840, 2160},
                     limited ? CGSize{1440, 1080} : CGSize{1920, 1080},
                     {1280, 720},
                     {720, 405},
                     {720, 576},
                     {768, 576},
                     {640, 480},
                     {640, 360},
                     {320, 240},
                     {320, 180}});
}

}  // namespace VRSettingsPreparation
