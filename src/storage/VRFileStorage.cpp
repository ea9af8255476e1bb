#include "storage/VRFileStorage.h"

#include <mutex>
#include <optional>

#include "platform/FileManager.h"
#include "platform/Log.h"
#include "storage/VXHelperFiles.h"

using platform::FileManager;

namespace {

VRFileStorage::ProjectURLs makeProjectURLs(const std::string& documents) {
    VRFileStorage::ProjectURLs urls;
    urls.userURL = FileManager::stringByAppendingPathComponent(documents, "user");
    urls.assetsURL = FileManager::stringByAppendingPathComponent(urls.userURL, "assets");
    urls.appfilesURL = FileManager::stringByAppendingPathComponent(urls.userURL, "_vrfiles");
    return urls;
}

}  // namespace

VRFileStorage::ProjectURLs VRFileStorage::projectURLs() {
    static std::mutex mutex;
    static std::optional<std::pair<std::string, ProjectURLs>> made;
    const std::string documents = VXHelper::documentDirectory();
    std::lock_guard lock(mutex);
    if (!made || made->first != documents) made.emplace(documents, makeProjectURLs(documents));
    return made->second;
}

VRFileStorage::ProjectURLs::AppfileCoordinator::AppfileCoordinator(const std::string& ownerName)
    : url(FileManager::stringByAppendingPathComponent(projectURLs().appfilesURL, ownerName)) {
    bool isDirectory = false;
    if (FileManager::fileExistsAtPath(url, &isDirectory) && isDirectory) return;
    if (FileManager::createDirectoryAtPath(url, true)) VXHelper::excludeURLFromBackup(url);
}

void VRFileStorage::createAssetsFolder() {
    FileManager::createDirectoryAtPath(projectURLs().assetsURL, true);
}

void VRFileStorage::removeFilesWithPrefix(const std::string& prefix) {
    const std::string folder = projectURLs().assetsURL;
    auto names = FileManager::contentsOfDirectoryAtPath(folder);
    if (!names) return;
    for (const auto& name : *names) {
        if (name.compare(0, prefix.size(), prefix) != 0) continue;
        if (FileManager::removeItemAtPath(
                FileManager::stringByAppendingPathComponent(folder, name))) {
            platform::log("~~ removed file " + name);
        }
    }
}

void VRFileStorage::clearApplicationFiles() {
    FileManager::removeItemAtPath(projectURLs().appfilesURL);
}

void VRFileStorage::removeCameraAssets() {
    removeFilesWithPrefix("camera");
}

void VRFileStorage::removeTemporaryImportAssets() {
    const std::string folder =
        FileManager::stringByAppendingPathComponent(projectURLs().assetsURL, "import");
    if (FileManager::fileExistsAtPath(folder) && FileManager::removeItemAtPath(folder))
        platform::log("~~ removed temporary import assets");
}
