#include "storage/VRSettings.h"

#include <algorithm>
#include <atomic>
#include <cinttypes>
#include <memory>

#include "model/VRSizeEntry.h"
#include "model/VXHelperDevice.h"
#include "model/VXHelperSize.h"
#include "platform/Log.h"
#include "storage/VRSettingsKeys.h"
#include "storage/VRSettingsPreparation.h"

using platform::PlistArray;
using platform::PlistDictionary;
using platform::PlistValue;
using namespace VRSettingsKeys;

namespace {

std::atomic<platform::UserDefaults*> gStore{nullptr};

constexpr const char* kDefaultExportBasename = "uwrp_img";
constexpr const char* kDefaultSupportEmailAddress = "support@vorela.com";

// The accessors below run _prepareSettings first; these two don't.
PlistValue get(const char* key) {
    return VRSettings::objectForKey(key);
}
void set(const PlistValue& value, const char* key) {
    VRSettings::setObject(value, key);
}

bool getBool(const char* key) {
    VRSettings::_prepareSettings();
    return get(key).boolValue();
}
void setBool(bool value, const char* key) {
    VRSettings::_prepareSettings();
    set(value, key);
}
bool getNegated(const char* key) {
    return !getBool(key);
}
void setNegated(bool value, const char* key) {
    setBool(!value, key);
}

std::int64_t getInteger(const char* key) {
    VRSettings::_prepareSettings();
    return get(key).integerValue();
}
void setInteger(std::int64_t value, const char* key) {
    VRSettings::_prepareSettings();
    set(value, key);
}
double getDouble(const char* key) {
    VRSettings::_prepareSettings();
    return get(key).doubleValue();
}
void setDouble(double value, const char* key) {
    VRSettings::_prepareSettings();
    set(value, key);
}
PlistArray getArray(const char* key) {
    VRSettings::_prepareSettings();
    PlistValue value = get(key);
    if (const PlistArray* array = value.array()) return *array;
    return {};
}
void setArray(const PlistArray& value, const char* key) {
    VRSettings::_prepareSettings();
    set(value, key);
}

PlistArray firstElement(const PlistArray& list) {
    if (list.empty() || !list.front().isArray()) return {};
    return *list.front().array();
}

CGSize sizeOfSizeArray(const PlistArray& sizeArray) {
    if (sizeArray.size() < 2) return CGSizeZero;
    return {sizeArray[0].doubleValue(), sizeArray[1].doubleValue()};
}

std::vector<std::string> stringsOf(const PlistValue& value) {
    std::vector<std::string> strings;
    if (const PlistArray* array = value.array()) {
        for (const PlistValue& element : *array) {
            if (const std::string* text = element.string()) strings.push_back(*text);
        }
    }
    return strings;
}

VRSizeOptions optionsOf(const PlistArray& array) {
    VRSizeOptions options;
    for (const PlistValue& value : array) {
        if (value.isNumber()) options.push_back(value.integerValue());
    }
    return options;
}

PlistArray arrayOfOptions(const VRSizeOptions& options) {
    return PlistArray(options.begin(), options.end());
}

PlistArray arrayOfStrings(const std::vector<std::string>& strings) {
    return PlistArray(strings.begin(), strings.end());
}

std::string stringOr(const PlistValue& value, const char* fallback) {
    if (const std::string* text = value.string(); text && !text->empty()) return *text;
    return fallback;
}

}  // namespace

void VRSettings::setUserDefaults(platform::UserDefaults* store) {
    gStore = store;
}

platform::UserDefaults& VRSettings::userDefaults() {
    if (platform::UserDefaults* store = gStore.load()) return *store;
    return platform::UserDefaults::standardUserDefaults();
}

void VRSettings::_checkSettingsInstalled() {
    platform::UserDefaults& store = userDefaults();
    // Checked on every call, not only at installation: a value of another type under the key
    // (an old or damaged file) would otherwise leave every setting unwritable.
    bool installed = false;
    store.read([&installed](const PlistDictionary& values) {
        auto flag = values.find(VRSettingsInstalledDefaultsKey);
        auto settings = values.find(VRSettingsDefaultsKey);
        installed = flag != values.end() && flag->second.boolValue() && settings != values.end() &&
                    settings->second.isDictionary();
    });
    if (installed) return;
    store.modify([](PlistDictionary& values) {
        if (!values[VRSettingsInstalledDefaultsKey].boolValue()) {
            values[VRSettingsInstalledDefaultsKey] = true;
        }
        if (!values[VRSettingsDefaultsKey].isDictionary()) {
            values[VRSettingsDefaultsKey] = PlistDictionary{};
        }
    });
}

