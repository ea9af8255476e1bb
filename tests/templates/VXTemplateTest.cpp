#include "templates/VXTemplate.h"

#include <gtest/gtest.h>

#include "templates/VXHelperTemplate.h"

namespace {

VRSizeEntry pixels(double w, double h) {
    return VRSizeEntry::sizeEntryWithWidth(w, h, VRSizeTypePixels);
}

VXTemplateRef photoOnly(VRSizeOptions options) {
    auto tpl = VXTemplate::create();
    tpl->setSizeEntry(pixels(1200, 600), VRFormat::formatWithType(VRFormatTypePNG), options,
                      VRFormatMediaTypePhoto);
    return tpl;
}

TEST(VXTemplateTest, FormatForMediaTypeAnswersAutoOfTheRequestedTypeWhenMissingOrMismatched) {
    auto empty = VXTemplate::create();
    EXPECT_FALSE(empty->sizeEntryForMediaType(VRFormatMediaTypePhoto));
    for (std::uint64_t mediaType : {VRFormatMediaTypePhoto, VRFormatMediaTypeVideo}) {
        VRFormat format = empty->formatForMediaType(mediaType);
        EXPECT_EQ(format.type(), VRFormatTypeAuto);
        EXPECT_EQ(format.mediaType(), mediaType);
    }

    auto mismatched = VXTemplate::create();
    mismatched->setFormat(VRFormat::formatWithType(VRFormatTypeMOV), VRFormatMediaTypePhoto);
    VRFormat photo = mismatched->formatForMediaType(VRFormatMediaTypePhoto);
    EXPECT_EQ(photo.type(), VRFormatTypeAuto);
    EXPECT_EQ(photo.mediaType(), VRFormatMediaTypePhoto);

    auto stored = photoOnly({VRSizeOptionNormal});
    EXPECT_EQ(stored->formatForMediaType(VRFormatMediaTypePhoto).type(), VRFormatTypePNG);
}

TEST(VXTemplateTest, CompleteFillsTheMissingMediaTypeOnce) {
    struct Case {
        std::uint64_t present;
        std::uint64_t filled;
    };
    for (auto [present, filled] : {Case{VRFormatMediaTypePhoto, VRFormatMediaTypeVideo},
                                   Case{VRFormatMediaTypeVideo, VRFormatMediaTypePhoto}}) {
        SCOPED_TRACE(present);
        auto tpl = VXTemplate::create();
        tpl->setSizeEntry(pixels(640, 480),
                          VRFormat::formatWithTypeMediaType(VRFormatTypeAuto, present),
                          VRSizeOptions{VRSizeOptionSmart, VRSizeOptionRatioClip}, present);
        ASSERT_TRUE(tpl->complete());
        EXPECT_EQ(tpl->mediaTypes().size(), 2u);
        EXPECT_EQ(tpl->sizeEntryForMediaType(filled), pixels(640, 480));
        // A photo-only Smart template is Smart for video too.
        EXPECT_EQ(tpl->optionsForMediaType(filled),
                  (VRSizeOptions{VRSizeOptionSmart, VRSizeOptionRatioClip}));
        EXPECT_EQ(tpl->formatForMediaType(filled).type(), VRFormatTypeAuto);
        EXPECT_FALSE(tpl->complete());
    }

    auto withoutOptions = VXTemplate::create();
    withoutOptions->setSizeEntry(pixels(1, 1), VRFormatMediaTypePhoto);
    ASSERT_TRUE(withoutOptions->complete());
    EXPECT_EQ(withoutOptions->optionsForMediaType(VRFormatMediaTypeVideo), VRSizeOptions{});

    auto otherKey = VXTemplate::create();
    otherKey->setSizeEntry(pixels(1, 1), 7);
    EXPECT_FALSE(otherKey->complete());
    EXPECT_EQ(otherKey->mediaTypes(), std::vector<std::uint64_t>{7});

    EXPECT_FALSE(VXTemplate::create()->complete());
}

TEST(VXTemplateTest, PairedTemplateDerivesVideoFromPhoto) {
    auto tpl = photoOnly({VRSizeOptionSmart, VRSizeOptionStretch});
    tpl->setSizeEntry(pixels(99, 99), VRFormat::formatWithType(VRFormatTypeMP4),
                      VRSizeOptions{VRSizeOptionNormal}, VRFormatMediaTypeVideo);
    auto paired = tpl->pairedTemplate();
    EXPECT_EQ(paired->sizeEntryForMediaType(VRFormatMediaTypeVideo), pixels(1200, 600));
    EXPECT_EQ(paired->optionsForMediaType(VRFormatMediaTypeVideo),
              (VRSizeOptions{VRSizeOptionSmart, VRSizeOptionStretch}));
    VRFormat format = paired->formatForMediaType(VRFormatMediaTypeVideo);
    EXPECT_EQ(format.type(), VRFormatTypeAuto);
    EXPECT_EQ(format.mediaType(), VRFormatMediaTypeVideo);
    // The receiver keeps its own video entry.
    EXPECT_EQ(tpl->sizeEntryForMediaType(VRFormatMediaTypeVideo), pixels(99, 99));

    auto videoOnly = VXTemplate::create();
    videoOnly->setSizeEntry(pixels(5, 5), VRFormat::formatWithType(VRFormatTypeMOV),
                            VRSizeOptions{VRSizeOptionNormal}, VRFormatMediaTypeVideo);
    auto noPhoto = videoOnly->pairedTemplate();
    EXPECT_FALSE(noPhoto->sizeEntryForMediaType(VRFormatMediaTypeVideo));
    EXPECT_FALSE(noPhoto->optionsForMediaType(VRFormatMediaTypeVideo));
    EXPECT_TRUE(noPhoto->mediaTypes().empty());
}

TEST(VXTemplateTest, CopiesAreIndependentAndNewTemplateDropsOnlyTheIdentifier) {
    auto tpl = photoOnly({VRSizeOptionNormal});
    tpl->setLocked(true);
    tpl->setStored(true);
    tpl->setIdentifier("fb-cover");
    tpl->setName("Facebook Cover");
    tpl->setTemplateDescription("text");
    tpl->setBundleImageName("tpl-fb-cover");

    auto fresh = tpl->newTemplate();
    EXPECT_FALSE(fresh->identifier());
    EXPECT_TRUE(fresh->locked());
    EXPECT_TRUE(fresh->stored());
    EXPECT_EQ(fresh->name(), "Facebook Cover");
    EXPECT_EQ(fresh->templateDescription(), "text");
    EXPECT_EQ(fresh->bundleImageName(), "tpl-fb-cover");

    auto copy = tpl->copy();
    copy->setSizeEntry(pixels(1, 2), VRFormatMediaTypePhoto);
    copy->resetDataForMediaType(VRFormatMediaTypePhoto);
    copy->setName("changed");
    EXPECT_EQ(tpl->sizeEntryForMediaType(VRFormatMediaTypePhoto), pixels(1200, 600));
    EXPECT_EQ(tpl->name(), "Facebook Cover");
    EXPECT_EQ(tpl->identifier(), "fb-cover");
    EXPECT_TRUE(copy->mediaTypes().empty());
    EXPECT_TRUE(copy->formatDictionary().empty());
    EXPECT_TRUE(copy->optionsDictionary().empty());
}

TEST(VXTemplateTest, UpdateFromTemplateTakesOneMediaTypeAndRemovesWhatTheOtherLacks) {
    auto source = photoOnly({VRSizeOptionRatioFit, VRSizeOptionNormal});
    auto target = VXTemplate::create();
    target->setSizeEntry(pixels(3, 3), VRFormat::formatWithType(VRFormatTypeMOV),
                         VRSizeOptions{VRSizeOptionNormal}, VRFormatMediaTypeVideo);
    target->updateFromTemplate(*source, VRFormatMediaTypePhoto);
    target->updateFromTemplate(*source, VRFormatMediaTypeVideo);
    EXPECT_EQ(target->sizeEntryForMediaType(VRFormatMediaTypePhoto), pixels(1200, 600));
    EXPECT_EQ(target->optionsForMediaType(VRFormatMediaTypePhoto),
              (VRSizeOptions{VRSizeOptionRatioFit, VRSizeOptionNormal}));
    EXPECT_EQ(target->mediaTypes(), std::vector<std::uint64_t>{VRFormatMediaTypePhoto});
}

TEST(VXTemplateTest, TutorialTemplateHoldsOnlyAStretchedPhotoSize) {
    auto tpl = VXTemplate::tutorialTemplate();
    EXPECT_EQ(tpl->mediaTypes(), std::vector<std::uint64_t>{VRFormatMediaTypePhoto});
    EXPECT_EQ(tpl->sizeEntryForMediaType(VRFormatMediaTypePhoto), pixels(800, 480));
    EXPECT_EQ(tpl->optionsForMediaType(VRFormatMediaTypePhoto),
              (VRSizeOptions{VRSizeOptionStretch, VRSizeOptionNormal}));
    EXPECT_EQ(tpl->formatForMediaType(VRFormatMediaTypePhoto).type(), VRFormatTypeAuto);
}

TEST(VXTemplateTest, ValidateTemplateNameKeepsRealNamesUntrimmed) {
    struct Case {
        std::optional<std::string> name;
        std::uint64_t index;
        std::string expected;
    };
    for (const auto& c : std::vector<Case>{{"   ", 4, "Template 5"},
                                           {"  a ", 4, "  a "},
                                           {std::nullopt, 0, "Template 1"},
                                           {"", 9, "Template 10"},
                                           {"\n\t ", 1, "Template 2"},
                                           // No-break, ideographic and line separators.
                                           {"\xc2\xa0\xe3\x80\x80\xe2\x80\xa8", 2, "Template 3"},
                                           {"\xc2\xa0x", 2, "\xc2\xa0x"},
                                           {"Wide", 3, "Wide"}}) {
        EXPECT_EQ(VXHelper::validateTemplateName(c.name, c.index), c.expected);
    }
}

TEST(VXTemplateTest, SubtitlesNameThePhotoSizeAndADifferingVideoSize) {
    struct Case {
        VRSizeEntry photo;
        std::optional<VRSizeEntry> video;
        VRSizeOptions options;
        std::vector<std::string> expected;
    };
    const std::vector<Case> cases = {
        {pixels(360, 360), pixels(360, 360), {3, 0}, {"360 x 360 PX"}},
        {pixels(600, 0), std::nullopt, {3, 0}, {"600 x Auto PX"}},
        {pixels(1280, 720), std::nullopt, {3, 1}, {"1280 x 720 PX [S]"}},
        {VRSizeEntry::sizeEntryWithWidth(133, 100, VRSizeTypePercent),
         std::nullopt,
         {5, 1},
         {"133 x 100 % [S]"}},
        {VRSizeEntry::sizeEntryWithWidth(1, 1, VRSizeTypeRatioDown),
         std::nullopt,
         {3, 1},
         {"1 : 1 0x2193 [S]"}},
        {VRSizeEntry::sizeEntryWithWidth(16, 9, VRSizeTypeRatioUp),
         std::nullopt,
         {3, 0},
         {"16 : 9 0x2191"}},
        {pixels(820, 360), pixels(820, 462), {3, 0}, {"820 x 360 PX", "820 x 462 PX"}},
        {pixels(50, 50),
         VRSizeEntry::sizeEntryWithWidth(50, 50, VRSizeTypePercent),
         {3, 0},
         {"50 x 50 PX", "50 x 50 %"}},
    };
    for (const auto& c : cases) {
        auto tpl = VXTemplate::create();
        tpl->setSizeEntry(c.photo, std::nullopt, c.options, VRFormatMediaTypePhoto);
        if (c.video) tpl->setSizeEntry(*c.video, std::nullopt, c.options, VRFormatMediaTypeVideo);
        EXPECT_EQ(VXHelper::subtitlesForTemplate(*tpl), c.expected);
    }
    auto videoOnly = VXTemplate::create();
    videoOnly->setSizeEntry(pixels(720, 1280), std::nullopt, VRSizeOptions{1, 3},
                            VRFormatMediaTypeVideo);
    EXPECT_EQ(VXHelper::subtitlesForTemplate(*videoOnly),
              std::vector<std::string>{"720 x 1280 PX [S]"});
}

TEST(VXTemplateTest, DescriptionNamesMethodSizeModeAndFormatPerMediaType) {
    auto tpl = photoOnly({VRSizeOptionSmart, VRSizeOptionRatioFit});
    EXPECT_EQ(VXHelper::descriptionForTemplate(*tpl),
              "Photo: Fit 1200 x 600 px Smart to PNG\nNo video settings");
}

}  // namespace
