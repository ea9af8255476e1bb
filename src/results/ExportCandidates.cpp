#include "results/ExportCandidates.h"

#include "platform/FileManager.h"
#include "platform/UUID.h"
#include "results/VRHelper.h"
#include "results/VXHelperNames.h"

using platform::FileManager;

namespace {

std::string withExtension(const std::string& stem, const std::string& extension) {
    return extension.empty() ? stem : stem + "." + extension;
}

}  // namespace

std::string sharingTargetName(const SharingNaming& naming, const std::string& sourceURL,
                              const std::string& originalFilename, std::size_t index) {
    const std::string extension = FileManager::pathExtension(sourceURL);
    if (naming.custom) {
        if (!naming.hasMany) return withExtension(naming.baseName, extension);
        return withExtension(
            VXHelper::sharingFileNameWithBaseName(naming.baseName, index + 1, naming.digits, ""),
            extension);
    }
    const std::string stem = FileManager::stringByDeletingPathExtension(originalFilename);
    return withExtension(VRHelper::originaFilename(stem, naming.suffixEnabled, false), extension);
}

ItemCandidate prepareSharingCandidate(const std::string& sourceURL, const std::string& targetName,
                                      const std::string& sharingFolder) {
    if (targetName == FileManager::lastPathComponent(sourceURL))
        return {ItemCandidate::Kind::source, sourceURL, true};
    const std::string folder =
        FileManager::stringByAppendingPathComponent(sharingFolder, platform::UUIDString());
    if (!FileManager::createDirectoryAtPath(folder, true))
        return {ItemCandidate::Kind::source, sourceURL, false};
    const std::string destination = FileManager::stringByAppendingPathComponent(folder, targetName);
    if (FileManager::linkItemAtPath(sourceURL, destination))
        return {ItemCandidate::Kind::linked, destination, true};
    // Across file systems, or where links are refused.
    if (FileManager::copyItemAtPath(sourceURL, destination))
        return {ItemCandidate::Kind::copied, destination, true};
    return {ItemCandidate::Kind::source, sourceURL, false};
}
