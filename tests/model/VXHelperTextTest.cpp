#include "model/VXHelperText.h"

#include <gtest/gtest.h>

#include "ModelPrinters.h"

#include "model/TypeIdentifiers.h"

using namespace VXHelper;

TEST(VXHelperText, NumbersAndSizes) {
    struct Case {
        double value;
        const char* expected;
    } values[] = {{0, "0"},   {-0.4, "0"},      {-0.5, "-1"},
                  {2.5, "3"}, {1919.5, "1920"}, {1e6, "1000000"}};
    for (const auto& c : values) EXPECT_EQ(stringFromValue(c.value), c.expected) << c.value;

    EXPECT_EQ(stringFromSize({1920, 1080}), "1920 x 1080");
    EXPECT_EQ(stringFromSize({0, 1080}), "Auto x 1080");
    EXPECT_EQ(stringFromSize({0, 1080}, false), "0 x 1080");
    EXPECT_EQ(stringFromSize({1279.5, 0.2}, true), "1280 x 0");  // 0.2 is not Auto
    EXPECT_EQ(stringForAdjustPreviewWithAbsoluteSize({1200, 0}, true), "Smart size 1200 x Auto");
    EXPECT_EQ(stringForAdjustPreviewWithAbsoluteSize({1200, 600}, false), "Normal size 1200 x 600");
}

TEST(VXHelperText, SizeEntryForms) {
    struct Case {
        double w, h;
        std::uint64_t type;
        const char* shortForm;
        const char* longForm;
    } cases[] = {
        {2400, 0, 0, "2400 x Auto", "2400 x Auto px"},
        {0, 0, 0, "Auto x Auto", "Auto x Auto px"},
        {50, 50, 1, "50 % 50", "50 x 50 %"},
        {133, 100, 1, "133 % 100", "133 x 100 %"},
        {16, 9, 2, "16 : 9 \u2191", "16 : 9 \u2191"},
        {2.39, 1, 3, "2 : 1 \u2193", "2 : 1 \u2193"},
        {0, 9, 3, "Auto : 9 \u2193", "Auto : 9 \u2193"},
        {7, 8, 6, "7 x 8", "7 x 8"},
    };
    for (const auto& c : cases) {
        const auto e =
            VRSizeEntry::sizeEntryWithWidth(c.w, c.h, static_cast<VRSizeEntryType>(c.type));
        EXPECT_EQ(stringFromSizeEntry(e, false), c.shortForm) << c.shortForm;
        EXPECT_EQ(stringFromSizeEntry(e, true), c.longForm) << c.longForm;
    }
}

TEST(VXHelperText, RatioFormatter) {
    struct Case {
        double value;
        const char* expected;
    } cases[] = {
        {4, "4"},         {2.35, "2.35"},  {2.345, "2.35"},        {1.005, "1.01"},
        {1.2345, "1.23"}, {1.5, "1.5"},    {0.125, "0.13"},        {9.999, "10"},
        {0, "0"},         {1234, "1,234"}, {1000000, "1,000,000"}, {-2.345, "-2.35"},
    };
    for (const auto& c : cases) EXPECT_EQ(ratioFormatterString(c.value), c.expected) << c.value;
    EXPECT_EQ(ratioStringWithRatioSize({16, 9}), "16 : 9");
    EXPECT_EQ(ratioStringWithRatioSize({2.35, 1}), "2.35 : 1");
}

TEST(VXHelperText, EditingPreviewAndImageLine) {
    // 5363 x 3024 from 4032 x 3024: ratio 1.77 is no table entry (16:9 is 1.78), warp
    // 1.7734 / 1.3333 = 1.33.
    const AttributedText plain =
        stringForEditingPreviewWithAbsoluteSize({5363, 3024}, {4032, 3024}, false);
    EXPECT_EQ(plainText(plain), "5363 x 3024 | 177 : 100 | 1.33x");
    ASSERT_EQ(plain.size(), 5u);
    EXPECT_EQ(plain[1], (TextRun{" | ", true}));
    EXPECT_FALSE(plain[0].grayHighlight);
    EXPECT_FALSE(plain[4].grayHighlight);

    const AttributedText detailed =
        stringForEditingPreviewWithAbsoluteSize({1000, 1000}, {2000, 1000}, true);
    EXPECT_EQ(plainText(detailed), "Size 1000 x 1000  |  Ratio 1 : 1  |  Warp 2x");
    EXPECT_EQ(detailed[1], (TextRun{"  |  ", true}));

    // The warp factor is never below 1, and 1 when a ratio is 0.
    EXPECT_EQ(plainText(stringForEditingPreviewWithAbsoluteSize({1000, 2000}, {1000, 1000}, false)),
              "1000 x 2000 | 1 : 2 | 2x");
    EXPECT_EQ(plainText(stringForEditingPreviewWithAbsoluteSize({0, 2000}, {1000, 1000}, false)),
              "Auto x 2000 | 100 : 0 | 1x");

    EXPECT_EQ(plainText(stringFromImageUTI(kUTTypeHEIC, {4032, 3024})),
              "HEIC | 4032 x 3024 | 4 : 3");
    EXPECT_EQ(plainText(stringFromImageUTI("public.unknown", {0, 10})), "Auto | 0 x 10 | 0 : 10");
}

