#include <gtest/gtest.h>

#include <chrono>

#include "assets/VRURLAsset.h"
#include "core/ErrorMessages.h"
#include "core/VRProcessor.h"
#include "platform/Dispatch.h"
#include "storage/VRSettings.h"
#include "support/TestHome.h"

namespace {

TEST(VRProcessor, EachRegistrationMakesEveryEarlierRunStaleAndCancelMakesAllStale) {
    auto& processor = VRProcessor::mainProcessor();
    const double first = processor._registerProcessingStartTime();
    EXPECT_FALSE(processor._isProcessingStartTimeInvalid(first));
    // Registrations in quick succession still differ.
    const double second = processor._registerProcessingStartTime();
    EXPECT_GT(second, first);
    EXPECT_TRUE(processor._isProcessingStartTimeInvalid(first));
    EXPECT_FALSE(processor._isProcessingStartTimeInvalid(second));
    processor.cancelProcessingAssets();
    EXPECT_TRUE(processor._isProcessingStartTimeInvalid(second));
    EXPECT_GT(processor._registerProcessingStartTime(), second);
}

TEST(VRProcessor, ResultStemFollowsTheSuffixSetting) {
    testing_support::TestHome home;
    struct Case {
        const char* path;
        bool suffix;
        const char* stem;
    };
    const std::vector<Case> cases = {
        {"/p/IMG_1234.JPG", true, "IMG_1234-uwrp"},
        {"/p/IMG_1234-uwrp-2.png", true, "IMG_1234-uwrp-3"},
        {"/p/IMG_1234-uwrp.jpg", false, "IMG_1234"},
        {"/p/archive.tar.gz", true, "archive.tar-uwrp"},
    };
    for (const auto& c : cases) {
        VRSettings::setOriginalFilenameSuffixEnabled(c.suffix);
        auto asset = VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(c.path));
        EXPECT_EQ(VRProcessor::mainProcessor()._filenameOfAsset(*asset), c.stem) << c.path;
    }
}

TEST(VRProcessor, AMissingMovieEndsWithCode1AndNoCompletionMeansNoWork) {
    testing_support::TestHome home;
    auto& processor = VRProcessor::mainProcessor();
    auto movie = VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(home.path("clip.mov")));
    auto tpl = VXTemplate::create();
    const double before = processor._registerProcessingStartTime();
    processor.processAsset(movie, tpl, nullptr, CGSizeZero, nullptr, nullptr);
    EXPECT_FALSE(processor._isProcessingStartTimeInvalid(before));

    bool finished = false;
    VRAssetRef result;
    VRErrorRef error;
    processor.processAsset(movie, tpl, nullptr, CGSizeZero, nullptr,
                           [&](VRAssetRef r, VRErrorRef e) {
                               EXPECT_TRUE(platform::MainRunLoop::isMainThread());
                               finished = true;
                               result = r;
                               error = e;
                           });
    platform::MainRunLoop::runUntil([&] { return finished; }, std::chrono::seconds(20));
    ASSERT_TRUE(finished);
    EXPECT_FALSE(result);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), 1);
    EXPECT_TRUE(error->userInfo().empty());
}

TEST(ErrorMessages, WordsByCode) {
    struct Case {
        std::int64_t code;
        const char* title;
        const char* start;
    };
    const std::vector<Case> cases = {
        {1, "", "Unable to load media for processing."},
        {2, "Saving problem", "Unable to save media to photo library."},
        {3, "", "Unable to unwarp media."},
        {4, "", "Unable to unwarp media."},
        {17, "Not enough disk space", "There is not enough available space"},
        {9, "", "An unexpected error has occurred."},
    };
    for (const auto& c : cases) {
        VRErrorMessage m = VRErrorMessageForCode(c.code);
        EXPECT_EQ(m.title.value_or(""), c.title) << c.code;
        EXPECT_EQ(m.message.rfind(c.start, 0), 0u) << c.code;
    }
    EXPECT_EQ(VRExceedingMaxSizeMessage({8193, 100}, {8192, 100}),
              "Target size 8193 x 100 px exceeds\nmaximum supported size.\nWould you like to "
              "proceed using\nsmaller size 8192 x 100 px?");
}

}  // namespace
