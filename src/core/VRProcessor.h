// Turns one asset plus one template into one finished file: decides the branch (photo now, the
// video stage joins later), carries the run's identity so that a cancel or a newer run makes
// older work end silently, and hands the file on. One per process; the batch run and the
// `process` command drive it, one asset in flight.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "assets/VRAsset.h"
#include "assets/VRAssetResource.h"
#include "core/VRError.h"
#include "model/VRAdjustAssetState.h"
#include "model/VRFormat.h"
#include "model/VRFormatMediaType.h"
#include "model/VRSizeOption.h"
#include "photo/VRPhotoJob.h"
#include "platform/AVAsset.h"
#include "platform/Geometry.h"
#include "platform/OperationQueue.h"
#include "platform/PlistValue.h"
#include "templates/VXTemplate.h"
#include "video/VRVideoJob.h"
#include "video/VRVideoResizeStatus.h"

class VRVideoMixer;

class VRProcessor final : public VRPhotoStageHost {
  public:
    // Main-thread callbacks of processAsset. The completion gets the result asset or the
    // error; a cancelled or superseded run completes with neither.
    using ProgressionOnMainThread = std::function<void(double progress)>;
    using CompletionOnMainThread = std::function<void(VRAssetRef result, VRErrorRef error)>;
    // Between the stages, on the thread of the stage that finished: the written file, the media
    // type (1 photo, 2 video), the output size, the error. All empty for a stale run.
    using ProgressionOnInternalThread = std::function<void(double progress)>;
    using CompletionOnInternalThread = VRStageCompletion;

    static VRProcessor& mainProcessor();
    VRProcessor(const VRProcessor&) = delete;
    VRProcessor& operator=(const VRProcessor&) = delete;

    // Serial: every stage start, and the photo stage's decoding, drawing and writing.
    platform::OperationQueue& processingQueue() { return *_processingQueue; }
    // Serial too, made at first use.
    platform::OperationQueue& thumbnailQueue();

    // processAsset:withTemplate:adjustState:size:progressionOnMainThread:completionOnMainThread:.
    // `size` (0, 0) lets the template decide; any other size is used as it is, without the
    // limit check (the retry of a code-5 failure passes the offered correction). Without a
    // completion nothing happens. Both callbacks run on the main queue.
    void processAsset(const VRAssetRef& asset, const VXTemplateRef& tpl,
                      const VRAdjustAssetStateRef& adjustState, CGSize size,
                      ProgressionOnMainThread progression, CompletionOnMainThread completion);

    // The worker of one pass; `paired` only for the video half of a Live Photo. The template
    // is copied, an absent adjust state becomes an empty one, and the asset's startAccessing /
    // stopAccessing bracket the pass whichever way it ends.
    void _processAsset(const VRAssetRef& asset, bool paired, const VXTemplateRef& tpl,
                       const VRAdjustAssetStateRef& adjustState, CGSize size,
                       CGSize pairedResizeSize, ProgressionOnInternalThread progression,
                       CompletionOnInternalThread completion);

    // The run's identity: a new value for every pass (strictly greater than the last one), 0
    // after a cancel. A pass whose value differs from the stored one is stale.
    double _registerProcessingStartTime();
    bool _isProcessingStartTimeInvalid(double startTime) const override;
    // Makes the running pass stale: it ends at its next checkpoint with neither file nor error.
    // Operations already queued are not removed; each meets its own check.
    void cancelProcessingAssets();

    // The result stem: the asset's original name without extension, through
    // VRHelper::originaFilenameForCurrentSettings with incrementing.
    std::string _filenameOfAsset(const VRAsset& asset) const override;

    // _updateMetadata:formatType:assetCreationDate:imageSize: with the stored settings and the
    // current time (see VRUpdatePhotoMetadata).
    void _updateMetadata(std::optional<platform::PlistDictionary>& metadata,
                         std::uint64_t formatType,
                         const std::optional<platform::PlistDate>& assetCreationDate,
                         CGSize imageSize) const;

