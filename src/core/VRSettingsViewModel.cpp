#include "core/VRSettingsViewModel.h"

#include <algorithm>
#include <regex>

#include "core/CrashReporting.h"
#include "core/SettingsItemBuilders.h"
#include "model/VRFormatMediaType.h"
#include "storage/VRSettings.h"
#include "storage/VRSettings2.h"

namespace {

using namespace settings_items;
using platform::PlistArray;
using platform::PlistValue;

Item slider(Item item) {
    item.kind = Kind::slider;
    return item;
}

// The encoding choices, with the words of the encoding settings screen.
std::vector<Item> processingItems() {
    using S = VRSettings;
    const Screen on = Screen::processing;
    return {
        shown(doubleSetting("photoDPI", "photoDPI", S::photoDPI, S::setPhotoDPI, 0, 100000),
              {on, "Photo DPI", "Custom", "Use original photo DPI", "", "Ex: 300"}),
        shown(boolSetting("photoDPIAuto", "isPhotoDPIAuto", S::isPhotoDPIAuto, S::setPhotoDPIAuto,
                          "the source's DPI is kept", "photoDPI is written"),
              {on, "Photo DPI", "Automatic", "Use original photo DPI", "", "", -1}),
        shown(slider(doubleSetting("photoJPEGCompression", "photoJPEGCompression",
                                   S::photoJPEGCompression, S::setPhotoJPEGCompression, 0, 100)),
              {on, "JPEG / HEIC Quality", "Quality ", "", "HIGH"}),
        shown(bitrateSetting(),
              {on, "Video Bitrate", "Custom, ",
               "Use original video bitrate, recalculated for a new size", "Mbps", "Ex: 11.5"}),
        shown(boolSetting("videoBitrateAuto", "isVideoBitrateAuto", S::isVideoBitrateAuto,
                          S::setVideoBitrateAuto,
                          "bit rate of the source, recalculated for the new size",
                          "videoBitrate is used"),
              {on, "Video Bitrate", "Automatic",
               "Use original video bitrate, recalculated for a new size", "", "", -1}),
        shown(withChoices(integerSetting("videoCodecType", "codecType", S::codecType,
                                         S::setCodecType, 0, 2),
                          {{"0", "Automatic", ""}, {"1", "H.264", ""}, {"2", "HEVC", ""}}),
              {on, "Video Codec", "Standard", "Detect source codecs from video tracks"}),
    };
}

// A setting of two states: its key and accessor, what each state means ("" for none), and
// where it is shown.
struct Toggle {
    const char* key;
    const char* accessor;
    bool (*get)();
    void (*set)(bool);
    const char* whenOn;
    const char* whenOff;
    Screen screen;
    const char* section;
    const char* label;
    const char* footer = "";
};

Item toggle(const Toggle& row) {
    return shown(boolSetting(row.key, row.accessor, row.get, row.set, row.whenOn, row.whenOff),
                 {row.screen, row.section, row.label, row.footer});
}

// The switches of the appearance, saving, size limit, metadata, filename and Live Photo
// settings, in the order of the settings file's table.
std::vector<Toggle> toggles() {
    using S = VRSettings;
    return {
        {"homeScreenRequiredDisabled", "homeScreenChoiceRequired", S::homeScreenChoiceRequired,
         S::setHomeScreenChoiceRequired, "the home screen choice is asked for",
         "the home screen choice is not asked for", Screen::appearance, "Home Screen",
         "Ask for the home screen choice"},
        {"pixelSizeDisabled", "isPixelSizeEnabled", S::isPixelSizeEnabled, S::setPixelSizeEnabled,
         "sizes are shown in pixels", "sizes are not shown in pixels", Screen::appearance, "Sizes",
         "Show sizes in pixels"},
        {"autoSaveDisabled", "isAutoSaveEnabled", S::isAutoSaveEnabled, S::setAutoSaveEnabled,
         "results are saved to the library", "results are not saved to the library", Screen::saving,
         "Auto-Save", "Auto-Save", "Save each result to the photo library as soon as it is made"},
        {"albumsResultsDisabled", "areAlbumsForResultsEnabled", S::areAlbumsForResultsEnabled,
         S::setAlbumsForResultsEnabled, "results go into albums", "results do not go into albums",
         Screen::saving, "Auto-Save", "Albums for results"},
        {"albumOriginalsDisabled", "isAlbumForOriginalsEnabled", S::isAlbumForOriginalsEnabled,
         S::setAlbumForOriginalsEnabled, "originals go into an album",
         "originals do not go into an album", Screen::saving, "Auto-Save", "Album for originals"},
        {"notifyExceedingMaxSizeDisabled", "isNotifyExceedingMaxSizeEnabled",
         S::isNotifyExceedingMaxSizeEnabled, S::setNotifyExceedingMaxSizeEnabled,
         "sizes over the limit are reported", "sizes over the limit are made smaller",
         Screen::processing, "Max Size Behaviour", "Notify when exceeding max size",
         "Show alert when exceeding maximum permitted size. Turn off to automatically apply "
         "smaller sizes."},
        {"copyExifMetadataDisabled", "shouldCopyExifMetadata", S::shouldCopyExifMetadata,
         S::setCopyExifMetadata, "EXIF is copied", "EXIF is not copied", Screen::metadata, "Photos",
         "Copy EXIF", "Without EXIF a result keeps only its dates"},
        {"copyIptcMetadataDisabled", "shouldCopyIptcMetadata", S::shouldCopyIptcMetadata,
         S::setCopyIptcMetadata, "IPTC is copied", "IPTC is not copied", Screen::metadata, "Photos",
         "Copy IPTC"},
        {"copyGpsMetadataDisabled", "shouldCopyGpsMetadata", S::shouldCopyGpsMetadata,
         S::setCopyGpsMetadata, "GPS is copied", "GPS is not copied", Screen::metadata, "Photos",
         "Copy GPS"},
        {"copyVideoGpsMetadataDisabled", "shouldCopyVideoGpsMetadata",
         S::shouldCopyVideoGpsMetadata, S::setCopyVideoGpsMetadata, "GPS of videos is copied",
         "GPS of videos is not copied", Screen::metadata, "Videos", "Copy GPS"},
        {"originalFilenameSuffixActive", "isOriginalFilenameSuffixEnabled",
         S::isOriginalFilenameSuffixEnabled, S::setOriginalFilenameSuffixEnabled,
         "original names get a suffix", "original names get no suffix", Screen::filenames,
         "Original filename", "Add '-uwrp' suffix"},
        {"livePhotoIndicatorEnabled", "isLivePhotoIndicatorEnabled", S::isLivePhotoIndicatorEnabled,
         S::setLivePhotoIndicatorEnabled, "the Live Photo mark is shown",
         "the Live Photo mark is not shown", Screen::saving, "Live Photos", "Mark Live Photos"},
        {"livePhotoEnabled", "isLivePhotoEnabled", S::isLivePhotoEnabled, S::setLivePhotoEnabled,
         "Live Photos are made", "Live Photos are not made", Screen::saving, "Live Photos",
         "Make Live Photos",
         "A Live Photo's movie is resized with its photo while Auto-Save is on"},
    };
}

// The rows in the order of the settings file's tables; each says where it is shown.
std::vector<Item> makeItems() {
    using S = VRSettings;
    using S2 = VRSettings2;
    auto editing = [](const char* section, const char* label) {
        return Words{Screen::editing, section, label};
    };
    std::vector<Item> items{
        stateNumber("settingsInit", "settingsInit"),
        stateNumber("settingsFix271215", "settingsFix271215"),
        stateNumber("settingsFix281024b", "settingsFix281024b"),
        stateNumber("settingsSmartSizeUpdate", "settingsSmartSizeUpdate"),
        shown(sizesSetting("imageSizes", S::imageSizes, S::setImageSizes),
              editing("Photos", "Recent sizes")),
        shown(
            formatSetting("imageFormat", VRFormatMediaTypePhoto, S::imageFormat, S::setImageFormat),
            editing("Photos", "Format")),
        shown(optionsSetting("imageOptions", S::imageOptions, S::setImageOptions),
              editing("Photos", "Size options")),
        shown(sizesSetting("videoSizes", S::videoSizes, S::setVideoSizes),
              editing("Videos", "Recent sizes")),
        shown(
            formatSetting("videoFormat", VRFormatMediaTypeVideo, S::videoFormat, S::setVideoFormat),
            editing("Videos", "Format")),
        shown(optionsSetting("videoOptions", S::videoOptions, S::setVideoOptions),
              editing("Videos", "Size options")),
    };
    for (const Toggle& row : toggles()) items.push_back(toggle(row));
    for (auto& item : processingItems()) items.push_back(std::move(item));
    std::vector<Item> rest{
        shown(withChoices(integerSetting("exportFilenameType", "exportFilenameType",
                                         S::exportFilenameType, S::setExportFilenameType, 0, 1),
                          {{"0", "Original", "Use original filename automatically"},
                           {"1", "Custom", "Ask for a filename when sharing"}}),
              {Screen::filenames, "Sharing filename", "Names of shared files"}),
        shown(stringSetting("exportFilenameBasename", "exportFilenameBasename",
                            S::exportFilenameBasename, S::setExportFilenameBasename),
              {Screen::filenames, "Sharing filename", "Base name", "", "", "Enter base name"}),
        shown(stringSetting("libraryPath", "libraryPath", S::libraryPath, S::setLibraryPath,
                            [] {
                                return std::string(
                                    "The folder of the photo library; empty for the pictures "
                                    "folder");
                            }),
              {Screen::system, "Photo library", "Library folder"}),
        shown(stringSetting("cameraDevice", "cameraDevice", S::cameraDevice, S::setCameraDevice,
                            [] {
                                return std::string(
                                    "The camera: a video device, or an FFmpeg input as "
                                    "FORMAT:INPUT; empty for /dev/video0");
                            }),
              {Screen::system, "Camera", "Camera device", "", "", "/dev/video0"}),
        shown(withChoices(integerSetting("colorThemeType", "colorThemeType", S::colorThemeType,
                                         S::setColorThemeType, 0, 2),
                          {{"0", "System", ""}, {"1", "Light", ""}, {"2", "Dark", ""}}),
              {Screen::appearance, "Theme", "Theme"}),
        shown(checkedString(
                  "supportEmailAddress", "supportEmailAddress", S::supportEmailAddress,
                  [](const std::string& text, bool, std::string* problem) {
                      // One plain address: it goes to the mail program as an argument of its
                      // own.
                      static const std::regex pattern("^([^-\\s@][^\\s@]*@[^\\s@]+)?$");
                      if (!std::regex_match(text, pattern)) {
                          *problem = "one e-mail address, like name@example.com: " + text;
                          return false;
                      }
                      S::setSupportEmailAddress(text);
                      return true;
                  },
                  [] {
                      return std::string("Where error reports are mailed; empty for the default");
                  }),
              {Screen::system, "Error reports", "Support address", "", "", "name@example.com"}),
        shown(checkedString(
                  "vr-unwarp-home-screen-mode", "homeScreenMode",
                  [] {
                      return S::isHomeScreenModeUnknown() ? std::string("unknown")
                                                          : std::to_string(S::homeScreenMode());
                  },
                  integerSetting("", "", S::homeScreenMode, S::setHomeScreenMode, 0, 100).set),
              {Screen::appearance, "Home Screen", "Home Screen mode"}),
        shown(readOnly("recentAssetsIdentifiers", "recentAssetsIdentifiers",
                       [] {
                           return std::to_string(S::recentAssetsIdentifiers().size()) +
                                  " identifiers";
                       }),
              {Screen::state, "Stored state", "Recent items"}),
        stateNumber("incrementedIndexKey", "incrementedIndex"),
        shown(stringSetting(
                  "templateBuiltInTableVersionKey", "templateBuiltInTableVersion",
                  [] {
                      const PlistValue value =
                          VRSettings::objectForKey("templateBuiltInTableVersionKey");
                      const std::string* text = value.string();
                      return text ? *text : std::string("absent");
                  },
                  S::setBuiltInTemplateTableVersion),
              {Screen::state, "Stored state", "Built-in template table version"}),
        shown(readOnly("templateListKey", "templateList",
                       [] {
                           const PlistValue value = VRSettings::objectForKey("templateListKey");
                           const PlistArray* list = value.array();
                           return list ? std::to_string(list->size()) + " legacy rows"
                                       : std::string("absent");
                       }),
              {Screen::state, "Stored state", "Legacy template list"}),
        toggle({VRSettings2SummaryNoteHiddenKey, "isSummaryNoteHidden", S2::isSummaryNoteHidden,
                S2::setSummaryNoteHidden, "", "", Screen::editing, "Notes",
                "Hide the summary note"}),
        toggle({VRSettings2AdvancedNoteHiddenKey, "isAdvancedNoteHidden", S2::isAdvancedNoteHidden,
                S2::setAdvancedNoteHidden, "", "", Screen::editing, "Notes",
                "Hide the advanced note"}),
        shown(colorSetting(VRSettings2VideoColorKey, "defaultVideoColor", S2::defaultVideoColor,
                           S2::setDefaultVideoColor),
              {Screen::editing, "Fill colours", "Videos", "", "", "none or r,g,b,a"}),
        shown(colorSetting(VRSettings2PhotoColorKey, "defaultPhotoColor", S2::defaultPhotoColor,
                           S2::setDefaultPhotoColor),
              {Screen::editing, "Fill colours", "Photos", "", "", "none or r,g,b,a"}),
        toggle({VRSettings2PrivateAccessWarnedKey, "isPrivateAccessWarned",
                S2::isPrivateAccessWarned, S2::setPrivateAccessWarned, "", "", Screen::state,
                "Stored state", "Limited library access was told"}),
        toggle({VRSettings2RecentsSelectedKey, "isRecentsSelected", S2::isRecentsSelected,
                S2::setRecentsSelected, "", "", Screen::state, "Stored state",
                "Recents chosen on the home screen"}),
        shown(withChoices(checkedString(
                              VRSettings2TemplateSortingKey, "templateSorting", S2::templateSorting,
                              [](const std::string& text, bool, std::string* problem) {
                                  if (text != VRTemplateSortingStandardName &&
                                      text != VRTemplateSortingSelectionName) {
                                      *problem = "the sorting is standard or selection: " + text;
                                      return false;
                                  }
                                  S2::setTemplateSorting(text);
                                  return true;
                              }),
                          {{VRTemplateSortingStandardName, "Standard", ""},
                           {VRTemplateSortingSelectionName, "Selection", ""}}),
              editing("Templates", "Sorting")),
        toggle({VRSettings2TemplateCustomPersonalKey, "isTemplateCustomPersonal",
                S2::isTemplateCustomPersonal, S2::setTemplateCustomPersonal, "", "",
                Screen::editing, "Templates", "Own templates first"}),
        toggle({VRSettings2TemplateCustomOnKey, "isTemplateCustomOn", S2::isTemplateCustomOn,
                S2::setTemplateCustomOn, "", "", Screen::editing, "Templates",
                "Own templates shown"}),
        shown(checkedString(VRCrashReportURLKey, VRCrashReportURLKey, CrashReporting::reportURLText,
                            [](const std::string& text, bool, std::string* problem) {
                                return CrashReporting::setReportURL(text, problem);
                            }),
              {Screen::system, "Crash reports", "Report address", "", "", "https://"}),
    };
    for (auto& item : rest) items.push_back(std::move(item));
    return items;
}

}  // namespace

