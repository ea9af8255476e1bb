// The program's persistent settings: one property-list dictionary under "com.vorela.settings" in
// the user defaults, with first-run values and the one-time migrations of older data. Read by
// almost every subsystem. Every change is an edit of the user defaults, made again on the
// stored dictionary when they are saved (under the store's file lock), so that processes
// sharing a home never lose each other's changes.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "model/VRSizeOption.h"
#include "platform/Geometry.h"
#include "platform/PlistValue.h"
#include "platform/UserDefaults.h"

// Keys of the user defaults.
inline constexpr const char* VRSettingsDefaultsKey = "com.vorela.settings";
inline constexpr const char* VRSettingsInstalledDefaultsKey = "com.vorela.settingsInstalled";

// One row of the legacy template list, as handed to the enumeration blocks.
struct VRLegacyTemplateInfo {
    std::string identifier;
    std::string title;
    std::string templateDescription;
    std::vector<std::int64_t> mediaTypes;
    bool builtIn = false;
    bool alwaysVisible = false;
};

class VRSettings {
  public:
    // Every operation acts on this store: the standard user defaults unless a test or tool
    // sets another one (null restores the standard store). The store must outlive its use.
    static void setUserDefaults(platform::UserDefaults* store);
    static platform::UserDefaults& userDefaults();

    // The two primitives on the dictionary; both check the installation first. A null value
    // removes the key. Nothing is written when the stored dictionary is absent.
    static platform::PlistValue objectForKey(const std::string& key);
    static void setObject(const platform::PlistValue& value, const std::string& key);
    // A change of the settings dictionary that depends on what is stored (a counter, a list
    // that grows): made now and made again on the stored dictionary when saving.
    static void _modifySettings(const std::function<void(platform::PlistDictionary&)>& edit);
    // Writes the changes to the file. False, with the reason in `error`, when they could not
    // be written (a full disk, a read-only home); they stay in memory then.
    static bool save(platform::ErrorRef* error = nullptr);

    static void _checkSettingsInstalled();
    // First run: the first-run values; later runs: the migrations, each once through its marker.
    static void _prepareSettings();

    // Sizes and media settings. Size lists are arrays of size arrays, the first one current.
    static platform::PlistArray imageSizes();
    static void setImageSizes(const platform::PlistArray& sizes);
    static void resetImageSizes();
    static platform::PlistArray imageSizeArray();  // the first element; empty when none
    static CGSize imageSize();                     // its first two numbers; zero when none
    static std::int64_t imageFormat();
    static void setImageFormat(std::int64_t formatType);
    static VRSizeOptions imageOptions();
    static void setImageOptions(const VRSizeOptions& options);
    static void resetImageSettings();

    static platform::PlistArray videoSizes();
    static void setVideoSizes(const platform::PlistArray& sizes);
    static void resetVideoSizes();
    static platform::PlistArray videoSizeArray();
    static CGSize videoSize();
    static std::int64_t videoFormat();
    static void setVideoFormat(std::int64_t formatType);
    static VRSizeOptions videoOptions();
    static void setVideoOptions(const VRSizeOptions& options);
    static void resetVideoSettings();

    // The global size choice of the size editor: sizes, format type and options for media
    // type 1 (photo) or 2 (video); any other media type changes nothing.
    static void saveData(const platform::PlistArray& sizes, std::int64_t formatType,
                         const VRSizeOptions& options, std::int64_t mediaType);

    // The recent-size lists the first run writes, by device class (class 0 has smaller ones).
    static platform::PlistArray defaultImageSizes(unsigned deviceClass);
    static platform::PlistArray defaultVideoSizes(unsigned deviceClass);

    // Boolean options; a key ending in "Disabled" stores the negation of its accessor.
    static bool homeScreenChoiceRequired();
    static void setHomeScreenChoiceRequired(bool required);
    static bool isPixelSizeEnabled();
    static void setPixelSizeEnabled(bool enabled);
    static bool isAutoSaveEnabled();
    static void setAutoSaveEnabled(bool enabled);
    static bool areAlbumsForResultsEnabled();
    static void setAlbumsForResultsEnabled(bool enabled);
    static bool isAlbumForOriginalsEnabled();
    static void setAlbumForOriginalsEnabled(bool enabled);
    static bool isNotifyExceedingMaxSizeEnabled();
    static void setNotifyExceedingMaxSizeEnabled(bool enabled);
    static bool shouldCopyExifMetadata();
    static void setCopyExifMetadata(bool copy);
    static bool shouldCopyIptcMetadata();
    static void setCopyIptcMetadata(bool copy);
    static bool shouldCopyGpsMetadata();
    static void setCopyGpsMetadata(bool copy);
    static bool shouldCopyVideoGpsMetadata();
    static void setCopyVideoGpsMetadata(bool copy);
    static bool isOriginalFilenameSuffixEnabled();
    static void setOriginalFilenameSuffixEnabled(bool enabled);
    static bool isLivePhotoIndicatorEnabled();
    static void setLivePhotoIndicatorEnabled(bool enabled);
    static bool isLivePhotoEnabled();
    static void setLivePhotoEnabled(bool enabled);

