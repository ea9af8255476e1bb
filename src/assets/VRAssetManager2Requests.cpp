// Sessions, request options and thumbnails of every asset kind.
#include <cmath>
#include <future>

#include "assets/VRAssetManager2.h"
#include "assets/VRAssetManager2Internal.h"
#include "assets/VRDataAsset.h"
#include "assets/VRFileAsset.h"
#include "assets/VRLibraryAsset.h"
#include "assets/VRLocalAsset.h"
#include "assets/VRURLAsset.h"
#include "model/ImageRendering.h"
#include "model/VRImageProperties.h"
#include "platform/AVAssetImageGenerator.h"
#include "platform/Dispatch.h"
#include "platform/FileManager.h"
#include "platform/ImageSource.h"
#include "platform/Log.h"
#include "platform/UUID.h"
#include "storage/VXHelperFiles.h"

using namespace platform;
using namespace vr_asset_manager;

namespace vr_asset_manager {

const VRLibraryAsset* libraryAssetOf(const VRAssetRef& asset) {
    return asset ? dynamic_cast<const VRLibraryAsset*>(asset->object().get()) : nullptr;
}

const VRURLAsset* urlAssetOf(const VRAssetRef& asset) {
    return asset ? dynamic_cast<const VRURLAsset*>(asset->object().get()) : nullptr;
}

CGSize Picture::displayedSize() const {
    if (displayed.width > 0 && displayed.height > 0) return displayed;
    return {double(image.width()), double(image.height())};
}

std::optional<Bitmap> frameOfMovie(const AVAssetRef& movie) {
    auto generator = AVAssetImageGenerator::assetImageGeneratorWithAsset(movie);
    if (!generator) return std::nullopt;
    generator->setAppliesPreferredTrackTransform(true);
    // A tenth in rather than the first frame, which is often a fade from black; the first sync
    // frame after that point will do, and decodes alone instead of after every frame before it.
    generator->setRequestedTimeToleranceAfter(kCMTimePositiveInfinity);
    const double duration = CMTimeGetSeconds(movie->loadDuration().valueOr(kCMTimeZero));
    ErrorRef error;
    auto frame = generator->copyCGImageAtTime(
        CMTimeMakeWithSeconds(std::isfinite(duration) && duration > 0 ? duration / 10 : 0, 600),
        nullptr, &error);
    if (!frame)
        logf("~~ ASSET: no frame of %s: %s", movie->URL().c_str(),
             error ? error->localizedDescription().c_str() : "unknown");
    return frame;
}

std::optional<Picture> pictureAtPath(const std::string& path, bool isMovie) {
    if (isMovie) {
        auto frame = frameOfMovie(AVAsset::assetWithURL(path));
        if (!frame) return std::nullopt;
        return Picture{std::move(*frame), 0, {}};
    }
    auto source = ImageSource::createWithURL(path);
    if (!source) return std::nullopt;
    auto properties = VRImageProperties::ofImageSource(*source);
    auto image = source->createImageAtIndex(0);
    if (!image) return std::nullopt;
    if (!properties) return Picture{std::move(*image), 0, {}};
    return Picture{std::move(*image), properties->orientation().value_or(0),
                   properties->displayedSize()};
}

std::optional<Bitmap> drawPicture(const Picture& picture, CGSize target,
                                  PHImageContentMode contentMode,
                                  VRImageArrangementBits arrangement) {
    const CGSize size = VRThumbnailSizeForSize(picture.displayedSize(), target, contentMode);
    if (size.width == 0) return std::nullopt;
    return VRRenderCGImage(picture.image, picture.orientation, kCGInterpolationMedium, std::nullopt,
                           arrangement, 1, 0, CGRect{}, size, CGPoint{});
}

}  // namespace vr_asset_manager

namespace {

constexpr auto kUprightThumbnail =
    static_cast<VRImageArrangementBits>(VRImageArrangementIntegral | VRImageArrangementOriented);

void onMain(const VRAssetManager2::ThumbnailCompletion& completion, std::optional<Bitmap> image) {
    DispatchQueue::main().async([completion, image = std::move(image)] { completion(image); });
}

}  // namespace