    // The saving tail: the written file (a Live Photo's still with its movie) becomes the
    // result. With auto-save it goes into the library as one item, the output files go, the
    // result store keeps a reference to the item, and the item is the result; when the library
    // refuses, the file is stored locally and the result is flagged 2 ("Stored locally").
    // Without auto-save it is stored locally. A local result has no pair: the movie goes. A
    // store that refuses, or no file, gives code 2 and removes the output. The completion runs
    // on the main queue.
    void _processingCompleteWithResource(const VRAssetResource& resource,
                                         const VRAssetRef& originalAsset,
                                         const CompletionOnMainThread& completionOnInternalThread);
    // The library's item (null when it can't be fetched back) and whether the save succeeded;
    // on the saving queue, or at once on the calling thread when there is nothing to save.
    using LibrarySaveCompletion = std::function<void(VRAssetRef asset, bool success)>;
    void _saveItemToPhotoLibraryWithResource(const VRAssetResource& resource,
                                             const VRAssetRef& originalAsset,
                                             LibrarySaveCompletion completionOnInternalThread);
    // The file into the result store as a local result (on the main queue, where the store is
    // used), the paired movie removed first. The completion runs on the main queue.
    static void _processingSaveLocallyWithResource(
        const VRAssetResource& resource, CompletionOnMainThread completionOnInternalThread);
    // Remove the output file, or its paired movie, when there is one; failures are ignored.
    static void _clearMainURLForResource(const VRAssetResource& resource);
    static void _clearPairedURLForResource(const VRAssetResource& resource);

    // _videoAssetErrorDetails:targetFormat:options:bitrate:size:displacement:extra:: `extra`
    // with the source movie's format, tracks and their properties and the job's target, as
    // text for a human reader (the report mail's attachment).
    static platform::PlistDictionary _videoAssetErrorDetails(
        const AVAssetRef& asset, const VRFormat& targetFormat, const VRSizeOptions& options,
        std::int64_t bitrate, CGSize size, CGPoint displacement,
        const platform::PlistDictionary& extra);
    // The error a video job's ending becomes: failed gives code 17 when the job's error is a
    // full disk (AVFoundationErrorDomain -11807, at any depth of a VRError) and code 3
    // otherwise, both with `details`; trackNotFound gives code 1; anything else none.
    static VRErrorRef _videoJobError(VRVideoResizeStatus state, const platform::ErrorRef& error,
                                     const std::function<platform::PlistDictionary()>& details);
    // The running video jobs, under their output names.
    std::size_t videoResizerCount() const;

  private:
    VRProcessor();
    // The video stage once the movie is there (or not).
    void _videoStageWithAVAsset(const AVAssetRef& movie, const VRAssetRef& asset, bool paired,
                                const VXTemplateRef& tpl, const VRAdjustAssetStateRef& adjustState,
                                CGSize size, CGSize pairedResizeSize, double startTime,
                                ProgressionOnInternalThread progression,
                                CompletionOnInternalThread completion);
    void _cancelVideoJobs();
    void _startPhotoStage(const VRAssetRef& asset, const VXTemplateRef& tpl,
                          const VRAdjustAssetStateRef& adjustState, CGSize size, double startTime,
                          CompletionOnInternalThread completion);
    void _startVideoStage(const VRAssetRef& asset, bool paired, const VXTemplateRef& tpl,
                          const VRAdjustAssetStateRef& adjustState, CGSize size,
                          CGSize pairedResizeSize, double startTime,
                          ProgressionOnInternalThread progression,
                          CompletionOnInternalThread completion);

    std::unique_ptr<platform::OperationQueue> _processingQueue;
    std::unique_ptr<platform::OperationQueue> _thumbnailQueue;
    std::once_flag _thumbnailQueueMade;
    std::atomic<double> _processingStartTime{0.0};
    // videoResizers (opaque jobs of LegacyManager) and videoMixers, which no flow fills.
    mutable std::mutex _videoJobsMutex;
    std::map<std::string, VRVideoJob> _videoResizers;
    std::map<std::string, std::shared_ptr<VRVideoMixer>> _videoMixers;
};
