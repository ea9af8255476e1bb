#include <gtest/gtest.h>

#include "platform/Geometry.h"

TEST(Geometry, TextFormsRoundTrip) {
    struct Case {
        CGSize size;
        const char* text;
    } cases[] = {
        {{1920, 1080}, "{1920, 1080}"},
        {{0.5, -3}, "{0.5, -3}"},
        {{3840, 76.8}, "{3840, 76.8}"},
        {{1.0 / 3, 0}, "{0.3333333333333333, 0}"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(NSStringFromCGSize(c.size), c.text);
        EXPECT_EQ(CGSizeFromString(c.text), c.size) << c.text;
    }
    EXPECT_EQ(NSStringFromCGPoint({2, 3}), "{2, 3}");
    EXPECT_EQ(NSStringFromCGRect({{1, 2}, {3, 4}}), "{{1, 2}, {3, 4}}");
    EXPECT_EQ(CGSizeFromString("garbage"), CGSizeZero);
    EXPECT_EQ(CGSizeFromString("{nan, 1}"), CGSizeZero);
}