std::string VRSettingsItem::accessorValue() const {
    if (edit) return edit();
    const std::string stored = get();
    if (kind == Kind::toggle && negated) return stored == "true" ? "false" : "true";
    return stored;
}

const std::vector<VRSettingsItem>& VRSettingsViewModel::items() {
    static const std::vector<VRSettingsItem> table = makeItems();
    return table;
}

const VRSettingsItem* VRSettingsViewModel::itemNamed(const std::string& name) {
    for (const auto& item : items()) {
        if (item.key == name || item.accessor == name) return &item;
    }
    return nullptr;
}

namespace {

// The screens in the order they are shown, with their identifiers and titles.
struct ScreenName {
    Screen screen;
    const char* identifier;
    const char* title;
};
constexpr ScreenName kScreenNames[] = {
    {Screen::processing, "processing", "Processing"},
    {Screen::saving, "saving", "Saving"},
    {Screen::metadata, "metadata", "Metadata"},
    {Screen::filenames, "filenames", "Filenames"},
    {Screen::appearance, "appearance", "Appearance"},
    {Screen::editing, "editing", "Editing"},
    {Screen::system, "system", "System"},
    {Screen::state, "state", "Stored state"},
};

const ScreenName* nameOf(Screen screen) {
    for (const auto& name : kScreenNames)
        if (name.screen == screen) return &name;
    return nullptr;
}

}  // namespace

