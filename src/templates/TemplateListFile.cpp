#include "templates/TemplateListFile.h"

#include <cerrno>

#include "platform/FileAside.h"
#include "platform/FileLock.h"
#include "platform/FileManager.h"
#include "storage/VXHelperFiles.h"
#include "templates/VRTemplateListCoding.h"

namespace TemplateListFile {
namespace {

// The folder of the file, made (and marked as excluded from backups) when missing; false with
// the reason when it can't be made.
bool ensureFolder(const std::string& path, platform::ErrorRef* error) {
    if (VXHelper::_createDirectoriesAtPath(path)) return true;
    // Asked again only to learn the reason.
    platform::ErrorRef reason;
    platform::FileManager::createDirectoryAtPath(
        platform::FileManager::stringByDeletingLastPathComponent(path), true, &reason);
    if (error) {
        *error = reason ? reason
                        : platform::Error::posixError(
                              ENOTDIR, "mkdir",
                              platform::FileManager::stringByDeletingLastPathComponent(path));
    }
    return false;
}

}  // namespace

std::optional<platform::PlistData> readData(const std::string& path, ReadState* state,
                                            platform::ErrorRef* error) {
    if (!platform::FileManager::fileExistsAtPath(path)) {
        *state = ReadState::missing;
        return std::nullopt;
    }
    auto data =
        platform::FileManager::contentsAtPath(path, error, VRTemplateListCoding::kMaxFileBytes);
    *state = data ? ReadState::read : ReadState::unreadable;
    return data;
}

void keepAside(const std::string& path, const platform::ErrorRef& reason) {
    platform::moveUnreadableFileAside(
        path, "unreadable template list: " +
                  (reason ? reason->localizedDescription() : std::string("unknown error")));
}

bool writeData(const platform::PlistData& data, const std::string& path,
               platform::ErrorRef* error) {
    if (!ensureFolder(path, error)) return false;
    if (!platform::FileManager::writeDataAtomically(data, path, error)) return false;
    VXHelper::excludeURLFromBackup(path);
    return true;
}

bool withLock(const std::string& path, const std::function<bool()>& body,
              platform::ErrorRef* error) {
    if (!ensureFolder(path, error)) return false;
    auto lock = platform::FileLock::lockPath(path, error);
    if (!lock) return false;
    return body();
}

}  // namespace TemplateListFile
