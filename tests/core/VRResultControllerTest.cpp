#include "core/VRResultController.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "assets/VRURLAsset.h"
#include "core/BatchRunSupport.h"
#include "core/ErrorMessages.h"
#include "model/VXHelperSize.h"
#include "platform/Dispatch.h"
#include "platform/Environment.h"
#include "platform/UserDefaults.h"
#include "storage/VRSettings.h"
#include "support/TestHome.h"

using batch_support::BatchFixture;
using batch_support::limitError;
using batch_support::urlAsset;

namespace {

constexpr CGSize kZero{0, 0};
constexpr CGSize kCorrection{8000, 4000};

}  // namespace

// The size-limit question: asked once per run, remembered after "Proceed", never asked with
// the setting off, and asked again after "Cancel" and "Resume".
TEST(VRResultControllerLimit, ProceedIsRememberedForTheRestOfTheRun) {
    struct Case {
        bool notify;
        std::size_t alerts;
    };
    for (Case c : {Case{true, 1}, Case{false, 0}}) {
        SCOPED_TRACE(c.notify);
        BatchFixture f({urlAsset("a.jpg"), urlAsset("b.jpg"), urlAsset("c.jpg")});
        f.notify = c.notify;
        f.start();
        f.processor->succeed(0);
        ASSERT_EQ(f.processor->calls.size(), 2u);
        f.processor->fail(1, limitError({12000, 6000}, {kCorrection, {4000, 2000}}));
        if (c.notify) {
            ASSERT_EQ(f.alerts.size(), 1u);
            EXPECT_EQ(f.alerts[0].title, "Exceeding max size");
            EXPECT_EQ(f.alerts[0].message, VRExceedingMaxSizeMessage({12000, 6000}, kCorrection));
            EXPECT_EQ(f.alerts[0].buttons, (std::vector<std::string>{"Cancel", "Proceed"}));
            EXPECT_EQ(f.controller->processingState(), VRProcessingState::resume);
            f.alerts[0].answer(1);
            platform::MainRunLoop::drain();
        }
        // The same asset again, with the first correction.
        ASSERT_EQ(f.processor->calls.size(), 3u);
        EXPECT_EQ(f.processor->calls[2].asset->objectIdentifier(),
                  f.processor->calls[1].asset->objectIdentifier());
        EXPECT_EQ(f.processor->calls[2].size, kCorrection);
        f.processor->succeed(2);
        // The third exceeds too: it runs with its correction and nobody is asked.
        ASSERT_EQ(f.processor->calls.size(), 4u);
        EXPECT_EQ(f.processor->calls[3].size, kZero);
        f.processor->fail(3, limitError({9000, 9000}, {{5000, 5000}}));
        ASSERT_EQ(f.processor->calls.size(), 5u);
        EXPECT_EQ(f.processor->calls[4].size, (CGSize{5000, 5000}));
        f.processor->succeed(4);
        EXPECT_EQ(f.alerts.size(), c.alerts);
        EXPECT_EQ(f.controller->processingState(), VRProcessingState::results);
        EXPECT_EQ(f.controller->pickerView().processingIndex(), VRAssetPickerView::NSNotFound);
        EXPECT_EQ(f.recent.size(), 3u);
    }
}

TEST(VRResultControllerLimit, CancelLeavesResumeAndResumeAsksAgain) {
    BatchFixture f({urlAsset("a.jpg"), urlAsset("b.jpg")});
    f.start();
    f.processor->fail(0, limitError({12000, 6000}, {kCorrection}));
    ASSERT_EQ(f.alerts.size(), 1u);
    f.alerts[0].answer(0);
    platform::MainRunLoop::drain();
    EXPECT_EQ(f.controller->processingState(), VRProcessingState::resume);
    EXPECT_EQ(f.buttonTitles.back(), "Resume");
    EXPECT_EQ(f.processor->calls.size(), 1u);
    EXPECT_FALSE(f.controller->useReducedSizeWhenExceedMaxSize());

    f.controller->touchProcessingButton();
    ASSERT_EQ(f.processor->calls.size(), 2u);
    EXPECT_EQ(f.processor->calls[1].asset->objectIdentifier(), "a.jpg");
    EXPECT_EQ(f.processor->calls[1].size, kZero);
    f.processor->fail(1, limitError({12000, 6000}, {kCorrection}));
    EXPECT_EQ(f.alerts.size(), 2u);
    // A late "Proceed" on the first question must not start a second asset in flight.
    f.controller->touchProcessingButton();
    f.controller->touchProcessingButton();
    ASSERT_EQ(f.processor->calls.size(), 3u);
    f.alerts[0].answer(1);
    platform::MainRunLoop::drain();
    EXPECT_EQ(f.processor->calls.size(), 3u);
}

