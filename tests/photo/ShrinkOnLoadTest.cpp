#include "photo/ShrinkOnLoad.h"

#include <gtest/gtest.h>

#include <cmath>

TEST(ShrinkOnLoad, TakesTheLargestReductionThatLeavesTheFilterTwiceOnBothAxes) {
    struct Case {
        const char* what;
        CGSize stored, drawn;
        std::uint32_t expected;
    } cases[] = {
        {"enlargement (uw-133 on 12 MP)", {4032, 3024}, {5363, 3024}, 1},
        {"24 MP to a 1080 square: 1.85x left after 1/2", {6000, 4000}, {1620, 1080}, 1},
        {"24 MP to 720 lines: 2.78x left after 1/2", {6000, 4000}, {1080, 720}, 2},
        {"exactly 2x left after 1/2", {4000, 2000}, {1000, 500}, 2},
        {"just under 2x after 1/4", {4000, 2000}, {501, 250}, 2},
        {"exactly 2x left after 1/4", {4000, 2000}, {500, 250}, 4},
        {"exactly 2x left after 1/8", {4000, 2000}, {250, 125}, 8},
        {"never beyond 1/8", {8000, 8000}, {10, 10}, 8},
        {"the tighter axis decides (stretch)", {4000, 4000}, {250, 1000}, 2},
        {"a quarter-turned frame is compared side by side", {4000, 2000}, {250, 500}, 2},
        {"an empty drawing", {4000, 2000}, {0, 0}, 1},
        {"a non-finite size", {4000, 2000}, {NAN, 100}, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(VRShrinkOnLoadDenominator(c.stored, c.drawn), c.expected);
    }
}