PlistValue VRSettings::objectForKey(const std::string& key) {
    _checkSettingsInstalled();
    return userDefaults().objectForKey(VRSettingsDefaultsKey, key);
}

void VRSettings::_modifySettings(const std::function<void(PlistDictionary&)>& edit) {
    _checkSettingsInstalled();
    userDefaults().modify([edit](PlistDictionary& values) {
        // Another process may have stored a damaged value meanwhile; the change still lands.
        PlistValue& settings = values[VRSettingsDefaultsKey];
        if (!settings.isDictionary()) settings = PlistDictionary{};
        edit(*settings.mutableDictionary());
    });
}

void VRSettings::setObject(const PlistValue& value, const std::string& key) {
    // Shared, not copied with the edit: a long list (the recent assets of a batch) is set
    // after every result, and each copy of it costs as much as the list is long.
    auto shared = std::make_shared<const PlistValue>(value);
    _modifySettings([shared, key](PlistDictionary& settings) {
        if (shared->isNull()) {
            settings.erase(key);
        } else {
            settings[key] = *shared;
        }
    });
}

bool VRSettings::save(platform::ErrorRef* error) {
    if (userDefaults().synchronize(error)) return true;
    platform::log("~~ settings could not be written; they stay in memory");
    return false;
}

void VRSettings::_prepareSettings() {
    _checkSettingsInstalled();
    bool needed = true;
    userDefaults().read([&needed](const PlistDictionary& values) {
        auto settings = values.find(VRSettingsDefaultsKey);
        if (settings != values.end() && settings->second.dictionary())
            needed = VRSettingsPreparation::needsPreparation(*settings->second.dictionary());
    });
    if (!needed) return;
    // One edit, so that under the store's lock the steps are decided again on the settings as
    // stored: another process may have prepared them, or changed them since, meanwhile.
    _modifySettings(VRSettingsPreparation::prepare);
}

PlistArray VRSettings::defaultImageSizes(unsigned deviceClass) {
    return VRSettingsPreparation::defaultImageSizes(deviceClass);
}

PlistArray VRSettings::defaultVideoSizes(unsigned deviceClass) {
    return VRSettingsPreparation::defaultVideoSizes(deviceClass);
}

PlistArray VRSettings::imageSizes() {
    return getArray(kImageSizes);
}
void VRSettings::setImageSizes(const PlistArray& sizes) {
    setArray(sizes, kImageSizes);
}
void VRSettings::resetImageSizes() {
    _prepareSettings();
    _modifySettings(VRSettingsPreparation::resetImageSizes);
}
PlistArray VRSettings::imageSizeArray() {
    return firstElement(imageSizes());
}
CGSize VRSettings::imageSize() {
    return sizeOfSizeArray(imageSizeArray());
}
std::int64_t VRSettings::imageFormat() {
    return getInteger(kImageFormat);
}
void VRSettings::setImageFormat(std::int64_t formatType) {
    setInteger(formatType, kImageFormat);
}
VRSizeOptions VRSettings::imageOptions() {
    return optionsOf(getArray(kImageOptions));
}
void VRSettings::setImageOptions(const VRSizeOptions& options) {
    setArray(arrayOfOptions(options), kImageOptions);
}
void VRSettings::resetImageSettings() {
    _prepareSettings();
    _modifySettings(VRSettingsPreparation::resetImageSettings);
}

PlistArray VRSettings::videoSizes() {
    return getArray(kVideoSizes);
}
void VRSettings::setVideoSizes(const PlistArray& sizes) {
    setArray(sizes, kVideoSizes);
}
void VRSettings::resetVideoSizes() {
    _prepareSettings();
    _modifySettings(VRSettingsPreparation::resetVideoSizes);
}
PlistArray VRSettings::videoSizeArray() {
    return firstElement(videoSizes());
}
CGSize VRSettings::videoSize() {
    return sizeOfSizeArray(videoSizeArray());
}
std::int64_t VRSettings::videoFormat() {
    return getInteger(kVideoFormat);
}
void VRSettings::setVideoFormat(std::int64_t formatType) {
    setInteger(formatType, kVideoFormat);
}
VRSizeOptions VRSettings::videoOptions() {
    return optionsOf(getArray(kVideoOptions));
}
void VRSettings::setVideoOptions(const VRSizeOptions& options) {
    setArray(arrayOfOptions(options), kVideoOptions);
}
void VRSettings::resetVideoSettings() {
    _prepareSettings();
    _modifySettings(VRSettingsPreparation::resetVideoSettings);
}

