#include "core/AppDelegate.h"

#include "core/ApplicationStart.h"
#include "core/NavigationManager.h"
#include "core/VRLaunchManager.h"
#include "core/VRReleaseNotes.h"
#include "core/VRSession.h"
#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/PhotoLibrary.h"
#include "storage/VRFileStorage.h"
#include "storage/VRSettings.h"
#include "storage/VXHelperState.h"

using platform::FileManager;

namespace {

constexpr std::int64_t kTutorialLaunchStep = 2;
constexpr std::int64_t kHomeScreenLaunchStep = 3;
constexpr std::int64_t kReleaseNotesLaunchStep = 4;
constexpr std::int64_t kAccessUndecidedLaunchStep = 9;
constexpr std::int64_t kAccessRefusedLaunchStep = 10;
// The version stored for an upgrade from a version that kept none, so that its notes show.
constexpr const char* kFirstVersionWithoutNotes = "1.0.0";

platform::PHAuthorizationStatus libraryStatus() {
    return platform::PhotoLibrary::authorizationStatusAt(
        platform::defaultPhotoLibraryLocations(VRSettings::libraryPath()),
        platform::PHAccessLevelReadWrite);
}

}  // namespace

AppDelegate& AppDelegate::shared() {
    static AppDelegate* delegate = new AppDelegate();
    return *delegate;
}

VRLaunchNeeds AppDelegate::didFinishLaunchingWithOptions(const LaunchOptions& options) {
    ApplicationStart::prepareUnarchiver();
    VXHelper::updateAppVersion(platform::Environment::appVersion());
    // Every start asks the library for images and videos, in their current versions.
    VRSession::mainSession().setLoadImagesOnly(false);
    VRSession::mainSession().setSourceImageEnabled(false);
    _launchNeeds = _readLaunchNeeds();
    ApplicationStart::removeTemporaryFiles(options.openingURL);
    return _launchNeeds;
}

VRLaunchNeeds AppDelegate::_readLaunchNeeds() const {
    VRLaunchManager& manager = VRLaunchManager::defaultManager();
    VRLaunchNeeds needs;
    needs.launchRequired = manager.isLaunchRequired();
    needs.releaseNotesRequired = areReleaseNotesRequired();
    needs.photoAccessRequired = _photoAccessRequired(&needs.accessStep);
    needs.homeScreenChoiceRequired = VRSettings::homeScreenChoiceRequired();
    if (!needs.launchRequired && !needs.releaseNotesRequired && !needs.photoAccessRequired &&
        !needs.homeScreenChoiceRequired)
        return needs;
    needs.showsHomeScreen = false;
    const std::int64_t stored = manager.launchStep();
    // Access is asked for in its place in the walk: not before the walk reached the tutorial.
    if (needs.photoAccessRequired && stored >= kTutorialLaunchStep)
        needs.step = needs.accessStep;
    else if (needs.homeScreenChoiceRequired &&
             (stored == kTutorialLaunchStep || stored > kHomeScreenLaunchStep))
        needs.step = kHomeScreenLaunchStep;
    else if (needs.releaseNotesRequired)
        needs.step = kReleaseNotesLaunchStep;
    else
        needs.step = stored;
    return needs;
}

bool AppDelegate::areReleaseNotesRequired() const {
    const std::string current = VRReleaseNotes::lastVersion();
    if (auto stored = VXHelper::releaseNotesVersion()) return *stored != current;
    const bool freshInstall = VRLaunchManager::defaultManager().isLaunchRequired();
    VXHelper::setReleaseNotesVersion(freshInstall ? current : kFirstVersionWithoutNotes);
    VRSettings::userDefaults().synchronize();
    return !freshInstall;
}

void AppDelegate::updateLastReleaseNotesVersion() const {
    VXHelper::setReleaseNotesVersion(VRReleaseNotes::lastVersion());
    VRSettings::userDefaults().synchronize();
}

bool AppDelegate::_photoAccessRequired(std::int64_t* accessStep) const {
    switch (libraryStatus()) {
        case platform::PHAuthorizationStatusNotDetermined:
            *accessStep = kAccessUndecidedLaunchStep;
            return true;
        case platform::PHAuthorizationStatusRestricted:
        case platform::PHAuthorizationStatusDenied:
            *accessStep = kAccessRefusedLaunchStep;
            return true;
        default:
            *accessStep = 0;
            VRSession::mainSession().setNeedsShowOnceLimitedPhotosAlert(true);
            return false;
    }
}

void AppDelegate::_loadMainControllerFromLaunchController(
    const std::shared_ptr<VRLaunchManagerDelegate>& home) {
    VRLaunchManager& manager = VRLaunchManager::defaultManager();
    if (manager.isTutorialRequired()) manager.startTutorial();
    manager.setDelegate(home);
}

std::string AppDelegate::openURL(const std::string& path) {
    // The folder must hold no stale copy of the same name before the new one arrives; copies of
    // processes still running stay, as a front end may not have taken them yet.
    ApplicationStart::_removeTempImages();
    const std::string handed = _copyExternalUrl(path);
    VRLaunchManager::defaultManager().setExternalURL(handed);
    return handed;
}

std::string AppDelegate::_copyExternalUrl(const std::string& path) const {
    const std::string folder =
        VRFileStorage::ownTemporaryFolder(VRFileStorage::temporaryImageDirectory());
    const std::string target =
        FileManager::stringByAppendingPathComponent(folder, FileManager::lastPathComponent(path));
    platform::ErrorRef error;
    if (!FileManager::copyItemAtPath(path, target, &error)) {
        platform::logf("~~ Unable to copy the external file %s: %s", path.c_str(),
                       error ? error->localizedDescription().c_str() : "unknown");
        return path;
    }
    FileManager::setExcludedFromBackup(target);
    return target;
}

void AppDelegate::applicationDidEnterBackground() {
    VRSettings::save();
    VRSession::mainSession().setBackgroundMode(true);
}

std::optional<VRLaunchNeeds> AppDelegate::applicationWillEnterForeground() {
    VRSession::mainSession().setBackgroundMode(false);
    VRLaunchNeeds needs;
    if (!_photoAccessRequired(&needs.accessStep)) return std::nullopt;
    VRLaunchManager& manager = VRLaunchManager::defaultManager();
    if (manager.isLaunchRequired() && manager.launchStep() < kTutorialLaunchStep)
        return std::nullopt;
    needs.photoAccessRequired = true;
    needs.showsHomeScreen = false;
    needs.step = needs.accessStep;
    needs.staticMode = true;
    _launchNeeds = needs;
    return needs;
}

void AppDelegate::applicationWillTerminate() {
    NavigationManager::shared().clearThumbnailDirectories();
    VRFileStorage::removeCameraAssets();
    ApplicationStart::_removeTempVideos();
}

std::string describeLaunchNeeds(const VRLaunchNeeds& needs) {
    std::string text = needs.showsHomeScreen ? "home screen"
                                             : "launch step " + std::to_string(needs.step) +
                                                   (needs.staticMode ? ", static" : "");
    std::string due;
    const auto add = [&due](bool need, const char* name) {
        if (need) due += (due.empty() ? "" : ", ") + std::string(name);
    };
    add(needs.launchRequired, "first launch");
    add(needs.releaseNotesRequired, "release notes");
    add(needs.photoAccessRequired, "photo library access");
    add(needs.homeScreenChoiceRequired, "home screen choice");
    return due.empty() ? text : text + " (" + due + ")";
}