// Errors stop the run at the failing asset with its words; "Resume" retries that asset.
TEST(VRResultControllerErrors, WordsByCodeAndResumeRetriesTheSameAsset) {
    struct Case {
        std::int64_t code;
        std::string title;
        std::string messageStart;
        bool details;
    };
    const Case cases[] = {
        {1, "Error", "Unable to load media", false},
        {2, "Saving problem", "Unable to save media", false},
        {3, "Error", "Unable to unwarp media", true},
        {4, "Error", "Unable to unwarp media", true},
        {17, "Not enough disk space", "There is not enough available space", true},
        {12, "Error", "An unexpected error has occurred.", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.code);
        BatchFixture f({urlAsset("a.mov"), urlAsset("b.mov")});
        f.start();
        f.processor->fail(
            0, VRError::errorWithCode(static_cast<VRErrorCode>(c.code), {{"Operation", "Encode"}}));
        ASSERT_EQ(f.alerts.size(), 1u);
        const VRBatchAlert& alert = f.alerts[0];
        EXPECT_EQ(alert.title, c.title);
        EXPECT_EQ(alert.message.rfind(c.messageStart, 0), 0u) << alert.message;
        EXPECT_TRUE(alert.message.ends_with(". If problem persists, please, contact us."));
        EXPECT_EQ(alert.buttons, (std::vector<std::string>{"Contact us", "Ok"}));
        EXPECT_EQ(f.rateErrors, 1);
        EXPECT_EQ(f.controller->processingState(), VRProcessingState::resume);

        alert.answer(0);
        ASSERT_EQ(f.emails.size(), 1u);
        EXPECT_FALSE(f.emails[0].first.ends_with("contact us."));
        EXPECT_EQ(f.emails[0].second.has_value(), c.details);

        f.controller->touchProcessingButton();
        ASSERT_EQ(f.processor->calls.size(), 2u);
        EXPECT_EQ(f.processor->calls[1].asset->objectIdentifier(), "a.mov");
    }
}

// A pause by the user holds the asset at the cursor; results and the rate counters move only
// for assets that finish.
TEST(VRResultControllerRun, PauseCancelsInFlightAndResumeGoesOn) {
    BatchFixture f({urlAsset("a.jpg"), urlAsset("b.jpg")});
    f.start();
    f.controller->touchProcessingButton();
    EXPECT_EQ(f.processor->cancels, 1);
    EXPECT_EQ(f.controller->processingState(), VRProcessingState::resume);
    EXPECT_EQ(f.controller->pickerView().processingIndex(), 0u);
    EXPECT_EQ(f.processor->calls.size(), 1u);

    f.controller->touchProcessingButton();
    ASSERT_EQ(f.processor->calls.size(), 2u);
    EXPECT_EQ(f.processor->calls[1].asset->objectIdentifier(), "a.jpg");
    f.processor->progress(1, 0.5);
    EXPECT_EQ(f.progress, (std::vector<std::pair<std::size_t, double>>{{0, 0.5}}));
    // The cancelled pass ends as cancelled passes mostly do: with nothing.
    f.processor->calls[0].completion(nullptr, nullptr);
    f.processor->succeed(1);
    f.processor->succeed(2);
    EXPECT_EQ(f.committed, (std::vector<std::size_t>{0, 1}));
    EXPECT_EQ(f.rateProcessed, 2);
    EXPECT_EQ(f.controller->reloadCount(), 2);
    EXPECT_EQ(f.controller->processingState(), VRProcessingState::results);
}