void VRSettings::saveData(const PlistArray& sizes, std::int64_t formatType,
                          const VRSizeOptions& options, std::int64_t mediaType) {
    if (mediaType == 2) {
        setVideoSizes(sizes);
        setVideoFormat(formatType);
        setVideoOptions(options);
    } else if (mediaType == 1) {
        setImageSizes(sizes);
        setImageFormat(formatType);
        setImageOptions(options);
    }
}

bool VRSettings::homeScreenChoiceRequired() {
    return getNegated(kHomeScreenRequiredDisabled);
}
void VRSettings::setHomeScreenChoiceRequired(bool required) {
    setNegated(required, kHomeScreenRequiredDisabled);
}
bool VRSettings::isPixelSizeEnabled() {
    return getNegated(kPixelSizeDisabled);
}
void VRSettings::setPixelSizeEnabled(bool enabled) {
    setNegated(enabled, kPixelSizeDisabled);
}
bool VRSettings::isAutoSaveEnabled() {
    return getNegated(kAutoSaveDisabled);
}
void VRSettings::setAutoSaveEnabled(bool enabled) {
    setNegated(enabled, kAutoSaveDisabled);
}
bool VRSettings::areAlbumsForResultsEnabled() {
    return getNegated(kAlbumsResultsDisabled);
}
void VRSettings::setAlbumsForResultsEnabled(bool enabled) {
    setNegated(enabled, kAlbumsResultsDisabled);
}
bool VRSettings::isAlbumForOriginalsEnabled() {
    return getNegated(kAlbumOriginalsDisabled);
}
void VRSettings::setAlbumForOriginalsEnabled(bool enabled) {
    setNegated(enabled, kAlbumOriginalsDisabled);
}
bool VRSettings::isNotifyExceedingMaxSizeEnabled() {
    return getNegated(kNotifyExceedingMaxSizeDisabled);
}
void VRSettings::setNotifyExceedingMaxSizeEnabled(bool enabled) {
    setNegated(enabled, kNotifyExceedingMaxSizeDisabled);
}
bool VRSettings::shouldCopyExifMetadata() {
    return getNegated(kCopyExifMetadataDisabled);
}
void VRSettings::setCopyExifMetadata(bool copy) {
    setNegated(copy, kCopyExifMetadataDisabled);
}
bool VRSettings::shouldCopyIptcMetadata() {
    return getNegated(kCopyIptcMetadataDisabled);
}
void VRSettings::setCopyIptcMetadata(bool copy) {
    setNegated(copy, kCopyIptcMetadataDisabled);
}
bool VRSettings::shouldCopyGpsMetadata() {
    return getNegated(kCopyGpsMetadataDisabled);
}
void VRSettings::setCopyGpsMetadata(bool copy) {
    setNegated(copy, kCopyGpsMetadataDisabled);
}
bool VRSettings::shouldCopyVideoGpsMetadata() {
    return getNegated(kCopyVideoGpsMetadataDisabled);
}
void VRSettings::setCopyVideoGpsMetadata(bool copy) {
    setNegated(copy, kCopyVideoGpsMetadataDisabled);
}
bool VRSettings::isOriginalFilenameSuffixEnabled() {
    return getBool(kOriginalFilenameSuffixActive);
}
void VRSettings::setOriginalFilenameSuffixEnabled(bool enabled) {
    setBool(enabled, kOriginalFilenameSuffixActive);
}
bool VRSettings::isLivePhotoIndicatorEnabled() {
    return getBool(kLivePhotoIndicatorEnabled);
}
void VRSettings::setLivePhotoIndicatorEnabled(bool enabled) {
    setBool(enabled, kLivePhotoIndicatorEnabled);
}
bool VRSettings::isLivePhotoEnabled() {
    return getBool(kLivePhotoEnabled);
}
void VRSettings::setLivePhotoEnabled(bool enabled) {
    setBool(enabled, kLivePhotoEnabled);
}

