#include "results/VRCameraCapture.h"

#include "assets/VRURLAsset.h"
#include "model/VRFormat.h"
#include "photo/ImageFileWriting.h"
#include "platform/AVError.h"
#include "platform/FileManager.h"
#include "platform/UUID.h"
#include "storage/VRFileStorage.h"

using platform::ErrorRef;
using platform::FileManager;

namespace {

constexpr const char* kCameraPrefix = "camera";

// Clears the earlier capture and makes sure the folder is there for the new one.
void prepareAssetsFolder() {
    VRFileStorage::removeFilesWithPrefix(kCameraPrefix);
    VRFileStorage::createAssetsFolder();
}

std::shared_ptr<VRAsset> assetForFile(const std::string& path) {
    return VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(path));
}

std::shared_ptr<VRAsset> movieAsset(const VRCameraMediaInfo& info, ErrorRef* error) {
    prepareAssetsFolder();
    const std::string target =
        VRCameraCapture::captureURLWithExtension(FileManager::pathExtension(info.mediaURL));
    if (!FileManager::copyItemAtPath(info.mediaURL, target, error)) return nullptr;
    return assetForFile(target);
}

std::shared_ptr<VRAsset> imageAsset(const VRCameraMediaInfo& info, ErrorRef* error) {
    if (!info.originalImage || info.originalImage->isNull()) {
        if (error) *error = platform::avError(AVErrorUnknown, "The camera gave no picture");
        return nullptr;
    }
    const VRFormat format = VRFormat::formatWithType(VRFormatTypeJPEG);
    prepareAssetsFolder();
    const std::string target = VRCameraCapture::captureURLWithExtension("jpg");
    if (!VRWriteImageFile(*info.originalImage, info.imageOrientation, format, target,
                          info.mediaMetadata, error))
        return nullptr;
    return assetForFile(target);
}

}  // namespace

std::string VRCameraCapture::captureURLWithExtension(const std::string& extension) {
    const std::string name = extension.empty() ? std::string(kCameraPrefix)
                                               : std::string(kCameraPrefix) + "." + extension;
    return FileManager::stringByAppendingPathComponent(VRFileStorage::projectURLs().assetsURL,
                                                       name);
}

std::shared_ptr<VRAsset> VRCameraCapture::assetWithMediaInfo(const VRCameraMediaInfo& info,
                                                             ErrorRef* error) {
    if (!info.mediaType) {
        if (error) *error = platform::avError(AVErrorUnknown, "The camera said not what it took");
        return nullptr;
    }
    switch (*info.mediaType) {
        case VRFormatMediaTypeVideo:
            return movieAsset(info, error);
        case VRFormatMediaTypePhoto:
            return imageAsset(info, error);
        default:
            if (error)
                *error = platform::avError(AVErrorUnknown,
                                           "The camera took neither a photo nor a movie");
            return nullptr;
    }
}

std::shared_ptr<VRAsset> VRCameraCapture::capturePhoto(const platform::Camera& camera,
                                                       ErrorRef* error) {
    auto still = camera.captureStill(error);
    if (!still) return nullptr;
    VRCameraMediaInfo info;
    info.mediaType = VRFormatMediaTypePhoto;
    info.originalImage = std::move(still->image);
    info.imageOrientation = still->imageOrientation;
    info.mediaMetadata = std::move(still->metadata);
    return assetWithMediaInfo(info, error);
}

std::shared_ptr<VRAsset> VRCameraCapture::captureMovie(const platform::Camera& camera,
                                                       double seconds, ErrorRef* error) {
    const std::string folder =
        VRFileStorage::ownTemporaryFolder(VRFileStorage::temporaryVideoDirectory());
    const std::string recorded = FileManager::stringByAppendingPathComponent(
        folder, "camera-" + platform::UUIDString() + "." + platform::Camera::movieExtension());
    if (!camera.recordMovie(seconds, recorded, error)) return nullptr;
    VRCameraMediaInfo info;
    info.mediaType = VRFormatMediaTypeVideo;
    info.mediaURL = recorded;
    auto asset = assetWithMediaInfo(info, error);
    FileManager::removeItemAtPath(recorded);
    return asset;
}