TEST(VXHelperText, DataLengths) {
    struct Case {
        std::uint64_t length;
        const char* expected;
    } cases[] = {
        {0, "0b"},
        {512, "512b"},
        {513, "0.5Kb"},
        {10188, "9.9Kb"},
        {10189, "10.0Kb"},  // 9.95 of a KiB: below 10, so one decimal after rounding
        {10240, "10Kb"},
        {524288, "512Kb"},
        {524289, "0.5Mb"},
        {1024 * 1024 * 3 + 1024 * 200, "3.2Mb"},
        {536870912, "512Mb"},
        {536870913, "0.5Gb"},
        {1099511627776ULL, "1024Gb"},
    };
    for (const auto& c : cases) EXPECT_EQ(stringFromDataLength(c.length), c.expected) << c.length;
}

TEST(VXHelperText, TemplateDescription) {
    TemplateMediaSettings photo{VRSizeEntry::sizeEntryWithWidth(133, 100, VRSizeTypePercent),
                                {VRSizeOptionNormal, VRSizeOptionStretch},
                                VRFormat::formatWithType(VRFormatTypeAuto)};
    TemplateMediaSettings none{std::nullopt, {}, VRFormat::formatWithTypeMediaType(0, 2)};
    EXPECT_EQ(descriptionForTemplate(photo, none),
              "Photo: Stretch 133 x 100 % Normal to AUTO\nNo video settings");

    struct Case {
        VRSizeEntry entry;
        VRSizeOptions options;
        std::uint64_t formatType;
        const char* expected;
    } cases[] = {
        {VRSizeEntry::sizeEntryWithWidth(1200, 600, VRSizeTypePixels),
         {VRSizeOptionSmart, VRSizeOptionRatioFit},
         VRFormatTypeMOV,
         "Video: Fit 1200 x 600 px Smart to MOV"},
        {VRSizeEntry::sizeEntryWithWidth(1200, 600, VRSizeTypePixels),
         {VRSizeOptionSmart, VRSizeOptionRatioClip, VRSizeOptionTargetPortrait},
         VRFormatTypeMP4,
         "Video: Clip 1200 x 600 px Smart Inv. to MP4"},
        {VRSizeEntry::sizeEntryWithWidth(600, 1200, VRSizeTypePixels),
         {VRSizeOptionSmart, VRSizeOptionRatioClip},
         VRFormatTypeMP4,
         "Video: Clip 600 x 1200 px Smart Inv. to MP4"},
        {VRSizeEntry::sizeEntryWithWidth(600, 1200, VRSizeTypePixels),
         {VRSizeOptionSmart, VRSizeOptionRatioClip, VRSizeOptionTargetPortrait},
         VRFormatTypeMP4,
         "Video: Clip 600 x 1200 px Smart to MP4"},
        {VRSizeEntry::sizeEntryWithWidth(1, 1, VRSizeTypeRatioUp),
         {VRSizeOptionSmart, VRSizeOptionRatioClip, VRSizeOptionTargetPortrait},
         VRFormatTypeMOV,
         "Video: Clip 1 : 1 \u2191 Smart to MOV"},
        // Fit is tested before clip here, unlike in the pipelines.
        {VRSizeEntry::sizeEntryWithWidth(16, 9, VRSizeTypeRatioDown),
         {VRSizeOptionRatioClip, VRSizeOptionRatioFit, VRSizeOptionNormal},
         VRFormatTypeM4V,
         "Video: Fit 16 : 9 \u2193 Normal to M4V"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(descriptionForMediaSettings(
                      VRFormatMediaTypeVideo,
                      {c.entry, c.options, VRFormat::formatWithTypeMediaType(c.formatType, 2)}),
                  c.expected);
    }
}