// A pass that had finished when the pause came delivers its result late; it was stored, so
// the asset counts as done exactly once: it is not made again, whether the result comes while
// paused, after a resume has started the asset again, or after a return from the background
// has already listed it from the store.
TEST(VRResultControllerRun, ALateResultOfACancelledPassCountsAsDoneOnce) {
    enum class Before { userPause, userPauseAndResume, systemPauseStoredAndBack };
    struct Case {
        const char* what;
        Before before;
        VRProcessingState stateAfterLateResult;
        int cancels;  // by the end of the run
    };
    const Case cases[] = {
        {"paused", Before::userPause, VRProcessingState::resume, 1},
        {"resumed", Before::userPauseAndResume, VRProcessingState::processing, 2},
        {"background", Before::systemPauseStoredAndBack, VRProcessingState::processing, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        BatchFixture f({urlAsset("a.jpg"), urlAsset("b.jpg")});
        f.start();
        if (c.before == Before::systemPauseStoredAndBack) {
            f.controller->_didEnterBackground();
            f.stored = {urlAsset("a.jpg-result")};
            f.controller->_willEnterForeground();
        } else {
            f.controller->touchProcessingButton();
            if (c.before == Before::userPauseAndResume) {
                f.controller->touchProcessingButton();
            }
        }
        f.processor->succeed(0);
        EXPECT_EQ(f.controller->processingState(), c.stateAfterLateResult);
        EXPECT_EQ(f.controller->pickerView().processingIndex(), 1u);
        if (c.stateAfterLateResult == VRProcessingState::resume) {
            f.controller->touchProcessingButton();
        }
        // Whatever the restarted pass of a.jpg still delivers is not a second result.
        if (f.processor->calls.size() == 3) {
            f.processor->succeed(1);
        }
        ASSERT_FALSE(f.processor->calls.empty());
        EXPECT_EQ(f.processor->calls.back().asset->objectIdentifier(), "b.jpg");
        f.processor->succeed(f.processor->calls.size() - 1);

        std::vector<std::string> names;
        for (const VRAssetRef& asset : f.controller->pickerView().assetList()) {
            names.push_back(asset->objectIdentifier());
        }
        EXPECT_EQ(names, (std::vector<std::string>{"a.jpg-result", "b.jpg-result"}));
        EXPECT_EQ(f.controller->processingState(), VRProcessingState::results);
        EXPECT_EQ(f.processor->cancels, c.cancels);
    }
}

TEST(VRResultControllerRun, EmptyBatchWithoutStoredResultsFinishesAtOnce) {
    BatchFixture f({});
    f.start();
    EXPECT_TRUE(f.controller->isEmptyResults());
    EXPECT_TRUE(f.processor->calls.empty());
    EXPECT_EQ(f.controller->processingState(), VRProcessingState::results);
    EXPECT_EQ(f.buttonTitles, (std::vector<std::string>{"Results"}));
}

// Clearing: the asset in work goes and the run moves on; stored results go from the store
// and the asset in work finishes in its place.
TEST(VRResultControllerClear, ClearingTheRunningAssetContinuesWithTheNext) {
    BatchFixture f({urlAsset("a.jpg"), urlAsset("b.jpg"), urlAsset("c.jpg")});
    f.start();
    f.processor->succeed(0);
    f.controller->setSelectedAssets({f.processor->calls[1].asset});
    f.controller->_didTapDeleteButton();
    EXPECT_EQ(f.processor->cancels, 1);
    ASSERT_EQ(f.processor->calls.size(), 3u);
    EXPECT_EQ(f.processor->calls[2].asset->objectIdentifier(), "c.jpg");
    // The cleared asset's pass completing late must not take c's place.
    f.processor->succeed(1);
    EXPECT_EQ(f.controller->pickerView().processingIndex(), 1u);
    f.processor->succeed(2);
    const auto& list = f.controller->pickerView().assetList();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[1]->objectIdentifier(), "c.jpg-result");
    EXPECT_EQ(f.controller->processingState(), VRProcessingState::results);
    EXPECT_TRUE(f.removedStored.empty());
}