double VRSettings::photoDPI() {
    return getDouble(kPhotoDPI);
}
void VRSettings::setPhotoDPI(double dpi) {
    setDouble(dpi, kPhotoDPI);
}
bool VRSettings::isPhotoDPIAuto() {
    return getBool(kPhotoDPIAuto);
}
void VRSettings::setPhotoDPIAuto(bool automatic) {
    setBool(automatic, kPhotoDPIAuto);
}
double VRSettings::photoJPEGCompression() {
    return getDouble(kPhotoJPEGCompression);
}
void VRSettings::setPhotoJPEGCompression(double percent) {
    setDouble(percent, kPhotoJPEGCompression);
}
double VRSettings::videoBitrate() {
    return getDouble(kVideoBitrate);
}
void VRSettings::setVideoBitrate(double megabits) {
    setDouble(megabits, kVideoBitrate);
}
bool VRSettings::isVideoBitrateAuto() {
    return getBool(kVideoBitrateAuto);
}
void VRSettings::setVideoBitrateAuto(bool automatic) {
    setBool(automatic, kVideoBitrateAuto);
}
std::int64_t VRSettings::codecType() {
    return getInteger(kVideoCodecType);
}
void VRSettings::setCodecType(std::int64_t codecType) {
    setInteger(codecType, kVideoCodecType);
}
std::int64_t VRSettings::exportFilenameType() {
    return getInteger(kExportFilenameType);
}
void VRSettings::setExportFilenameType(std::int64_t type) {
    setInteger(type, kExportFilenameType);
}
std::string VRSettings::exportFilenameBasename() {
    _prepareSettings();
    return stringOr(get(kExportFilenameBasename), kDefaultExportBasename);
}
void VRSettings::setExportFilenameBasename(const std::string& baseName) {
    _prepareSettings();
    set(baseName, kExportFilenameBasename);
}
std::string VRSettings::libraryPath() {
    _prepareSettings();
    return stringOr(get(kLibraryPath), "");
}
void VRSettings::setLibraryPath(const std::string& path) {
    _prepareSettings();
    set(path, kLibraryPath);
}
std::string VRSettings::cameraDevice() {
    _prepareSettings();
    return stringOr(get(kCameraDevice), "");
}
void VRSettings::setCameraDevice(const std::string& device) {
    _prepareSettings();
    set(device, kCameraDevice);
}
std::string VRSettings::supportEmailAddress() {
    _prepareSettings();
    return stringOr(get(kSupportEmailAddress), kDefaultSupportEmailAddress);
}
void VRSettings::setSupportEmailAddress(const std::string& address) {
    _prepareSettings();
    set(address, kSupportEmailAddress);
}
std::int64_t VRSettings::colorThemeType() {
    return getInteger(kColorThemeType);
}
void VRSettings::setColorThemeType(std::int64_t type) {
    setInteger(type, kColorThemeType);
}
std::int64_t VRSettings::homeScreenMode() {
    return getInteger(kHomeScreenMode);
}
void VRSettings::setHomeScreenMode(std::int64_t mode) {
    setInteger(mode, kHomeScreenMode);
}
bool VRSettings::isHomeScreenModeUnknown() {
    _prepareSettings();
    return get(kHomeScreenMode).isNull();
}

std::vector<std::string> VRSettings::recentAssetsIdentifiers() {
    _prepareSettings();
    return stringsOf(get(kRecentAssetsIdentifiers));
}

void VRSettings::setRecentAssetsIdentifiers(const std::vector<std::string>& identifiers) {
    _prepareSettings();
    set(arrayOfStrings(identifiers), kRecentAssetsIdentifiers);
}

void VRSettings::addRecentAssetsIdentifiers(const std::vector<std::string>& identifiers) {
    _prepareSettings();
    _modifySettings([identifiers](PlistDictionary& settings) {
        std::vector<std::string> current = stringsOf(settings[kRecentAssetsIdentifiers]);
        for (const std::string& identifier : identifiers) {
            if (std::find(current.begin(), current.end(), identifier) == current.end()) {
                current.push_back(identifier);
            }
        }
        settings[kRecentAssetsIdentifiers] = arrayOfStrings(current);
    });
}

void VRSettings::removeRecentAssetsIdentifiers(const std::vector<std::string>& identifiers) {
    _prepareSettings();
    _modifySettings([identifiers](PlistDictionary& settings) {
        std::vector<std::string> current = stringsOf(settings[kRecentAssetsIdentifiers]);
        std::erase_if(current, [&](const std::string& identifier) {
            return std::find(identifiers.begin(), identifiers.end(), identifier) !=
                   identifiers.end();
        });
        settings[kRecentAssetsIdentifiers] = arrayOfStrings(current);
    });
}

