#include "core/VRBatchServices.h"

#include <algorithm>

#include "assets/VRAssetManager2.h"
#include "assets/VRURLAsset.h"
#include "core/VRLaunchManager.h"
#include "core/VRProcessor.h"
#include "core/VXHelperRate.h"
#include "platform/FileManager.h"
#include "results/ResultManager.h"
#include "storage/VRSettings.h"

namespace {

class MainProcessorAdapter final : public VRBatchProcessor {
  public:
    void processAsset(const VRAssetRef& asset, const VXTemplateRef& tpl,
                      const VRAdjustAssetStateRef& adjustState, CGSize size,
                      Progression progression, Completion completion) override {
        VRProcessor::mainProcessor().processAsset(asset, tpl, adjustState, size,
                                                  std::move(progression), std::move(completion));
    }
    void cancelProcessingAssets() override {
        VRProcessor::mainProcessor().cancelProcessingAssets();
    }
};

// A file asset whose file is gone can't be processed any more; other kinds are kept and fail
// with their own load error when they are gone.
bool assetStillExists(const VRAsset& asset) {
    auto urlAsset = std::dynamic_pointer_cast<VRURLAsset>(asset.object());
    return !urlAsset || platform::FileManager::fileExistsAtPath(urlAsset->url());
}

}  // namespace

std::shared_ptr<VRBatchProcessor> VRBatchProcessor::mainProcessor() {
    return std::make_shared<MainProcessorAdapter>();
}

VRBatchServices VRBatchServices::standard() {
    VRBatchServices services;
    services.processor = VRBatchProcessor::mainProcessor();
    services.beginAutoSaveBatch = [] {
        VRAssetManager2::defaultManager().setAutoSaveAlbumName("");
    };
    services.storedResults = [] { return ResultManager::shared().assets(); };
    services.removeStoredResults = [](const std::set<std::size_t>& indexes) {
        ResultManager::shared().removeAssetsAt(indexes);
    };
    services.reloadAssets = [](const std::vector<VRAssetRef>& assets) {
        // Library assets are fetched anew (a deleted one drops out, a changed one comes back
        // renewed); the library is only opened when the batch holds some.
        std::vector<VRAssetRef> reloaded = assets;
        const bool fromLibrary = std::any_of(assets.begin(), assets.end(), [](const auto& a) {
            return a && a->type() == VRAssetIdentifierTypeLibrary;
        });
        if (fromLibrary) reloaded = VRAssetManager2::defaultManager().reloadAssets(assets).assets;
        std::vector<VRAssetRef> kept;
        for (const VRAssetRef& asset : reloaded) {
            if (asset && assetStillExists(*asset)) kept.push_back(asset);
        }
        return kept;
    };
    services.syncUnsavedAssets = [](const std::vector<VRAssetRef>& assets) {
        VRAssetManager2::defaultManager().syncUnsavedAssets(assets);
    };
    services.setRecentAssetsIdentifiers = [](const std::vector<std::string>& identifiers) {
        VRSettings::setRecentAssetsIdentifiers(identifiers);
        // Written at once: each unsaved edit keeps its whole list until the next write, which
        // in a long batch would grow with the square of the results.
        VRSettings::save();
    };
    services.isNotifyExceedingMaxSizeEnabled = [] {
        return VRSettings::isNotifyExceedingMaxSizeEnabled();
    };
    services.incrementRateInfoProcessed = [] { VXHelper::incrementRateInfoProcessed(); };
    services.checkAndCommitRateInfo = [] { return VXHelper::checkAndCommitRateInfo(); };
    services.updateReteInfoWithError = [] { VXHelper::updateReteInfoWithError(); };
    services.tutorialState = [] { return VRLaunchManager::defaultManager().tutorialState(); };
    services.tutorialStep = [] { return VRLaunchManager::defaultManager().tutorialStep(); };
    services.setTutorialStep = [](std::int64_t step) {
        VRLaunchManager::defaultManager().setTutorialStep(step);
    };
    return services;
}