    // Values.
    static double photoDPI();
    static void setPhotoDPI(double dpi);
    static bool isPhotoDPIAuto();
    static void setPhotoDPIAuto(bool automatic);
    static double photoJPEGCompression();  // percent, 0 to 100
    static void setPhotoJPEGCompression(double percent);
    static double videoBitrate();  // megabits per second
    static void setVideoBitrate(double megabits);
    static bool isVideoBitrateAuto();
    static void setVideoBitrateAuto(bool automatic);
    static std::int64_t codecType();  // VRCodecType: 0 same as source, 1 H.264, 2 HEVC
    static void setCodecType(std::int64_t codecType);
    static std::int64_t exportFilenameType();  // 0 original names, 1 ask when sharing
    static void setExportFilenameType(std::int64_t type);
    static std::string exportFilenameBasename();  // "uwrp_img" while none is stored
    static void setExportFilenameBasename(const std::string& baseName);
    // The photo library's folder; empty (the first-run value) for the pictures folder.
    static std::string libraryPath();
    static void setLibraryPath(const std::string& path);
    // The camera: a video device, or an FFmpeg input as FORMAT:INPUT; empty (the first-run
    // value) for /dev/video0.
    static std::string cameraDevice();
    static void setCameraDevice(const std::string& device);
    // The operator's support address that error reports are mailed to; "support@vorela.com"
    // while none is stored. A deployment sets its own.
    static std::string supportEmailAddress();
    static void setSupportEmailAddress(const std::string& address);
    static std::int64_t colorThemeType();  // 0 follow the system, 1 light, 2 dark
    static void setColorThemeType(std::int64_t type);
    static std::int64_t homeScreenMode();
    static void setHomeScreenMode(std::int64_t mode);
    static bool isHomeScreenModeUnknown();

    // Identifiers of the assets of the last run; kept in order without repeats on adding.
    static std::vector<std::string> recentAssetsIdentifiers();
    static void setRecentAssetsIdentifiers(const std::vector<std::string>& identifiers);
    static void addRecentAssetsIdentifiers(const std::vector<std::string>& identifiers);
    static void removeRecentAssetsIdentifiers(const std::vector<std::string>& identifiers);
    static void removeAllRecentAssetsIdentifiers();

    // 0 on the first call, then one more on each call; logs "~~ incremented index N". Saves the
    // settings, so that processes sharing the home count on from each other's numbers.
    static std::int64_t incrementedIndex();

    // Legacy template list (older versions kept the user's templates here).
    static bool isNewBuiltInTemplateTableVersion(const std::string& version);
    static void setBuiltInTemplateTableVersion(const std::string& version);
    using TemplateListBlock =
        std::function<void(const VRLegacyTemplateInfo& info, std::size_t index, bool& stop)>;
    static void enumerateTemplateList(const TemplateListBlock& block);
    // Hands row `index` to the block; an index beyond the list gives nothing. A row that is not
    // a dictionary gives "<Template removed>", "<Template data was removed>", no media types.
    static void parseTemplateAtIndex(std::size_t index,
                                     const std::function<void(const VRLegacyTemplateInfo&)>& info);
    static void _parseTemplateDictionary(
        const platform::PlistValue& row,
        const std::function<void(const VRLegacyTemplateInfo&)>& block);
    // Appends a row as the older versions wrote it: an empty identifier becomes "-", an empty
    // title "Unnamed", an empty description "No description".
    static void addTemplateToList(const VRLegacyTemplateInfo& info);
    // Removes the list, first handing the user's rows to the block in list order. Built-in rows
    // are skipped (the catalogue has them now); removed rows are handed on with an empty
    // identifier, so that the caller can tell them apart.
    static void eraseOldTemplateList(const std::function<void(const VRLegacyTemplateInfo&)>& block);

    // Template bodies: documents/_cs-templates/IDENTIFIER/template-data and template-image-data.
    static std::string templateDirectoryWithIdentifier(const std::string& identifier);
    static std::string templateDataPathWithIdentifier(const std::string& identifier);
    static std::string templateImagePathWithIdentifier(const std::string& identifier);
    static void removeTemplateDirWithIdentifier(const std::string& identifier);
    static bool copyTemplateImageDataToTemplateWithIdentifier(const std::string& identifier,
                                                              const std::string& sourceIdentifier);

    // The template's archive (template-data) in the folder of a new identifier ("recent-" and a
    // UUID for a recent, a UUID otherwise), which is returned; absent when writing failed,
    // which is logged ("Failed to write archived data to file: ..."). The templates layer
    // archives and unarchives; this store only keeps the bytes.
    static std::optional<std::string> saveTemplateData(const platform::PlistData& data,
                                                       bool recent);
    // The archive under that identifier, replacing what was there; false on failure (logged).
    static bool saveTemplateDataWithIdentifier(const platform::PlistData& data,
                                               const std::string& identifier);
    // The stored archive; absent without a safe identifier, a file, or past 1 MiB.
    static std::optional<platform::PlistData> templateDataWithIdentifier(
        const std::string& identifier);
};
