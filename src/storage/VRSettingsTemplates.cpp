// The template bodies of VRSettings: one folder per identifier under documents/_cs-templates,
// holding the archived template and its thumbnail.
#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/UUID.h"
#include "storage/VRSettings.h"
#include "storage/VXHelperFiles.h"

namespace {

constexpr const char* kTemplatesDirectory = "_cs-templates";

// An identifier names one folder directly under "_cs-templates"; anything that could reach
// outside it is refused.
bool isSafeIdentifier(const std::string& identifier) {
    return !identifier.empty() && identifier != "." && identifier != ".." &&
           identifier.find('/') == std::string::npos && identifier.find('\0') == std::string::npos;
}

}  // namespace

std::string VRSettings::templateDirectoryWithIdentifier(const std::string& identifier) {
    if (!isSafeIdentifier(identifier)) return {};
    return platform::Environment::documentsDirectory() + "/" + kTemplatesDirectory + "/" +
           identifier;
}

std::string VRSettings::templateDataPathWithIdentifier(const std::string& identifier) {
    std::string directory = templateDirectoryWithIdentifier(identifier);
    return directory.empty() ? directory : directory + "/template-data";
}

std::string VRSettings::templateImagePathWithIdentifier(const std::string& identifier) {
    std::string directory = templateDirectoryWithIdentifier(identifier);
    return directory.empty() ? directory : directory + "/template-image-data";
}

void VRSettings::removeTemplateDirWithIdentifier(const std::string& identifier) {
    std::string directory = templateDirectoryWithIdentifier(identifier);
    if (directory.empty() || !platform::FileManager::fileExistsAtPath(directory)) return;
    platform::ErrorRef error;
    if (!platform::FileManager::removeItemAtPath(directory, &error)) {
        platform::log("~~ failed to remove template folder: " + error->description());
    }
}

bool VRSettings::copyTemplateImageDataToTemplateWithIdentifier(
    const std::string& identifier, const std::string& sourceIdentifier) {
    std::string source = templateImagePathWithIdentifier(sourceIdentifier);
    std::string target = templateImagePathWithIdentifier(identifier);
    if (source.empty() || target.empty() || !platform::FileManager::fileExistsAtPath(source)) {
        return false;
    }
    std::string directory = templateDirectoryWithIdentifier(identifier);
    if (!platform::FileManager::fileExistsAtPath(directory)) {
        if (!platform::FileManager::createDirectoryAtPath(directory, true)) return false;
        platform::FileManager::setExcludedFromBackup(directory);
    }
    platform::FileManager::removeItemAtPath(target);
    return platform::FileManager::copyItemAtPath(source, target);
}

namespace {

// Template archives are small; anything far larger is not one of ours.
constexpr std::size_t kMaxTemplateArchiveBytes = 1u << 20;

}  // namespace

bool VRSettings::saveTemplateDataWithIdentifier(const platform::PlistData& data,
                                                const std::string& identifier) {
    std::string path = templateDataPathWithIdentifier(identifier);
    if (path.empty() || !VXHelper::saveData(data, path)) {
        platform::log("~~ Failed to write archived data to file: " + path);
        return false;
    }
    return true;
}

std::optional<std::string> VRSettings::saveTemplateData(const platform::PlistData& data,
                                                        bool recent) {
    std::string identifier = (recent ? "recent-" : "") + platform::UUIDString();
    if (!saveTemplateDataWithIdentifier(data, identifier)) return std::nullopt;
    return identifier;
}

std::optional<platform::PlistData> VRSettings::templateDataWithIdentifier(
    const std::string& identifier) {
    std::string path = templateDataPathWithIdentifier(identifier);
    if (path.empty()) return std::nullopt;
    return platform::FileManager::contentsAtPath(path, nullptr, kMaxTemplateArchiveBytes);
}
