// A batch run under test: a processor whose every asset completes when and how the test says,
// and services and events that record what the run did.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "assets/VRURLAsset.h"
#include "core/VRResultController.h"
#include "model/VXHelperSize.h"

namespace batch_support {

inline VRAssetRef urlAsset(const std::string& path) {
    return VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(path));
}

inline VRErrorRef limitError(CGSize exceeding, const std::vector<CGSize>& corrections) {
    platform::PlistArray sizes(corrections.size());
    std::transform(corrections.begin(), corrections.end(), sizes.begin(), [](CGSize size) {
        return platform::PlistValue(VXHelper::sizeArrayWithSize(size));
    });
    return VRError::errorWithCode(
        VRErrorCode::sizeLimitExceeded,
        {{VRErrorUserInfoExceedingSizeKey, VXHelper::sizeArrayWithSize(exceeding)},
         {VRErrorUserInfoCorrectingSizesKey, sizes}});
}

class FakeProcessor final : public VRBatchProcessor {
  public:
    struct Call {
        VRAssetRef asset;
        CGSize size;
        Progression progression;
        Completion completion;
    };

    void processAsset(const VRAssetRef& asset, const VXTemplateRef&, const VRAdjustAssetStateRef&,
                      CGSize size, Progression progression, Completion completion) override {
        calls.push_back({asset, size, std::move(progression), std::move(completion)});
    }
    void cancelProcessingAssets() override { ++cancels; }

    // Completes call `index` with a result named after its asset ("<id>-result").
    void succeed(std::size_t index) {
        ASSERT_LT(index, calls.size());
        calls[index].completion(urlAsset(calls[index].asset->objectIdentifier() + "-result"),
                                nullptr);
    }
    void fail(std::size_t index, VRErrorRef error) {
        ASSERT_LT(index, calls.size());
        calls[index].completion(nullptr, std::move(error));
    }
    void progress(std::size_t index, double value) {
        ASSERT_LT(index, calls.size());
        calls[index].progression(value);
    }

    std::vector<Call> calls;
    int cancels = 0;
};

struct BatchFixture {
    explicit BatchFixture(std::vector<VRAssetRef> assets) : pending(std::move(assets)) {}

    VRBatchServices services() {
        VRBatchServices s;
        s.processor = processor;
        s.storedResults = [this] { return stored; };
        s.removeStoredResults = [this](const std::set<std::size_t>& indexes) {
            removedStored.insert(indexes.begin(), indexes.end());
        };
        s.reloadAssets = [this](const std::vector<VRAssetRef>& assets) {
            std::vector<VRAssetRef> kept;
            for (const VRAssetRef& a : assets) {
                if (!deleted.count(a->objectIdentifier())) {
                    kept.push_back(a);
                }
            }
            return kept;
        };
        s.syncUnsavedAssets = [](const std::vector<VRAssetRef>&) {};
        s.setRecentAssetsIdentifiers = [this](const std::vector<std::string>& ids) {
            recent = ids;
        };
        s.isNotifyExceedingMaxSizeEnabled = [this] { return notify; };
        s.incrementRateInfoProcessed = [this] { ++rateProcessed; };
        s.checkAndCommitRateInfo = [] { return false; };
        s.updateReteInfoWithError = [this] { ++rateErrors; };
        return s;
    }

    VRResultControllerEvents events() {
        VRResultControllerEvents e;
        e.progress = [this](std::size_t index, double value) {
            progress.push_back({index, value});
        };
        e.committed = [this](std::size_t index, const VRAssetRef&) { committed.push_back(index); };
        e.buttonState = [this](VRProcessingState, const std::string& title) {
            buttonTitles.push_back(title);
        };
        e.alert = [this](const VRBatchAlert& alert) { alerts.push_back(alert); };
        e.emailError = [this](const std::string& message,
                              const std::optional<platform::PlistDictionary>& info) {
            emails.push_back({message, info});
        };
        return e;
    }

    void start() {
        controller =
            std::make_unique<VRResultController>(pending, nullptr, nullptr, events(), services());
        controller->viewDidAppear();
    }

    std::vector<VRAssetRef> pending;
    std::vector<VRAssetRef> stored;
    std::set<std::string> deleted;
    bool notify = true;
    std::shared_ptr<FakeProcessor> processor = std::make_shared<FakeProcessor>();

    std::set<std::size_t> removedStored;
    std::vector<std::string> recent;
    int rateProcessed = 0;
    int rateErrors = 0;
    std::vector<std::pair<std::size_t, double>> progress;
    std::vector<std::size_t> committed;
    std::vector<std::string> buttonTitles;
    std::vector<VRBatchAlert> alerts;
    std::vector<std::pair<std::string, std::optional<platform::PlistDictionary>>> emails;
    std::unique_ptr<VRResultController> controller;
};

}  // namespace batch_support
