#include <cctype>
#include <string>

#include "assets/VRAssetManager2.h"
#include "core/NavigationManager.h"
#include "core/VXHelperRate.h"
#include "editing/TemplatePictures.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "templates/TemplateManager.h"

namespace {

// The thumbnail folder's files are named by a fresh UUID each; anything else in it (a write
// in progress under a temporary name) is left alone.
bool isUUIDName(const std::string& name) {
    if (name.size() != 36) return false;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash ? name[i] != '-' : !std::isxdigit(static_cast<unsigned char>(name[i]))) {
            return false;
        }
    }
    return true;
}

// The thumbnails are drawn into memory and written only as a by-product, never read back, so
// emptying the folder takes nothing from another process that shares the home.
void removeThumbnailFiles() {
    const std::string folder = VRAssetManager2::thumbnailURL();
    const auto names = platform::FileManager::contentsOfDirectoryAtPath(folder);
    if (!names) return;
    for (const auto& name : *names) {
        if (!isUUIDName(name)) continue;
        platform::FileManager::removeItemAtPath(
            platform::FileManager::stringByAppendingPathComponent(folder, name));
    }
}

}  // namespace

NavigationServices NavigationServices::standard() {
    NavigationServices services;
    services.setSourceAlbumName = [](const std::string& name) {
        VRAssetManager2::defaultManager().setSourceAlbumName(name);
    };
    services.clearThumbnailDirectories = removeThumbnailFiles;
    services.incrementRateInfoStarted = VXHelper::incrementRateInfoStarted;
    services.saveRecentTemplate = [](const VXTemplateRef& tpl, const VRAssetRef& targetAsset) {
        if (!tpl) return;
        // The recent template carries its target asset's picture, so the list shows it.
        VRTemplatePictures::saveRecentTemplate(
            TemplateManager::shared(), tpl, targetAsset,
            [](const std::optional<std::string>& identifier) {
                if (!identifier) {
                    platform::log("~~ Unable to save the recent template");
                }
            });
    };
    services.batchServices = VRBatchServices::standard;
    return services;
}