void VRSettings::removeAllRecentAssetsIdentifiers() {
    _prepareSettings();
    set(PlistValue(), kRecentAssetsIdentifiers);
}

std::int64_t VRSettings::incrementedIndex() {
    _prepareSettings();
    _modifySettings([](PlistDictionary& settings) {
        auto it = settings.find(kIncrementedIndex);
        settings[kIncrementedIndex] =
            it == settings.end() ? std::int64_t{0} : it->second.integerValue() + 1;
    });
    // Counted on the stored number at once, so that two processes never take the same one;
    // when the store can't be written the count goes on in memory.
    save();
    const std::int64_t index = get(kIncrementedIndex).integerValue();
    platform::logf("~~ incremented index %" PRId64, index);
    return index;
}

bool VRSettings::isNewBuiltInTemplateTableVersion(const std::string& version) {
    _prepareSettings();
    PlistValue stored = get(kBuiltInTableVersion);
    return !stored.string() || *stored.string() != version;
}

void VRSettings::setBuiltInTemplateTableVersion(const std::string& version) {
    _prepareSettings();
    set(version, kBuiltInTableVersion);
}

void VRSettings::_parseTemplateDictionary(
    const PlistValue& row, const std::function<void(const VRLegacyTemplateInfo&)>& block) {
    VRLegacyTemplateInfo info;
    if (!row.isDictionary()) {
        info.title = "<Template removed>";
        info.templateDescription = "<Template data was removed>";
        block(info);
        return;
    }
    info.identifier = stringOr(row[kTemplateIdentifier], "-");
    info.title = stringOr(row[kTemplateTitle], "Unnamed");
    info.templateDescription = stringOr(row[kTemplateDescription], "No description");
    if (const PlistArray* mediaTypes = row[kTemplateMediaTypes].array()) {
        for (const PlistValue& mediaType : *mediaTypes) {
            if (mediaType.isNumber()) info.mediaTypes.push_back(mediaType.integerValue());
        }
    }
    info.builtIn = row[kTemplateBuiltIn].boolValue();
    info.alwaysVisible = row[kTemplateAlwaysVisible].boolValue();
    block(info);
}

void VRSettings::enumerateTemplateList(const TemplateListBlock& block) {
    PlistArray list = getArray(kTemplateList);
    for (std::size_t index = 0; index < list.size(); ++index) {
        bool stop = false;
        _parseTemplateDictionary(
            list[index], [&](const VRLegacyTemplateInfo& info) { block(info, index, stop); });
        if (stop) break;
    }
}

void VRSettings::parseTemplateAtIndex(
    std::size_t index, const std::function<void(const VRLegacyTemplateInfo&)>& info) {
    PlistArray list = getArray(kTemplateList);
    if (index >= list.size()) return;
    _parseTemplateDictionary(list[index], info);
}

void VRSettings::addTemplateToList(const VRLegacyTemplateInfo& info) {
    _prepareSettings();
    PlistArray mediaTypes(info.mediaTypes.begin(), info.mediaTypes.end());
    PlistArray rows;
    rows.push_back(PlistDictionary{
        {kTemplateIdentifier, info.identifier.empty() ? "-" : info.identifier},
        {kTemplateTitle, info.title.empty() ? "Unnamed" : info.title},
        {kTemplateDescription,
         info.templateDescription.empty() ? "No description" : info.templateDescription},
        {kTemplateMediaTypes, mediaTypes},
        {kTemplateBuiltIn, info.builtIn},
        {kTemplateAlwaysVisible, info.alwaysVisible},
    });
    _modifySettings([rows](PlistDictionary& settings) {
        PlistValue& list = settings[kTemplateList];
        if (!list.isArray()) list = PlistArray{};
        list.mutableArray()->push_back(rows.front());
    });
}

void VRSettings::eraseOldTemplateList(
    const std::function<void(const VRLegacyTemplateInfo&)>& block) {
    PlistArray list = getArray(kTemplateList);
    // The list goes first: a block that fails half-way must not bring the rows back next time.
    set(PlistValue(), kTemplateList);
    for (const PlistValue& row : list) {
        _parseTemplateDictionary(row, [&](const VRLegacyTemplateInfo& info) {
            if (!info.builtIn) block(info);
        });
    }
}