PHImageRequestOptions VRAssetManager2::optionsForImageDataRequestSynchronous(
    bool synchronous) const {
    PHImageRequestOptions options;
    options.networkAccessAllowed = true;
    options.version = _sourceImageEnabled ? PHImageRequestOptionsVersionOriginal
                                          : PHImageRequestOptionsVersionCurrent;
    options.deliveryMode = PHImageRequestOptionsDeliveryModeHighQualityFormat;
    options.resizeMode = PHImageRequestOptionsResizeModeNone;
    options.synchronous = synchronous;
    return options;
}

PHImageRequestOptions VRAssetManager2::optionsForThumbnailRequestHighQuality(
    bool highQuality, bool synchronous) const {
    PHImageRequestOptions options;
    options.networkAccessAllowed = true;
    // The flag itself as the version (0 current, 1 unadjusted), unlike the data request.
    options.version = _sourceImageEnabled ? 1 : 0;
    options.deliveryMode = highQuality ? PHImageRequestOptionsDeliveryModeOpportunistic
                                       : PHImageRequestOptionsDeliveryModeFastFormat;
    options.resizeMode = PHImageRequestOptionsResizeModeFast;
    options.synchronous = synchronous;
    return options;
}

PHFetchOptions VRAssetManager2::optionsForAssetReqest() const {
    PHFetchOptions options;
    options.mediaTypes = {PHAssetMediaTypeImage};
    if (!_loadImagesOnly) options.mediaTypes.push_back(PHAssetMediaTypeVideo);
    return options;
}

std::string VRAssetManager2::_generateUniqueSessionName() {
    return "session-" + UUIDString();
}

std::string VRAssetManager2::beginSessionWithName(const std::string& name,
                                                  PHImageContentMode contentMode, bool highQuality,
                                                  bool synchronous, bool allowHighQualityCaching) {
    const std::string key = name.empty() ? _generateUniqueSessionName() : name;
    endSessionWithName(key);
    auto session =
        VRRequestSession::sessionWithTargetSize(CGSize{0, 0}, contentMode, highQuality, synchronous,
                                                allowHighQualityCaching, photoLibrary());
    std::lock_guard lock(_sessionsLock);
    requestSessions[key] = std::move(session);
    return key;
}

void VRAssetManager2::endSessionWithName(const std::string& name) {
    if (name.empty()) return;
    VRRequestSessionRef session;
    {
        std::lock_guard lock(_sessionsLock);
        auto it = requestSessions.find(name);
        if (it == requestSessions.end()) return;
        session = it->second;
        requestSessions.erase(it);
    }
    if (session->imageManager) session->imageManager->stopCachingImagesForAllAssets();
    session->imageManager.reset();
}

VRRequestSessionRef VRAssetManager2::sessionWithName(const std::string& name) const {
    std::lock_guard lock(_sessionsLock);
    auto it = requestSessions.find(name);
    return it == requestSessions.end() ? nullptr : it->second;
}

void VRAssetManager2::sessionWithNameSetTargetSize(const std::string& name, CGSize targetSize) {
    std::lock_guard lock(_sessionsLock);
    auto it = requestSessions.find(name);
    if (it != requestSessions.end()) it->second->targetSize = targetSize;
}

namespace {

std::vector<std::string> identifiersOf(const std::vector<PHAsset>& assets) {
    std::vector<std::string> identifiers;
    for (const auto& asset : assets) identifiers.push_back(asset.localIdentifier);
    return identifiers;
}

std::vector<std::string> libraryIdentifiersOf(const std::vector<VRAssetRef>& assets) {
    std::vector<std::string> identifiers;
    for (const auto& asset : assets)
        if (auto* library = libraryAssetOf(asset))
            identifiers.push_back(library->localIdentifier());
    return identifiers;
}

}  // namespace

void VRAssetManager2::sessionWithNameStartCachingThumbnailsForPhotoAssets(
    const std::string& name, const std::vector<PHAsset>& assets) {
    auto session = sessionWithName(name);
    if (session && session->imageManager)
        session->imageManager->startCachingImagesForAssets(identifiersOf(assets),
                                                           session->targetSize);
}

