#include "storage/VXHelperFiles.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <random>

#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "storage/VRFileStorage.h"

using platform::FileManager;

namespace VXHelper {
namespace {

std::string ensuredDirectory(const std::string& path) {
    bool isDirectory = false;
    if (!(FileManager::fileExistsAtPath(path, &isDirectory) && isDirectory) &&
        FileManager::createDirectoryAtPath(path, true)) {
        excludeURLFromBackup(path);
    }
    return path;
}

// Like the platform's globally unique string: a random UUID, the process id and a counter,
// so that two calls never meet, in one process or in two.
std::string globallyUniqueString() {
    static std::atomic<std::uint64_t> counter{0};
    thread_local std::mt19937_64 random{std::random_device{}()};
    std::uint64_t high = random();
    std::uint64_t low = random();
    high = (high & 0xFFFFFFFFFFFF0FFFull) | 0x0000000000004000ull;  // version 4
    low = (low & 0x3FFFFFFFFFFFFFFFull) | 0x8000000000000000ull;    // RFC 4122 variant
    char text[96];
    std::snprintf(text, sizeof text, "%08X-%04X-%04X-%04X-%012llX-%d-%016llX",
                  static_cast<unsigned>(high >> 32), static_cast<unsigned>((high >> 16) & 0xFFFF),
                  static_cast<unsigned>(high & 0xFFFF), static_cast<unsigned>(low >> 48),
                  static_cast<unsigned long long>(low & 0xFFFFFFFFFFFFull),
                  static_cast<int>(::getpid()),
                  static_cast<unsigned long long>(counter.fetch_add(1) + 1));
    return text;
}

}  // namespace

std::string documentDirectory() {
    return ensuredDirectory(platform::Environment::documentsDirectory());
}

std::string temporaryDirectory() {
    return ensuredDirectory(platform::Environment::temporaryDirectory());
}

void excludeURLFromBackup(const std::string& path) {
    FileManager::setExcludedFromBackup(path);
}

bool _createDirectoriesAtPath(const std::string& filePath) {
    const std::string parent = FileManager::stringByDeletingLastPathComponent(filePath);
    if (parent.empty()) return true;
    bool isDirectory = false;
    if (FileManager::fileExistsAtPath(parent, &isDirectory) && isDirectory) return true;
    if (!FileManager::createDirectoryAtPath(parent, true)) return false;
    excludeURLFromBackup(parent);
    return true;
}

bool moveFileAtPath(const std::string& path, const std::string& toPath) {
    if (!_createDirectoriesAtPath(toPath)) return false;
    if (!FileManager::moveItemAtPath(path, toPath)) return false;
    excludeURLFromBackup(toPath);
    return true;
}

bool saveData(const platform::PlistData& data, const std::string& toFileAtPath) {
    if (!_createDirectoriesAtPath(toFileAtPath)) return false;
    if (!FileManager::writeDataAtomically(data, toFileAtPath)) return false;
    excludeURLFromBackup(toFileAtPath);
    return true;
}

std::optional<std::string> saveData(const platform::PlistData& data, const std::string& toFile,
                                    const std::string& inDirectory) {
    const std::string path = FileManager::stringByAppendingPathComponent(
        FileManager::stringByAppendingPathComponent(documentDirectory(), inDirectory), toFile);
    if (!saveData(data, path)) return std::nullopt;
    return path;
}

std::optional<std::uint64_t> freeDiskSpace() {
    return FileManager::freeDiskSpaceAtPath(documentDirectory());
}

std::string uniqueFilename() {
    return "file-" + globallyUniqueString();
}

std::string uniquePathWithExtension(const std::string& extension) {
    return pathWithFilename(std::nullopt, extension);
}

std::string pathWithFilename(const std::optional<std::string>& filename,
                             const std::string& extension) {
    std::string name = filename && !filename->empty() ? *filename : uniqueFilename();
    if (!extension.empty()) name += "." + extension;
    return FileManager::stringByAppendingPathComponent(
        VRFileStorage::ownTemporaryFolder(documentDirectory()), name);
}

}  // namespace VXHelper
