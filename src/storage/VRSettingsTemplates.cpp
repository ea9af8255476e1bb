// The template bodies of VRSettings: one folder per identifier under documents/_cs-templates,
// holding the archived template and its thumbnail.
#include "platform/Environment.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/UUID.h"
#include "storage/VRSettings.h"
#include "storage/VXHelperFiles.h"
#include "templates/VXTemplateCoding.h"

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

bool writeTemplate(const VXTemplate& tpl, const std::string& identifier) {
    platform::ErrorRef error;
    auto data = VXTemplateCoding::archivedDataWithTemplate(tpl, &error);
    if (!data) {
        platform::log("~~ Failed to archive object: " +
                      (error ? error->description() : std::string("unknown error")));
        return false;
    }
    std::string path = VRSettings::templateDataPathWithIdentifier(identifier);
    if (path.empty() || !VXHelper::saveData(*data, path)) {
        platform::log("~~ Failed to write archived data to file: " + path);
        return false;
    }
    return true;
}

}  // namespace

std::optional<std::string> VRSettings::saveTemplate(const VXTemplate& tpl, bool recent) {
    std::string identifier = (recent ? "recent-" : "") + platform::UUIDString();
    if (!writeTemplate(tpl, identifier)) return std::nullopt;
    return identifier;
}

bool VRSettings::saveRawTemplate(const VXTemplate& tpl) {
    return tpl.identifier() && writeTemplate(tpl, *tpl.identifier());
}

VXTemplateRef VRSettings::templateWithIdentifier(const std::string& identifier) {
    std::string path = templateDataPathWithIdentifier(identifier);
    if (path.empty()) return nullptr;
    auto data = platform::FileManager::contentsAtPath(path, nullptr, kMaxTemplateArchiveBytes);
    if (!data) return nullptr;
    platform::ErrorRef error;
    auto tpl = VXTemplateCoding::templateWithArchivedData(*data, &error);
    if (!tpl) platform::log("~~ unreadable template " + identifier + ": " + error->description());
    return tpl;
}