void VRAssetManager2::sessionWithNameStopCachingThumbnailsForPhotoAssets(
    const std::string& name, const std::vector<PHAsset>& assets) {
    auto session = sessionWithName(name);
    if (session && session->imageManager)
        session->imageManager->stopCachingImagesForAssets(identifiersOf(assets));
}

void VRAssetManager2::sessionWithNameStartCachingThumbnailsForAssets(
    const std::string& name, const std::vector<VRAssetRef>& assets, bool highQuality) {
    auto session = sessionWithName(name);
    if (!session || !session->imageManager) return;
    if (highQuality && !session->imageManager->allowsCachingHighQualityImages()) return;
    session->imageManager->startCachingImagesForAssets(libraryIdentifiersOf(assets),
                                                       session->targetSize);
}

void VRAssetManager2::sessionWithNameStopCachingThumbnailsForAssets(
    const std::string& name, const std::vector<VRAssetRef>& assets, bool /*highQuality*/) {
    auto session = sessionWithName(name);
    if (session && session->imageManager)
        session->imageManager->stopCachingImagesForAssets(libraryIdentifiersOf(assets));
}

std::string VRAssetManager2::thumbnailURL() {
    return FileManager::stringByAppendingPathComponent(VXHelper::temporaryDirectory(),
                                                       VRThumbnailsDirectoryName);
}

std::string VRAssetManager2::_generateThumbnailPath() {
    return UUIDString();
}

std::optional<Bitmap> VRAssetManager2::_thumbnailForURLAsset(const VRURLAsset& asset,
                                                             CGSize targetSize,
                                                             bool /*highQuality*/,
                                                             PHImageContentMode contentMode) {
    if (asset.mediaType() == VRFormatMediaTypeVideo) {
        auto frame = pictureAtPath(asset.url(), true);
        return frame ? drawPicture(*frame, targetSize, contentMode, kUprightThumbnail)
                     : std::nullopt;
    }
    const std::string folder = thumbnailURL();
    FileManager::createDirectoryAtPath(folder, true, nullptr);
    const std::string file =
        FileManager::stringByAppendingPathComponent(folder, _generateThumbnailPath());
    return createThumbnailForURL(asset.url(), file, targetSize, contentMode, true);
}

std::optional<Bitmap> VRAssetManager2::_thumbnailForDataAsset(const VRDataAsset& asset,
                                                              CGSize targetSize,
                                                              bool /*highQuality*/,
                                                              PHImageContentMode contentMode) {
    auto data = asset.data();
    if (!data || asset.mediaType() != VRFormatMediaTypePhoto) return std::nullopt;
    auto source = ImageSource::createWithData(std::move(*data));
    auto image = source ? source->createImageAtIndex(0) : std::nullopt;
    if (!image) return std::nullopt;
    // Rounded only: drawn in the stored frame, as the bytes hold it.
    return drawPicture(Picture{std::move(*image), 0, {}}, targetSize, contentMode,
                       VRImageArrangementIntegral);
}