TEST(VRResultControllerClear, ClearingStoredResultsLeavesTheRunUndisturbed) {
    BatchFixture f({urlAsset("p.jpg"), urlAsset("q.jpg")});
    f.stored = {urlAsset("s0.jpg"), urlAsset("s1.jpg"), urlAsset("s2.jpg")};
    f.start();
    ASSERT_EQ(f.controller->pickerView().processingIndex(), 3u);
    f.controller->setSelectedAssets({f.stored[0], f.stored[2]});
    EXPECT_FALSE(f.controller->isShareButtonHidden());
    f.controller->_didTapDeleteButton();
    EXPECT_EQ(f.removedStored, (std::set<std::size_t>{0, 2}));
    EXPECT_EQ(f.processor->cancels, 0);
    EXPECT_EQ(f.processor->calls.size(), 1u);
    EXPECT_EQ(f.controller->processingState(), VRProcessingState::processing);
    f.processor->succeed(0);
    const auto& list = f.controller->pickerView().assetList();
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0]->objectIdentifier(), "s1.jpg");
    EXPECT_EQ(list[1]->objectIdentifier(), "p.jpg-result");
    EXPECT_EQ(list[2]->objectIdentifier(), "q.jpg");
    ASSERT_EQ(f.processor->calls.size(), 2u);
    EXPECT_EQ(f.processor->calls[1].asset->objectIdentifier(), "q.jpg");
}

// Selection with pending assets hides the share button; the title counts by media type.
TEST(VRResultControllerClear, SelectionTitleAndShareRules) {
    BatchFixture f({urlAsset("p.jpg"), urlAsset("v.mov")});
    f.stored = {urlAsset("s0.jpg"), urlAsset("s1.mov"), urlAsset("s2.jpg")};
    f.start();
    EXPECT_EQ(f.controller->selectionTitle(), "Select all items");
    struct Case {
        std::vector<VRAssetRef> selection;
        std::string title;
        bool shareHidden;
    };
    const Case cases[] = {
        {{f.stored[0]}, "1 photo selected", false},
        {{f.stored[0], f.stored[2], f.stored[1]}, "2 photos / 1 video selected", false},
        {{f.stored[1], f.processor->calls[0].asset}, "1 photo / 1 video selected", true},
        {{}, "Select all items", true},
    };
    for (const Case& c : cases) {
        f.controller->setSelectedAssets(c.selection);
        EXPECT_EQ(f.controller->selectionTitle(), c.title);
        EXPECT_EQ(f.controller->isShareButtonHidden(), c.shareHidden) << c.title;
        // Only an empty selection hides the reset button and the buttons, with the note shown.
        const auto bar = f.controller->selectionBar();
        const bool none = c.selection.empty();
        EXPECT_EQ(bar.title, c.title);
        EXPECT_EQ(bar.resetHidden, none) << c.title;
        EXPECT_EQ(bar.buttonsHidden, none) << c.title;
        EXPECT_EQ(bar.note, none ? std::optional<std::string>("No items selected") : std::nullopt)
            << c.title;
    }
    f.controller->_selectionAction();
    EXPECT_EQ(f.controller->selectionTitle(), "3 photos / 2 videos selected");
    EXPECT_FALSE(f.controller->selectionBar().buttonsHidden);
}

// Background and foreground: a run paused by the system resumes; one paused by the user stays
// paused; a return to nothing pending ends on "Results".
TEST(VRResultControllerLifecycle, UserPauseSurvivesBackgroundAndForeground) {
    BatchFixture f({urlAsset("a.jpg"), urlAsset("b.jpg")});
    f.start();
    f.controller->touchProcessingButton();
    f.controller->_didEnterBackground();
    EXPECT_TRUE(f.alerts.empty());
    EXPECT_FALSE(f.controller->backgroundAlert().has_value());
    f.controller->_willEnterForeground();
    EXPECT_EQ(f.controller->processingState(), VRProcessingState::resume);
    EXPECT_EQ(f.processor->calls.size(), 1u);
}

TEST(VRResultControllerLifecycle, SystemPauseResumesTheSameAssetWithOneAlert) {
    BatchFixture f({urlAsset("a.jpg"), urlAsset("b.jpg")});
    f.start();
    f.controller->_didEnterBackground();
    f.controller->_didEnterBackground();
    ASSERT_EQ(f.alerts.size(), 1u);
    EXPECT_EQ(f.alerts[0].title, "Processing Restrictions");
    EXPECT_EQ(f.controller->processingState(), VRProcessingState::resume);
    f.controller->_willEnterForeground();
    EXPECT_EQ(f.controller->processingState(), VRProcessingState::processing);
    ASSERT_EQ(f.processor->calls.size(), 2u);
    EXPECT_EQ(f.processor->calls[1].asset->objectIdentifier(), "a.jpg");
}

