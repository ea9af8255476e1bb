#include "core/VRProcessor.h"

#include <cmath>
#include <limits>

#include "assets/VRAssetManager2.h"
#include "photo/PhotoMetadata.h"
#include "photo/VRPhotoJob.h"
#include "platform/Dispatch.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "results/VRHelper.h"
#include "storage/VRSettings.h"
#include "storage/VRSettings2.h"

namespace {

using platform::DispatchQueue;

bool isZero(CGSize size) {
    return size.width == 0 && size.height == 0;
}

std::unique_ptr<platform::OperationQueue> serialQueue(const char* name) {
    auto queue = std::make_unique<platform::OperationQueue>();
    queue->setName(name);
    queue->setMaxConcurrentOperationCount(1);
    return queue;
}

}  // namespace

VRProcessor::VRProcessor() : _processingQueue(serialQueue("processing-queue")) {}

VRProcessor& VRProcessor::mainProcessor() {
    // Never destroyed: queued operations may still reach it while the process ends.
    static VRProcessor* processor = new VRProcessor();
    return *processor;
}

platform::OperationQueue& VRProcessor::thumbnailQueue() {
    std::call_once(_thumbnailQueueMade,
                   [this] { _thumbnailQueue = serialQueue("thumbnail-queue"); });
    return *_thumbnailQueue;
}

double VRProcessor::_registerProcessingStartTime() {
    double time = platform::PlistDate::now().sinceReferenceDate;
    // Two passes started within the clock's resolution must still differ.
    const double last = _processingStartTime.load();
    if (time <= last) time = std::nextafter(last, std::numeric_limits<double>::infinity());
    _processingStartTime.store(time);
    return time;
}

bool VRProcessor::_isProcessingStartTimeInvalid(double startTime) const {
    return _processingStartTime.load() != startTime;
}

void VRProcessor::cancelProcessingAssets() {
    _processingStartTime.store(0.0);
    platform::logf("~~ ~~~cancelled count %lu", static_cast<unsigned long>(videoResizerCount()));
    _cancelVideoJobs();
}

std::string VRProcessor::_filenameOfAsset(const VRAsset& asset) const {
    const std::string stem =
        platform::FileManager::stringByDeletingPathExtension(asset.originalFilename());
    return VRHelper::originaFilenameForCurrentSettings(stem, true);
}

void VRProcessor::_updateMetadata(std::optional<platform::PlistDictionary>& metadata,
                                  std::uint64_t formatType,
                                  const std::optional<platform::PlistDate>& assetCreationDate,
                                  CGSize imageSize) const {
    VRUpdatePhotoMetadata(metadata, formatType, assetCreationDate, imageSize,
                          VRPhotoMetadataSettings::current(), platform::PlistDate::now());
}

void VRProcessor::processAsset(const VRAssetRef& asset, const VXTemplateRef& tpl,
                               const VRAdjustAssetStateRef& adjustState, CGSize size,
                               ProgressionOnMainThread progression,
                               CompletionOnMainThread completion) {
    if (!completion) return;
    auto onMain = [completion](VRAssetRef result, VRErrorRef error) {
        DispatchQueue::main().async([completion, result, error] { completion(result, error); });
    };
    auto progress = [progression](double value) {
        if (progression) DispatchQueue::main().async([progression, value] { progression(value); });
    };
    const bool pairLivePhoto = asset && tpl && VRSettings::isAutoSaveEnabled() &&
                               VRSettings::isLivePhotoEnabled() && asset->livePhoto() &&
                               tpl->formatForMediaType(asset->mediaType()).supportsLivePhoto();

    _processAsset(asset, false, tpl, adjustState, size, CGSizeZero, progress,
                  [this, asset, tpl, adjustState, pairLivePhoto, progress, onMain](
                      std::optional<std::string> url, VRFormatMediaType mediaType,
                      std::optional<CGSize> sizeValue, VRErrorRef error) {
                      if (!url || error) return onMain(nullptr, error);
                      if (!pairLivePhoto)
                          return _processingCompleteWithResource(
                              VRAssetResource::resourceWithURL(*url, mediaType), asset, onMain);
                      // A failed or cancelled video half never fails the asset: the photo goes
                      // alone.
                      _processAsset(asset, true, tpl->pairedTemplate(), adjustState, CGSizeZero,
                                    sizeValue.value_or(CGSizeZero), progress,
                                    [this, asset, url, mediaType, onMain](
                                        std::optional<std::string> videoURL, VRFormatMediaType,
                                        std::optional<CGSize>, VRErrorRef videoError) {
                                        auto resource =
                                            videoURL && !videoError
                                                ? VRAssetResource::resourceWithURL(*url, *videoURL,
                                                                                   mediaType)
                                                : VRAssetResource::resourceWithURL(*url, mediaType);
                                        _processingCompleteWithResource(resource, asset, onMain);
                                    });
                  });
}

void VRProcessor::_processAsset(const VRAssetRef& asset, bool paired, const VXTemplateRef& tpl,
                                const VRAdjustAssetStateRef& adjustState, CGSize size,
                                CGSize pairedResizeSize, ProgressionOnInternalThread progression,
                                CompletionOnInternalThread completion) {
    if (!asset || !tpl) {
        platform::log("~~ PROCESSOR: no asset or template to process");
        return completion(std::nullopt, VRFormatMediaTypeNone, std::nullopt,
                          VRError::errorWithCode(VRErrorCode::loadFailed));
    }
    VXTemplateRef copy = tpl->copy();
    const VRFormatMediaType mediaType = asset->mediaType();
    VRAdjustAssetStateRef state =
        adjustState ? adjustState : std::make_shared<VRAdjustAssetState>();

    const auto accessID = asset->startAccessing();
    CompletionOnInternalThread finish = [asset, accessID, completion = std::move(completion)](
                                            std::optional<std::string> url, VRFormatMediaType type,
                                            std::optional<CGSize> s, VRErrorRef error) {
        asset->stopAccessing(accessID);
        completion(std::move(url), type, s, std::move(error));
    };
    const double startTime = _registerProcessingStartTime();
    if (mediaType != VRFormatMediaTypeVideo && !paired)
        return _startPhotoStage(asset, copy, state, size, startTime, std::move(finish));
    _startVideoStage(asset, paired, copy, state, size, pairedResizeSize, startTime,
                     std::move(progression), std::move(finish));
}

void VRProcessor::_startPhotoStage(const VRAssetRef& asset, const VXTemplateRef& tpl,
                                   const VRAdjustAssetStateRef& adjustState, CGSize size,
                                   double startTime, CompletionOnInternalThread completion) {
    auto job = std::make_shared<VRPhotoJob>();
    job->asset = asset;
    job->tpl = tpl;
    job->adjustState = adjustState;
    job->completion = std::move(completion);
    job->host = this;
    job->settings.compression = VRSettings::photoJPEGCompression() / 100.0;
    job->size = size;
    job->hasExplicitSize = !isZero(size);
    job->startTime = startTime;
    _processingQueue->addOperationWithBlock([this, job] {
        // Read once per photo, so that a change during a batch reaches the next one.
        job->settings.defaultPhotoColor = VRSettings2::defaultPhotoColor();
        job->settings.metadata = VRPhotoMetadataSettings::current();
        job->creationDate = job->asset->creationDate();
        VRAssetManager2::defaultManager().requestImageDataAsyncForAsset(
            job->asset, _processingQueue.get(),
            [job](std::optional<std::vector<std::uint8_t>> data, std::string uti) {
                job->processImageData(std::move(data), uti);
            });
    });
}