void VRAssetManager2::_requestThumbnailForAsset(const VRAssetRef& asset,
                                                const VRRequestSession& session,
                                                ThumbnailCompletion completionOnInternalThread) {
    if (!completionOnInternalThread) return;
    auto work = [this, asset, target = session.targetSize, mode = session.contentMode,
                 highQuality = session.highQuality,
                 library = session.imageManager ? session.imageManager->library() : nullptr,
                 completion = std::move(completionOnInternalThread)] {
        std::optional<Bitmap> image;
        const auto* object = asset ? asset->object().get() : nullptr;
        switch (asset ? asset->type() : 0) {
            case VRAssetIdentifierTypeLibrary: {
                auto* photo = static_cast<const VRLibraryAsset*>(object);
                // Sized by the picture itself, so that a fill covers the target even when the
                // cache's thumbnail is of a smaller standard size.
                const CGSize wanted = VRThumbnailSizeForSize(photo->pixelSize(), target, mode);
                std::optional<Bitmap> cached;
                if (library && wanted.width > 0)
                    cached = library->requestThumbnail(
                        photo->localIdentifier(),
                        static_cast<std::uint32_t>(std::max(wanted.width, wanted.height)), nullptr);
                if (cached) {
                    image = VRRenderCGImage(*cached, 0, kCGInterpolationMedium, std::nullopt,
                                            kUprightThumbnail, 1, 0, CGRect{}, wanted, CGPoint{});
                } else if (photo->mediaType() == VRFormatMediaTypeVideo && photo->primaryPath()) {
                    // A movie the cache can't draw is drawn from its own frame.
                    auto frame = pictureAtPath(*photo->primaryPath(), true);
                    if (frame) image = drawPicture(*frame, target, mode, kUprightThumbnail);
                }
                break;
            }
            case VRAssetIdentifierTypeURL:
                image = _thumbnailForURLAsset(*static_cast<const VRURLAsset*>(object), target,
                                              highQuality, mode);
                break;
            case VRAssetIdentifierTypeData:
                image = _thumbnailForDataAsset(*static_cast<const VRDataAsset*>(object), target,
                                               highQuality, mode);
                break;
            case VRAssetIdentifierTypeLocal:
                image = static_cast<const VRLocalAsset*>(object)->thumbnailImage();
                break;
            case VRAssetIdentifierTypeFile: {
                // File assets keep their own thumbnails of several widths and answer on a
                // global queue; a synchronous session waits for that answer.
                auto file = std::dynamic_pointer_cast<VRFileAsset>(asset->object());
                std::promise<std::optional<Bitmap>> answer;
                auto answered = answer.get_future();
                file->createThumbnailOfSize(target, [&answer](std::optional<Bitmap> thumbnail) {
                    answer.set_value(std::move(thumbnail));
                });
                image = answered.get();
                break;
            }
            default:
                break;
        }
        completion(std::move(image));
    };
    if (session.synchronous) return work();
    DispatchQueue::global(DispatchQoS::userInitiated).async(std::move(work));
}

void VRAssetManager2::sessionWithNameRequestThumbnailForAsset(
    const std::string& name, const VRAssetRef& asset, ThumbnailCompletion completionOnMainThread) {
    if (!completionOnMainThread) return;
    auto session = sessionWithName(name);
    if (!session || !asset) return onMain(completionOnMainThread, std::nullopt);
    _requestThumbnailForAsset(asset, *session, [completionOnMainThread](auto image) {
        onMain(completionOnMainThread, std::move(image));
    });
}

void VRAssetManager2::requestThumbnailForAsset(const VRAssetRef& asset, CGSize targetSize,
                                               bool highQuality, PHImageContentMode contentMode,
                                               bool synchronous,
                                               ThumbnailCompletion completionOnMainThread) {
    if (!completionOnMainThread) return;
    if (!asset) return onMain(completionOnMainThread, std::nullopt);
    auto session = VRRequestSession::sessionWithTargetSize(targetSize, contentMode, highQuality,
                                                           synchronous, false, photoLibrary());
    _requestThumbnailForAsset(asset, *session, [completionOnMainThread](auto image) {
        onMain(completionOnMainThread, std::move(image));
    });
}

void VRAssetManager2::requestPreviewImageForAsset(const VRAssetRef& asset, CGSize size,
                                                  ThumbnailCompletion completionOnMainThread) {
    if (!completionOnMainThread) return;
    DispatchQueue::global(DispatchQoS::userInitiated).async([asset, size, completionOnMainThread] {
        std::optional<std::string> path;
        if (auto* library = libraryAssetOf(asset))
            path = library->primaryPath();
        else if (auto* url = urlAssetOf(asset))
            path = url->url();
        else if (auto* local =
                     asset ? dynamic_cast<const VRLocalAsset*>(asset->object().get()) : nullptr)
            path = local->url();
        std::optional<Bitmap> image;
        auto picture = path ? pictureAtPath(*path, asset->mediaType() == VRFormatMediaTypeVideo)
                            : std::nullopt;
        if (picture && size.width > 0 && size.height > 0)
            // Rounded, in the source's colour space, stretched to the size asked for.
            image = VRRenderCGImage(
                picture->image, picture->orientation, kCGInterpolationMedium, std::nullopt,
                static_cast<VRImageArrangementBits>(VRImageArrangementIntegral |
                                                    VRImageArrangementSourceColorSpace),
                1, 0, CGRect{}, size, CGPoint{});
        onMain(completionOnMainThread, std::move(image));
    });
}
