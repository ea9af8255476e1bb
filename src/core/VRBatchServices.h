// What a batch run needs from outside itself: the processor that turns one asset into a result,
// the stored results it lists first, the checks on pending assets after a pause, the settings
// and the rate counters. The defaults are the process's own objects; tests hand in their own.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "assets/VRAsset.h"
#include "core/VRError.h"
#include "model/VRAdjustAssetState.h"
#include "platform/Geometry.h"
#include "platform/PlistValue.h"
#include "templates/VXTemplate.h"

// The two calls of the processor a run makes; both on the main thread, and both callbacks of
// processAsset arrive on the main queue. A cancelled asset completes with neither result nor
// error, or not at all.
class VRBatchProcessor {
  public:
    using Progression = std::function<void(double progress)>;
    using Completion = std::function<void(VRAssetRef result, VRErrorRef error)>;

    virtual ~VRBatchProcessor() = default;
    virtual void processAsset(const VRAssetRef& asset, const VXTemplateRef& tpl,
                              const VRAdjustAssetStateRef& adjustState, CGSize size,
                              Progression progression, Completion completion) = 0;
    virtual void cancelProcessingAssets() = 0;

    // VRProcessor::mainProcessor().
    static std::shared_ptr<VRBatchProcessor> mainProcessor();
};

struct VRBatchServices {
    std::shared_ptr<VRBatchProcessor> processor;
    // When a run is made: the results it saves to the library go into one new album, so the
    // album kept from an earlier run is forgotten (autoSaveAlbumName cleared).
    std::function<void()> beginAutoSaveBatch;
    // `assets` of the result store: the stored results, oldest first.
    std::function<std::vector<VRAssetRef>()> storedResults;
    // removeAssetsAt: the stored results at those positions leave the store.
    std::function<void(const std::set<std::size_t>&)> removeStoredResults;
    // reloadAssets:modified: the assets that still exist, in order.
    std::function<std::vector<VRAssetRef>(const std::vector<VRAssetRef>&)> reloadAssets;
    // syncUnsavedAssets: after a clear, with every asset still listed.
    std::function<void(const std::vector<VRAssetRef>&)> syncUnsavedAssets;
    // setRecentAssetsIdentifiers: then save.
    std::function<void(const std::vector<std::string>&)> setRecentAssetsIdentifiers;
    std::function<bool()> isNotifyExceedingMaxSizeEnabled;
    std::function<void()> incrementRateInfoProcessed;
    std::function<bool()> checkAndCommitRateInfo;
    std::function<void()> updateReteInfoWithError;
    // The tutorial's state (1 while it runs) and step, of the launch manager; absent reads 0.
    std::function<std::int64_t()> tutorialState;
    std::function<std::int64_t()> tutorialStep;
    std::function<void(std::int64_t step)> setTutorialStep;

    // The process's processor, result store, settings, rate counters and launch manager. Pending
    // assets are kept on reload when their source can still be reached (a file that is gone drops
    // out).
    static VRBatchServices standard();
};