std::vector<VRSettingsScreen> VRSettingsViewModel::screens() {
    std::vector<VRSettingsScreen> order;
    for (const auto& name : kScreenNames) order.push_back(name.screen);
    return order;
}

std::string VRSettingsViewModel::titleOfScreen(VRSettingsScreen screen) {
    const ScreenName* name = nameOf(screen);
    return name ? name->title : "";
}

std::string VRSettingsViewModel::identifierOfScreen(VRSettingsScreen screen) {
    const ScreenName* name = nameOf(screen);
    return name ? name->identifier : "";
}

std::vector<std::vector<const VRSettingsItem*>> VRSettingsViewModel::sectionsOfScreen(
    VRSettingsScreen screen) {
    // The encoding settings screen's own order of its sections.
    static const std::vector<std::string> processingOrder{
        "Photo DPI", "Video Codec", "Video Bitrate", "JPEG / HEIC Quality", "Max Size Behaviour"};
    std::vector<std::vector<const VRSettingsItem*>> sections;
    for (const auto& item : items()) {
        if (item.screen != screen) continue;
        auto section = std::find_if(sections.begin(), sections.end(), [&](const auto& rows) {
            return rows.front()->section == item.section;
        });
        if (section == sections.end()) {
            sections.push_back({&item});
        } else {
            section->push_back(&item);
        }
    }
    auto place = [](const std::vector<const VRSettingsItem*>& rows) {
        auto at = std::find(processingOrder.begin(), processingOrder.end(), rows.front()->section);
        return at - processingOrder.begin();
    };
    std::stable_sort(sections.begin(), sections.end(),
                     [&](const auto& a, const auto& b) { return place(a) < place(b); });
    for (auto& rows : sections)
        std::stable_sort(rows.begin(), rows.end(),
                         [](const auto* a, const auto* b) { return a->rank < b->rank; });
    return sections;
}

bool VRSettingsViewModel::setValue(const std::string& name, const std::string& text,
                                   std::string* problem) {
    const VRSettingsItem* item = itemNamed(name);
    if (!item) {
        *problem = "unknown setting: " + name;
        return false;
    }
    if (item->isReadOnly()) {
        *problem = name + " is read-only";
        return false;
    }
    return item->set(text, name != item->key, problem);
}

void VRSettingsViewModel::prepare() {
    // The first run leaves the migrations to the next use; run both.
    VRSettings::_prepareSettings();
    VRSettings::_prepareSettings();
}
