#include "core/VXHelperRate.h"

#include <gtest/gtest.h>

#include "storage/VXHelperState.h"
#include "support/TestHome.h"

namespace {

std::int64_t counter(int index) {
    return VXHelper::rateInfo()["ratekey" + std::to_string(index)].integerValue();
}

}  // namespace

// The review prompt comes after 10 batches and 20 results, then again only after 3 fresh
// batches and 5 fresh results without a failure; a completed prompt freezes the counters.
TEST(VXHelperRate, PromptNeedsFreshBatchesAndResultsWithoutFailure) {
    testing_support::TestHome home;
    for (int i = 0; i < 10; ++i) {
        VXHelper::incrementRateInfoStarted();
    }
    for (int i = 0; i < 19; ++i) {
        VXHelper::incrementRateInfoProcessed();
    }
    EXPECT_FALSE(VXHelper::checkAndCommitRateInfo());
    VXHelper::incrementRateInfoProcessed();
    EXPECT_TRUE(VXHelper::checkAndCommitRateInfo());
    EXPECT_EQ(counter(0), 10);
    EXPECT_EQ(counter(1), 0);
    EXPECT_EQ(counter(2), 20);
    EXPECT_EQ(counter(3), 0);
    EXPECT_FALSE(VXHelper::checkAndCommitRateInfo());

    struct Step {
        int batches;
        int results;
        bool failure;
        bool prompt;
    };
    const Step steps[] = {
        {3, 4, false, false},  // one result short
        {0, 1, false, true},
        {3, 5, true, false},  // a failure starts the fresh counts again
        {3, 5, false, true},
    };
    for (const Step& s : steps) {
        for (int i = 0; i < s.batches; ++i) {
            VXHelper::incrementRateInfoStarted();
        }
        for (int i = 0; i < s.results; ++i) {
            VXHelper::incrementRateInfoProcessed();
        }
        if (s.failure) {
            VXHelper::updateReteInfoWithError();
        }
        EXPECT_EQ(VXHelper::checkAndCommitRateInfo(), s.prompt);
    }

    VXHelper::setRateComplete(true);
    VXHelper::incrementRateInfoStarted();
    VXHelper::updateReteInfoWithError();
    EXPECT_EQ(counter(0), 19);
    EXPECT_EQ(counter(1), 0);
    EXPECT_EQ(counter(3), 0);
}
