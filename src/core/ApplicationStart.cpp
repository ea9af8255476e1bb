#include "core/ApplicationStart.h"

#include <mutex>

#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/KeyedArchive.h"
#include "platform/Log.h"
#include "platform/UserDefaults.h"
#include "storage/VRFileStorage.h"
#include "templates/VXTemplateCoding.h"

using platform::FileManager;

namespace ApplicationStart {
namespace {

constexpr const char* kFixInstalledCachedVidFilesKey = "VRFixInstalledCachedVidFiles";

// Every entry of `folder` but the folders of processes still running, logging each.
void removeEntriesOf(const std::string& folder, const std::string& removed,
                     const std::string& unable) {
    const auto names = FileManager::contentsOfDirectoryAtPath(folder);
    if (!names) return;
    for (const auto& name : *names) {
        if (VRFileStorage::isTemporaryOfRunningProcess(name)) continue;
        const std::string path = FileManager::stringByAppendingPathComponent(folder, name);
        platform::log((FileManager::removeItemAtPath(path) ? removed : unable) + path);
    }
}

bool isOldVidFile(const std::string& name) {
    const std::string stem = FileManager::stringByDeletingPathExtension(name);
    return stem.size() >= 5 && stem.compare(stem.size() - 4, 4, "-vid") == 0;
}

}  // namespace

void prepareUnarchiver() {
    static std::once_flag once;
    std::call_once(once, [] {
        VXTemplateCoding::registerArchiveClasses();
        platform::KeyedUnarchiver::setClassForClassName("VXTemplate", "VRTemplate");
    });
}

void _removeTempImages() {
    removeEntriesOf(VRFileStorage::temporaryImageDirectory(), "~~ Removed file ",
                    "~~ Unable to remove file ");
}

void _removeTempVideos() {
    removeEntriesOf(VRFileStorage::temporaryVideoDirectory(), "~~ Removed video file ",
                    "~~ Unable to remove video file ");
}

void _removeCachedVidFilesFromV2XX() {
    // Without documents there is nothing to look for, and the flag waits for a home that has.
    const std::string documents = platform::Environment::documentsDirectory();
    if (!FileManager::fileExistsAtPath(documents)) return;
    auto& defaults = platform::UserDefaults::standardUserDefaults();
    if (defaults.boolForKey(kFixInstalledCachedVidFilesKey)) return;
    // The flag goes first, so an interrupted walk is not repeated.
    defaults.setObject(platform::PlistValue(true), kFixInstalledCachedVidFilesKey);
    defaults.synchronize();
    for (const auto& name :
         FileManager::contentsOfDirectoryAtPath(documents).value_or(std::vector<std::string>{})) {
        if (!isOldVidFile(name)) continue;
        const std::string path = FileManager::stringByAppendingPathComponent(documents, name);
        platform::log((FileManager::removeItemAtPath(path)
                           ? "~~ Removed old vid video file "
                           : "~~ Unable to remove old vid video file ") +
                      path);
    }
}

void removeTemporaryFiles(bool openingFile) {
    if (!openingFile) _removeTempImages();
    _removeTempVideos();
    _removeCachedVidFilesFromV2XX();
    // A home that has no documents yet has nothing to clear there, and stays as it is.
    if (FileManager::fileExistsAtPath(platform::Environment::documentsDirectory())) {
        VRFileStorage::removeTemporaryImportAssets();
        VRFileStorage::removeCameraAssets();
    }
    VRFileStorage::removeTemporariesOfEndedProcesses();
}

}  // namespace ApplicationStart
