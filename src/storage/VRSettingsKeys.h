// The keys inside the settings dictionary, shared by the accessors, the first-run values and
// the migrations of VRSettings. Not for use outside storage/.
#pragma once

namespace VRSettingsKeys {

inline constexpr const char* kSettingsInit = "settingsInit";
inline constexpr const char* kFix271215 = "settingsFix271215";
inline constexpr const char* kFix281024b = "settingsFix281024b";
inline constexpr const char* kSmartSizeUpdate = "settingsSmartSizeUpdate";
inline constexpr const char* kImageSizes = "imageSizes";
inline constexpr const char* kImageFormat = "imageFormat";
inline constexpr const char* kImageOptions = "imageOptions";
inline constexpr const char* kVideoSizes = "videoSizes";
inline constexpr const char* kVideoFormat = "videoFormat";
inline constexpr const char* kVideoOptions = "videoOptions";
inline constexpr const char* kHomeScreenRequiredDisabled = "homeScreenRequiredDisabled";
inline constexpr const char* kPixelSizeDisabled = "pixelSizeDisabled";
inline constexpr const char* kAutoSaveDisabled = "autoSaveDisabled";
inline constexpr const char* kAlbumsResultsDisabled = "albumsResultsDisabled";
inline constexpr const char* kAlbumOriginalsDisabled = "albumOriginalsDisabled";
inline constexpr const char* kNotifyExceedingMaxSizeDisabled = "notifyExceedingMaxSizeDisabled";
inline constexpr const char* kCopyExifMetadataDisabled = "copyExifMetadataDisabled";
inline constexpr const char* kCopyIptcMetadataDisabled = "copyIptcMetadataDisabled";
inline constexpr const char* kCopyGpsMetadataDisabled = "copyGpsMetadataDisabled";
inline constexpr const char* kCopyVideoGpsMetadataDisabled = "copyVideoGpsMetadataDisabled";
inline constexpr const char* kOriginalFilenameSuffixActive = "originalFilenameSuffixActive";
inline constexpr const char* kLivePhotoIndicatorEnabled = "livePhotoIndicatorEnabled";
inline constexpr const char* kLivePhotoEnabled = "livePhotoEnabled";
inline constexpr const char* kPhotoDPI = "photoDPI";
inline constexpr const char* kPhotoDPIAuto = "photoDPIAuto";
inline constexpr const char* kPhotoJPEGCompression = "photoJPEGCompression";
inline constexpr const char* kVideoBitrate = "videoBitrate";
inline constexpr const char* kVideoBitrateAuto = "videoBitrateAuto";
inline constexpr const char* kVideoCodecType = "videoCodecType";
inline constexpr const char* kExportFilenameType = "exportFilenameType";
inline constexpr const char* kExportFilenameBasename = "exportFilenameBasename";
inline constexpr const char* kLibraryPath = "libraryPath";
inline constexpr const char* kCameraDevice = "cameraDevice";
inline constexpr const char* kSupportEmailAddress = "supportEmailAddress";
inline constexpr const char* kColorThemeType = "colorThemeType";
inline constexpr const char* kHomeScreenMode = "vr-unwarp-home-screen-mode";
inline constexpr const char* kRecentAssetsIdentifiers = "recentAssetsIdentifiers";
inline constexpr const char* kIncrementedIndex = "incrementedIndexKey";
inline constexpr const char* kBuiltInTableVersion = "templateBuiltInTableVersionKey";
inline constexpr const char* kTemplateList = "templateListKey";

// Keys of one row of the legacy template list.
inline constexpr const char* kTemplateIdentifier = "templateIdentifierKey";
inline constexpr const char* kTemplateTitle = "templateTitleKey";
inline constexpr const char* kTemplateDescription = "templateDescriptionKey";
inline constexpr const char* kTemplateMediaTypes = "templateMediaTypesKey";
inline constexpr const char* kTemplateBuiltIn = "templateBuiltInKey";
inline constexpr const char* kTemplateAlwaysVisible = "templateAlwaysVisibleKey";

}  // namespace VRSettingsKeys
