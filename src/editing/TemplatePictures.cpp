#include "editing/TemplatePictures.h"

#include "assets/VRAssetManager2.h"
#include "platform/FileManager.h"
#include "platform/ImageDestination.h"
#include "platform/Log.h"
#include "storage/VXHelperFiles.h"

namespace VRTemplatePictures {

namespace {

constexpr double kTemplateImageQuality = 0.9;
constexpr double kTemplateThumbnailPoints = 200;
// A thumbnail of 200 x 200 is a few tens of kilobytes; anything far beyond is not ours.
constexpr std::size_t kMaxTemplateImageBytes = 16u << 20;

}  // namespace

CGSize templateThumbnailSize() {
    return CGSize{kTemplateThumbnailPoints, kTemplateThumbnailPoints};
}

std::optional<platform::PlistData> templateImageDataWithImage(const platform::Bitmap& image) {
    // The encoder writes files: the JPEG goes through a file of this process's own.
    const std::string path = VXHelper::uniquePathWithExtension("jpg");
    platform::ErrorRef error;
    auto destination = platform::ImageDestination::createWithURL(path, "public.jpeg", 1, &error);
    std::optional<platform::PlistData> data;
    if (destination) {
        destination->addImage(
            image, {{"kCGImageDestinationLossyCompressionQuality", kTemplateImageQuality},
                    {"HasAlpha", false}});
        if (destination->finalize(&error)) {
            data = platform::FileManager::contentsAtPath(path, &error, kMaxTemplateImageBytes);
        }
    }
    platform::FileManager::removeItemAtPath(path);
    if (!data) {
        platform::log("~~ no template image: " +
                      (error ? error->localizedDescription() : std::string("unknown error")));
    }
    return data;
}

void createTemplateImageForAsset(const VRAssetRef& asset, CGSize pixelSize,
                                 ImageCompletion completionOnMainThread) {
    if (!completionOnMainThread) return;
    if (!asset) {
        completionOnMainThread(std::nullopt);
        return;
    }
    VRAssetManager2::defaultManager().requestThumbnailForAsset(asset, pixelSize, true,
                                                               PHImageContentModeAspectFill, false,
                                                               std::move(completionOnMainThread));
}

void saveRecentTemplate(TemplateManager& manager, const VXTemplateRef& tpl,
                        const VRAssetRef& targetAsset, SaveCompletion completionOnMainThread) {
    createTemplateImageForAsset(
        targetAsset, templateThumbnailSize(),
        [&manager, tpl, completion = std::move(completionOnMainThread)](auto image) {
            std::optional<platform::PlistData> data;
            if (image) data = templateImageDataWithImage(*image);
            auto identifier = manager.saveRecentTemplate(tpl, data);
            if (completion) completion(identifier);
        });
}

}  // namespace VRTemplatePictures
