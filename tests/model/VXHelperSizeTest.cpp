#include "model/VXHelperSize.h"

#include <gtest/gtest.h>

#include "ModelPrinters.h"

#include <cmath>
#include <limits>

using namespace VXHelper;

TEST(VXHelperSize, RatioAndFrame) {
    EXPECT_EQ(ratio(0, 5), 0.0);
    EXPECT_EQ(ratio(5, 0), 0.0);
    EXPECT_EQ(ratio(-4, 2), 2.0);
    EXPECT_EQ(ratio({3, -4}), 0.75);

    struct Case {
        double w, h, r;
        bool inner;
        CGSize expected;
    } cases[] = {
        {1000, 500, 2, true, {1000, 500}},  // equal ratio
        {1000, 500, 2, false, {1000, 500}},
        {1000, 500, 1, true, {500, 500}},     // height kept inside
        {1000, 500, 1, false, {1000, 1000}},  // width kept around
        {500, 1000, 1, true, {500, 500}},
        {500, 1000, 1, false, {1000, 1000}},
        {0, 500, 1, true, {0, 0}},
        {100, 0, 2, true, {0, 0}},
        {100, 0, 0, true, {100, 0}},  // ratio 0 leaves the size
        {1920, 1080, 4.0 / 3, true, {1440, 1080}},
        {1920, 1080, 4.0 / 3, false, {1920, 1440}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(frame(c.w, c.h, c.r, c.inner), c.expected)
            << c.w << " x " << c.h << " r " << c.r << " inner " << c.inner;
    }
}

TEST(VXHelperSize, RoundingAndClamp) {
    struct Case {
        std::uint64_t n;
        double value, expected;
    } cases[] = {
        {0, 2.5, 3},       {1, -2.5, -3},     {0, 2.49, 2}, {2, 1001, 1002}, {2, 1003, 1004},
        {2, -1001, -1002}, {2, 1002.9, 1002}, {4, 6, 8},    {10, 14.99, 10},
    };
    for (const auto& c : cases)
        EXPECT_EQ(roundedTo(c.n, c.value), c.expected) << c.n << " " << c.value;
    EXPECT_EQ(rounded(CGSize{40.5, 15.5}), (CGSize{41, 16}));
    EXPECT_EQ(rotated(CGSize{1, 2}), (CGSize{2, 1}));

    EXPECT_EQ(clamp(5, 10, -10), 5);
    EXPECT_EQ(clamp(-15, 10, -10), -10);
    EXPECT_EQ(clamp(15, -10, 10), 10);
    EXPECT_EQ(clamp(3, 0, 0), 0);
}

TEST(VXHelperSize, ShapeRules) {
    const VRSizeOptions normal{VRSizeOptionStretch, VRSizeOptionNormal};
    const VRSizeOptions smart{VRSizeOptionStretch, VRSizeOptionSmart};
    const VRSizeOptions smartPortrait{VRSizeOptionSmart, VRSizeOptionRatioFit,
                                      VRSizeOptionTargetPortrait};
    EXPECT_EQ(shapeForSize({100, 100}), ShapeLandscape);
    EXPECT_EQ(shapeForSize({99, 100}), ShapePortrait);
    EXPECT_EQ(shapeForSize({0, 0}), ShapeLandscape);

    struct Case {
        CGSize size;
        const VRSizeOptions* options;
        bool rotation;
    } cases[] = {
        {{999, 1000}, &normal, false},        {{1000, 1000}, &smart, false},
        {{999, 1000}, &smart, true},          {{2000, 1000}, &smart, false},
        {{1000, 1000}, &smartPortrait, true}, {{2000, 1000}, &smartPortrait, true},
        {{999, 1000}, &smartPortrait, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(isSizeRotationRequiredForTargetSize(c.size, *c.options), c.rotation)
            << c.size.width << " x " << c.size.height;
        EXPECT_FALSE(isSizeSquareRequiredForTargetSize(c.size, *c.options));
    }
}

TEST(VXHelperSize, SafeSizeAndLimitedSize) {
    struct SafeCase {
        CGSize size, target;
        bool stretch;
        CGSize expected;
    } safeCases[] = {
        {{0, 0}, {640, 480}, true, {640, 480}},
        {{0, 0}, {640, 480}, false, {640, 480}},
        {{320, 100}, {640, 480}, false, {320, 100}},
        {{320, 0}, {640, 480}, true, {320, 480}},
        {{320, 0}, {640, 480}, false, {320, 240}},
        {{0, 100}, {640, 480}, true, {640, 100}},
        {{0, 100}, {640, 480}, false, {133, 100}},
        {{101, 0}, {4, 3}, false, {101, 76}},  // 75.75 rounds up
    };
    for (const auto& c : safeCases) {
        EXPECT_EQ(safeSizeWithSize(c.size, c.target, c.stretch), c.expected)
            << c.size.width << " x " << c.size.height << " stretch " << c.stretch;
    }
    // A target with a zero side divides by a zero ratio: infinity, left to the limit check.
    EXPECT_TRUE(std::isinf(safeSizeWithSize({100, 0}, {0, 50}, false).height));

    struct LimitCase {
        CGSize size, max, expected;
    } limitCases[] = {
        {{5000, 100}, {3840, 2160}, {3840, 76.8}},
        {{2160, 3800}, {3840, 2160}, {2160, 3800}},  // outside the rectangle, within its side
        {{9000, 5000}, {8192, 8192}, {8192, 8192 / 1.8}},
        {{3000, 9000}, {4096, 2160}, {720, 2160}},
        {{8192, 8192}, {8192, 8192}, {8192, 8192}},
        {{4096, 4096}, {4096, 2160}, {4096, 4096}},  // sides at the limit pass as they are
    };
    for (const auto& c : limitCases) {
        const CGSize got = limitedSize(c.size, c.max);
        EXPECT_DOUBLE_EQ(got.width, c.expected.width) << c.size.width << " x " << c.size.height;
        EXPECT_DOUBLE_EQ(got.height, c.expected.height) << c.size.width << " x " << c.size.height;
    }
}

TEST(VXHelperSize, RatioNames) {
    struct Case {
        CGSize size;
        bool floating;
        CGSize expected;
    } cases[] = {
        {{4000, 3000}, false, {4, 3}},     {{3000, 4000}, false, {3, 4}},
        {{1920, 1080}, false, {16, 9}},    {{1080, 1920}, false, {9, 16}},
        {{1000, 333}, false, {3, 1}},       // 3.003 rounds to 3.00
        {{1234, 1000}, false, {123, 100}},  // no table entry
        {{100, 81}, false, {100, 81}},      // 123 : 100 exceeds the size itself
        {{81, 100}, false, {81, 100}},     {{1234, 1000}, true, {1.23, 1}},
        {{1000, 1234}, true, {1, 1.23}},   {{500, 500}, false, {1, 1}},
        {{2560, 1080}, false, {237, 100}},  // 2.37, between 21:9 and 5:2
        {{2100, 900}, false, {21, 9}},     {{1600, 1000}, false, {16, 10}},
        {{3000, 2000}, false, {3, 2}},     {{0, 0}, false, {0, 0}},
    };
    for (const auto& c : cases) {
        const CGSize got = ratioSizeWithSize(c.size, c.floating);
        EXPECT_DOUBLE_EQ(got.width, c.expected.width) << c.size.width << " x " << c.size.height;
        EXPECT_DOUBLE_EQ(got.height, c.expected.height) << c.size.width << " x " << c.size.height;
    }
}

TEST(VXHelperSize, AbsoluteSizeLeavesPixelZerosForTheSafeSize) {
    struct Case {
        VRSizeEntry entry;
        CGSize target;
        std::uint64_t rounding;
        CGSize expected;
    } cases[] = {
        {VRSizeEntry::sizeEntryWithWidth(2400, 0, VRSizeTypePixels), {1000, 500}, 1, {2400, 0}},
        {VRSizeEntry::sizeEntryWithWidth(1001, 3, VRSizeTypePixels), {1000, 500}, 2, {1002, 4}},
        {VRSizeEntry::sizeEntryWithWidth(50, 25, VRSizeTypePercent), {1001, 401}, 1, {501, 100}},
        {VRSizeEntry::sizeEntryWithWidth(1, 1, VRSizeTypeRatioUp), {1200, 800}, 1, {1200, 1200}},
        {VRSizeEntry::sizeEntryWithWidth(1, 1, VRSizeTypeRatioDown), {1200, 800}, 1, {800, 800}},
        {VRSizeEntry::sizeEntryWithWidth(1, 1, static_cast<VRSizeEntryType>(9)),
         {1200, 800},
         1,
         {0, 0}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(absoluteSizeWithSizeEntry(c.entry, c.target, c.rounding), c.expected) << c.entry;
    }
    // The entry's own target and rounding play no part.
    VRSizeEntry e = VRSizeEntry::sizeEntryWithWidth(50, 50, VRSizeTypePercent);
    e.setTargetSize({10, 10});
    e.setOutputRounding(16);
    EXPECT_EQ(absoluteSizeWithSizeEntry(e, {300, 300}, 0), (CGSize{150, 150}));
}

TEST(VXHelperSize, SizeArraysAndImageProperties) {
    using platform::PlistArray;
    using platform::PlistValue;
    EXPECT_EQ(sizeArrayWithSize({8192, 4551}),
              (PlistArray{PlistValue(8192.0), PlistValue(4551.0)}));
    EXPECT_EQ(sizeWithSizeArray({PlistValue(3), PlistValue(4.5), PlistValue(9)}), (CGSize{3, 4.5}));
    EXPECT_EQ(sizeWithSizeArray({PlistValue(3)}), CGSizeZero);
    EXPECT_EQ(imageSizeWithImageProperties(
                  {{"PixelWidth", PlistValue(4032)}, {"PixelHeight", PlistValue(3024)}}),
              (CGSize{4032, 3024}));
    EXPECT_EQ(imageSizeWithImageProperties({{"PixelWidth", PlistValue(10)}}), (CGSize{10, 0}));
    for (int orientation = 1; orientation <= 9; ++orientation) {
        const bool turned = orientation >= 5 && orientation <= 8;
        EXPECT_EQ(imageSizeWithImageProperties({{"PixelWidth", PlistValue(40)},
                                                {"PixelHeight", PlistValue(30)},
                                                {"Orientation", PlistValue(orientation)}}),
                  turned ? (CGSize{30, 40}) : (CGSize{40, 30}))
            << orientation;
    }
}