TEST(VRResultControllerLifecycle, ForegroundWithoutBackgroundLeavesTheRunAlone) {
    BatchFixture f({urlAsset("a.jpg"), urlAsset("b.jpg")});
    f.start();
    // Another process stores a result meanwhile; the asset in work must still land on its own
    // entry.
    f.stored = {urlAsset("other.jpg")};
    f.controller->_willEnterForeground();
    EXPECT_EQ(f.controller->processingState(), VRProcessingState::processing);
    f.processor->succeed(0);
    const auto& list = f.controller->pickerView().assetList();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0]->objectIdentifier(), "a.jpg-result");
    EXPECT_EQ(list[1]->objectIdentifier(), "b.jpg");
}

TEST(VRResultControllerLifecycle, PendingAssetsDeletedDuringPauseDropOut) {
    struct Case {
        bool userPaused;
        std::set<std::string> deleted;
        VRProcessingState state;
        std::size_t index;
        std::string next;  // the asset started on return, if any
    };
    const std::size_t none = VRAssetPickerView::NSNotFound;
    const Case cases[] = {
        {true, {"a.jpg", "b.jpg"}, VRProcessingState::results, none, ""},
        {false, {"a.jpg", "b.jpg"}, VRProcessingState::results, none, ""},
        {false, {"a.jpg"}, VRProcessingState::processing, 1, "b.jpg"},
        {true, {"a.jpg"}, VRProcessingState::resume, 1, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.userPaused << " " << c.deleted.size());
        BatchFixture f({urlAsset("a.jpg"), urlAsset("b.jpg")});
        f.stored = {urlAsset("s0.jpg")};
        f.start();
        if (c.userPaused) {
            f.controller->touchProcessingButton();
        }
        f.controller->_didEnterBackground();
        f.deleted = c.deleted;
        f.controller->_willEnterForeground();
        EXPECT_EQ(f.controller->processingState(), c.state);
        EXPECT_EQ(f.controller->pickerView().processingIndex(), c.index);
        EXPECT_EQ(f.controller->pickerView().assetList().size(), 3 - c.deleted.size());
        ASSERT_EQ(f.processor->calls.size(), c.next.empty() ? 1u : 2u);
        if (!c.next.empty()) {
            EXPECT_EQ(f.processor->calls[1].asset->objectIdentifier(), c.next);
        }
    }
}

// The process's own check on return: a pending file that is gone drops out.
TEST(VRBatchServices, StandardReloadDropsFilesThatAreGone) {
    testing_support::TestHome home;
    testing_support::touch(home.path("in/kept.jpg"));
    testing_support::touch(home.path("in/gone.jpg"));
    std::vector<VRAssetRef> assets = {urlAsset(home.path("in/gone.jpg")),
                                      urlAsset(home.path("in/kept.jpg"))};
    ASSERT_EQ(std::remove(home.path("in/gone.jpg").c_str()), 0);
    std::vector<VRAssetRef> kept = VRBatchServices::standard().reloadAssets(assets);
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_EQ(kept[0]->objectIdentifier(), home.path("in/kept.jpg"));
}

// Each commit's list of recent identifiers reaches the file at once: another process reads it,
// and no unsaved edits pile up over a long batch.
TEST(VRBatchServices, StandardRecentIdentifiersAreSavedAtOnce) {
    testing_support::TestHome home;
    const std::string path = platform::Environment::settingsDirectory() + "/defaults.plist";
    platform::UserDefaults store(path);
    VRSettings::setUserDefaults(&store);
    VRBatchServices::standard().setRecentAssetsIdentifiers({"/in/a.jpg", "/in/b.jpg"});
    platform::UserDefaults other(path);
    VRSettings::setUserDefaults(&other);
    EXPECT_EQ(VRSettings::recentAssetsIdentifiers(),
              (std::vector<std::string>{"/in/a.jpg", "/in/b.jpg"}));
    VRSettings::setUserDefaults(nullptr);
}
