// The temporary files of one process and the removal of what ended processes left behind.
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <mutex>
#include <random>
#include <set>

#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/ProcessLock.h"
#include "storage/VRFileStorage.h"
#include "storage/VXHelperFiles.h"

using platform::FileManager;

namespace {

constexpr const char* kOwnerFolderPrefix = "_vrowner-";
constexpr const char* kOwnerLockFolder = "_vrowners";
constexpr const char* kLockExtension = ".lock";

struct Owner {
    std::mutex mutex;
    std::string tag;
    std::string lockFolder;
    std::unique_ptr<platform::ProcessLock> lock;
    std::set<std::string> folders;
};

Owner& owner() {
    // Never destroyed: a temporary may be asked for while the process ends.
    static Owner* value = new Owner();
    return *value;
}

// The places are named without being made: a clean-up lists them and creates nothing.
std::string documentsPath() {
    return platform::Environment::documentsDirectory();
}

std::string lockFolder() {
    return FileManager::stringByAppendingPathComponent(platform::Environment::temporaryDirectory(),
                                                       kOwnerLockFolder);
}

// Creates a missing folder with its intermediates, marked excluded from backup.
bool ensureFolder(const std::string& folder, platform::ErrorRef* error = nullptr) {
    bool isDirectory = false;
    if (FileManager::fileExistsAtPath(folder, &isDirectory) && isDirectory) return true;
    if (!FileManager::createDirectoryAtPath(folder, true, error)) return false;
    VXHelper::excludeURLFromBackup(folder);
    return true;
}

std::string lockPathOf(const std::string& tag) {
    return FileManager::stringByAppendingPathComponent(lockFolder(), tag + kLockExtension);
}

std::string newTag() {
    static thread_local std::mt19937_64 random{std::random_device{}()};
    char text[48];
    std::snprintf(text, sizeof text, "%d-%08llx", static_cast<int>(::getpid()),
                  static_cast<unsigned long long>(random() & 0xFFFFFFFFull));
    return text;
}

// Under the owner's mutex. One tag per home for the process's life (tests move the home
// root, and a lock in another home doesn't mark this one's folders); without a lock the tag
// still names the folders, which a start may then take for an ended owner's.
const std::string& ensureOwner(Owner& o) {
    const std::string folder = lockFolder();
    if (!o.tag.empty() && o.lockFolder == folder) return o.tag;
    o.lock.reset();
    ensureFolder(platform::Environment::temporaryDirectory());
    ensureFolder(folder);
    platform::ErrorRef error;
    for (int attempt = 0; attempt < 8 && !o.lock; ++attempt) {
        o.tag = newTag();
        o.lock = platform::ProcessLock::acquireNewAtPath(lockPathOf(o.tag), &error);
    }
    if (!o.lock)
        platform::logf("~~ Unable to take the temporary files' lock: %s",
                       error ? error->localizedDescription().c_str() : "unknown");
    o.lockFolder = folder;
    return o.tag;
}

std::string tagOfFolderName(const std::string& name) {
    return name.substr(std::char_traits<char>::length(kOwnerFolderPrefix));
}

}  // namespace

std::string VRFileStorage::temporaryVideoDirectory() {
    return FileManager::stringByAppendingPathComponent(documentsPath(), "_vrtempvideodir");
}

std::string VRFileStorage::temporaryImageDirectory() {
    return FileManager::stringByAppendingPathComponent(documentsPath(), "_vrtempimagedir");
}

std::vector<std::string> VRFileStorage::temporaryPlaces() {
    return {documentsPath(), temporaryVideoDirectory(), temporaryImageDirectory(),
            platform::Environment::temporaryDirectory()};
}

std::string VRFileStorage::temporaryOwnerTag() {
    Owner& o = owner();
    std::lock_guard lock(o.mutex);
    return ensureOwner(o);
}

std::string VRFileStorage::ownTemporaryFolder(const std::string& place) {
    Owner& o = owner();
    std::lock_guard lock(o.mutex);
    const std::string folder =
        FileManager::stringByAppendingPathComponent(place, kOwnerFolderPrefix + ensureOwner(o));
    platform::ErrorRef error;
    if (!ensureFolder(place, &error) || !ensureFolder(folder, &error)) {
        platform::logf("~~ Unable to make the temporary folder %s: %s", folder.c_str(),
                       error ? error->localizedDescription().c_str() : "unknown");
        return place;
    }
    o.folders.insert(folder);
    return folder;
}

void VRFileStorage::removeOwnTemporaries() {
    Owner& o = owner();
    std::lock_guard lock(o.mutex);
    for (const auto& folder : o.folders) {
        if (FileManager::fileExistsAtPath(folder)) FileManager::removeItemAtPath(folder);
    }
    o.folders.clear();
    o.lock.reset();
    o.tag.clear();
    o.lockFolder.clear();
}

bool VRFileStorage::isOwnerFolderName(const std::string& name) {
    const std::size_t prefix = std::char_traits<char>::length(kOwnerFolderPrefix);
    return name.size() > prefix && name.compare(0, prefix, kOwnerFolderPrefix) == 0 &&
           name.find('/') == std::string::npos && name.find("..") == std::string::npos;
}

bool VRFileStorage::isTemporaryOfRunningProcess(const std::string& name) {
    return isOwnerFolderName(name) &&
           platform::ProcessLock::isHeldAtPath(lockPathOf(tagOfFolderName(name)));
}

std::vector<std::string> VRFileStorage::removeTemporariesOfEndedProcesses() {
    std::vector<std::string> removed;
    // Owners with folders but no lock file left: the lock goes before the folders only when
    // a cleaner was itself stopped half-way, so these have ended too.
    std::set<std::string> tags;
    for (const auto& place : temporaryPlaces()) {
        for (const auto& name :
             FileManager::contentsOfDirectoryAtPath(place).value_or(std::vector<std::string>{})) {
            if (isOwnerFolderName(name)) tags.insert(tagOfFolderName(name));
        }
    }
    for (const auto& name : FileManager::contentsOfDirectoryAtPath(lockFolder())
                                .value_or(std::vector<std::string>{})) {
        const std::size_t extension = std::char_traits<char>::length(kLockExtension);
        if (name.size() > extension &&
            name.compare(name.size() - extension, extension, kLockExtension) == 0)
            tags.insert(name.substr(0, name.size() - extension));
    }
    for (const auto& tag : tags) {
        const std::string lockPath = lockPathOf(tag);
        std::unique_ptr<platform::ProcessLock> takenOver;
        if (FileManager::fileExistsAtPath(lockPath)) {
            takenOver = platform::ProcessLock::takeOverAtPath(lockPath);
            if (!takenOver) continue;  // still running, or another start is on it
        }
        for (const auto& place : temporaryPlaces()) {
            const std::string folder =
                FileManager::stringByAppendingPathComponent(place, kOwnerFolderPrefix + tag);
            if (!FileManager::fileExistsAtPath(folder)) continue;
            if (FileManager::removeItemAtPath(folder)) {
                platform::logf("~~ Removed temporary files of an ended process %s", folder.c_str());
                removed.push_back(folder);
            } else {
                platform::logf("~~ Unable to remove temporary files %s", folder.c_str());
            }
        }
        // The taken-over lock removes its file as it goes.
    }
    return removed;
}
