#include "templates/TemplateBodies.h"

#include "platform/Log.h"
#include "storage/VRSettings.h"
#include "storage/VXHelperFiles.h"
#include "templates/VXTemplateCoding.h"

namespace TemplateBodies {

namespace {

std::optional<platform::PlistData> archived(const VXTemplate& tpl) {
    platform::ErrorRef error;
    auto data = VXTemplateCoding::archivedDataWithTemplate(tpl, &error);
    if (!data) {
        platform::log("~~ Failed to archive object: " +
                      (error ? error->description() : std::string("unknown error")));
    }
    return data;
}

}  // namespace

std::optional<std::string> saveTemplate(const VXTemplate& tpl, bool recent) {
    auto data = archived(tpl);
    if (!data) return std::nullopt;
    return VRSettings::saveTemplateData(*data, recent);
}

bool saveRawTemplate(const VXTemplate& tpl) {
    if (!tpl.identifier()) return false;
    auto data = archived(tpl);
    return data && VRSettings::saveTemplateDataWithIdentifier(*data, *tpl.identifier());
}

bool saveTemplateImageData(const platform::PlistData& data, const std::string& identifier) {
    const std::string path = VRSettings::templateImagePathWithIdentifier(identifier);
    if (path.empty() || !VXHelper::saveData(data, path)) {
        platform::log("~~ Failed to write template image data to file: " + path);
        return false;
    }
    return true;
}

VXTemplateRef templateWithIdentifier(const std::string& identifier) {
    auto data = VRSettings::templateDataWithIdentifier(identifier);
    if (!data) return nullptr;
    platform::ErrorRef error;
    auto tpl = VXTemplateCoding::templateWithArchivedData(*data, &error);
    if (!tpl) {
        platform::log("~~ unreadable template " + identifier + ": " +
                      (error ? error->description() : std::string("unknown error")));
    }
    return tpl;
}

}  // namespace TemplateBodies
