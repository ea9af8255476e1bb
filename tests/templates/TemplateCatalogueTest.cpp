#include "templates/TemplateCatalogue.h"

#include <gtest/gtest.h>

#include <set>

#include "model/VRSizeResolver.h"
#include "model/VXHelperDevice.h"
#include "model/VXHelperText.h"

namespace {

using TemplateCatalogue::executableTemplates;

TEST(TemplateCatalogueTest, HoldsEightSectionsOf109TemplatesAndTheExampleUnderUniqueKeys) {
    struct SectionFacts {
        const char* title;
        const char* subtitle;
        std::size_t count;
        VRTemplateListSection::Config config;
    };
    const std::vector<SectionFacts> expected = {
        {"Unwarp", "Anamorphic un-warp", 7, {}},
        {"Facebook", "Create content for Facebook", 16, {}},
        {"Instagram", "Create media for Instagram", 10, {}},
        {"Message & Email", "Create media for messages and emails", 11, {}},
        {"Smart Optimization",
         "Resize content based on its size & orientation",
         14,
         {false, true, false}},
        {"X (Twitter)", "Prepare content for X", 13, {}},
        {"YouTube", "Prepare content for YouTube", 13, {true, false, false}},
        {"Wallpaper", "Create wallpapers for your devices", 25, {true, false, false}},
    };
    auto sections = TemplateCatalogue::standardSections();
    ASSERT_EQ(sections.size(), expected.size());
    auto templates = executableTemplates();
    EXPECT_EQ(templates.size(), TemplateCatalogue::kTemplateCount);
    std::set<std::string> keys;
    for (std::size_t i = 0; i < sections.size(); ++i) {
        SCOPED_TRACE(expected[i].title);
        EXPECT_EQ(sections[i]->title(), expected[i].title);
        EXPECT_EQ(sections[i]->subtitle(), expected[i].subtitle);
        EXPECT_EQ(sections[i]->config(), expected[i].config);
        EXPECT_EQ(sections[i]->items().size(), expected[i].count);
        for (const auto& item : sections[i]->items()) {
            EXPECT_TRUE(keys.insert(item.identifier()).second) << item.identifier();
            ASSERT_TRUE(templates.count(item.identifier())) << item.identifier();
            const auto& tpl = templates.at(item.identifier());
            EXPECT_TRUE(tpl->locked());
            EXPECT_EQ(tpl->mediaTypes().size(), 2u);
            EXPECT_EQ(item.mediaTypes(),
                      (std::set<std::uint64_t>{VRFormatMediaTypePhoto, VRFormatMediaTypeVideo}));
            EXPECT_FALSE(item.description());
            EXPECT_TRUE(item.keywords().empty());
            EXPECT_EQ(item.subtitles().size(), 2u);
        }
    }
    EXPECT_EQ(keys.size(), 109u);
    EXPECT_FALSE(keys.count(TemplateCatalogue::kExampleKey));
    ASSERT_TRUE(templates.count(TemplateCatalogue::kExampleKey));
    // Sections are new objects with each build.
    EXPECT_NE(sections[0]->identifier(), TemplateCatalogue::standardSections()[0]->identifier());
}

TEST(TemplateCatalogueTest, RowsCarryTheirSizesFormatsOptionsAndPictures) {
    struct Row {
        const char* key;
        const char* title;
        CGSize photo, video;
        VRSizeEntryType unit;
        VRFormatType photoFormat, videoFormat;
        VRSizeOptions options;
        TemplatePictureSource picture, icon;
        std::vector<std::string> subtitles;
    };
    const auto bundle = TemplatePictureSource::bundle;
    const auto none = TemplatePictureSource::empty();
    const std::vector<Row> rows = {
        {"uw-133",
         "Unwarp 1.33x",
         {133, 100},
         {133, 100},
         VRSizeTypePercent,
         VRFormatTypeAuto,
         VRFormatTypeAuto,
         {5, 1},
         bundle("tpl-uw-133"),
         none,
         {"133 x 100 % [S]", " "}},
        {"fb-cover",
         "Facebook Cover",
         {820, 360},
         {820, 462},
         VRSizeTypePixels,
         VRFormatTypeJPEG,
         VRFormatTypeMOV,
         {3, 0},
         bundle("tpl-fb-cover"),
         bundle("fb-icon"),
         {"820 x 360 PX", "820 x 462 PX"}},
        {"fb-cover-max",
         "Facebook Cover HD+",
         {2037, 754},
         {1640, 924},
         VRSizeTypePixels,
         VRFormatTypePNG,
         VRFormatTypeMOV,
         {3, 0},
         bundle("tpl-fb-cover-hdp"),
         bundle("fb-icon"),
         {"2037 x 754 PX", "1640 x 924 PX"}},
        {"ig-square-fit",
         "Instagram Square Fit",
         {1080, 1080},
         {1080, 1080},
         VRSizeTypePixels,
         VRFormatTypeJPEG,
         VRFormatTypeMOV,
         {4, 0},
         bundle("tpl-ig-square-fit"),
         bundle("ig-icon"),
         {"1080 x 1080 PX", " "}},
        {"ms-icon-mini",
         "Message Wide Mini",
         {300, 200},
         {300, 200},
         VRSizeTypePixels,
         VRFormatTypeJPEG,
         VRFormatTypeMP4,
         {3, 0},
         bundle("tpl-ms-wide-mini"),
         none,
         {"300 x 200 PX", " "}},
        {"ms-universal",
         "Message Universal",
         {600, 0},
         {600, 0},
         VRSizeTypePixels,
         VRFormatTypeJPEG,
         VRFormatTypeMP4,
         {3, 0},
         bundle("tpl-ms-universal"),
         none,
         {"600 x Auto PX", " "}},
        {"op-ar-1x1",
         "Aspect Ratio 1:1",
         {1, 1},
         {1, 1},
         VRSizeTypeRatioDown,
         VRFormatTypeAuto,
         VRFormatTypeAuto,
         {3, 1},
         bundle("tpl-op-ar-1x1"),
         none,
         {"1 : 1 0x2193 [S]", " "}},
        {"op-rel-67",
         "Two-Thirds Size 67%",
         {67, 67},
         {67, 67},
         VRSizeTypePercent,
         VRFormatTypeAuto,
         VRFormatTypeAuto,
         {3, 0},
         bundle("tpl-op-relative-67"),
         none,
         {"67 x 67 %", " "}},
        {"op-abs-1280",
         "Smart 1280 x 720 px",
         {1280, 720},
         {1280, 720},
         VRSizeTypePixels,
         VRFormatTypeAuto,
         VRFormatTypeAuto,
         {3, 1},
         bundle("tpl-op-absolute-1280"),
         none,
         {"1280 x 720 PX [S]", " "}},
        {"tw-profile-hd",
         "X Profile HD",
         {800, 800},
         {800, 800},
         VRSizeTypePixels,
         VRFormatTypePNG,
         VRFormatTypeMP4,
         {3},
         bundle("tpl-tw-profile"),
         none,
         {"800 x 800 PX", " "}},
        {"tw-square-fit",
         "X Square Fit",
         {1080, 1080},
         {1080, 1080},
         VRSizeTypePixels,
         VRFormatTypeJPEG,
         VRFormatTypeMP4,
         {4},
         bundle("tpl-tw-square-fit"),
         none,
         {"1080 x 1080 PX", " "}},
        {"yt-watermark",
         "YouTube Watermark",
         {150, 150},
         {150, 150},
         VRSizeTypePixels,
         VRFormatTypePNG,
         VRFormatTypeMP4,
         {3, 0},
         bundle("tpl-yt-watermark"),
         bundle("yt-icon"),
         {"150 x 150 PX", " "}},
        {"wp-iphone-47",
         "8, SE",
         {750, 1334},
         {750, 1334},
         VRSizeTypePixels,
         VRFormatTypeHEIC,
         VRFormatTypeMOV,
         {3, 0},
         bundle("tpl-wp-iphone-47"),
         bundle("size-47-icon"),
         {"750 x 1334 PX", "4.7 inches"}},
        {"wp-iphone-110a",
         "iPad Air 11",
         {2360, 2360},
         {2360, 2360},
         VRSizeTypePixels,
         VRFormatTypeHEIC,
         VRFormatTypeMOV,
         {3, 0},
         bundle("tpl-wp-ipad-110a"),
         bundle("size-110-icon"),
         {"2360 x 2360 PX", "11.0 inches"}},
        {"wp-iphone-130b",
         "iPad Pro 13",
         {2752, 2752},
         {2752, 2752},
         VRSizeTypePixels,
         VRFormatTypeHEIC,
         VRFormatTypeMOV,
         {3, 0},
         bundle("tpl-wp-ipad-130b"),
         bundle("size-130-icon"),
         {"2752 x 2752 PX", "13.0 inches"}},
    };
    std::map<std::string, VRTemplateListItem> items;
    for (const auto& section : TemplateCatalogue::standardSections()) {
        for (const auto& item : section->items()) items.emplace(item.identifier(), item);
    }
    auto templates = executableTemplates();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.key);
        ASSERT_TRUE(items.count(row.key));
        const auto& item = items.at(row.key);
        EXPECT_EQ(item.title(), row.title);
        EXPECT_EQ(item.imageSource(), row.picture);
        EXPECT_EQ(item.iconSource(), row.icon);
        EXPECT_EQ(item.subtitles(), row.subtitles);
        const auto& tpl = *templates.at(row.key);
        auto photo = tpl.sizeEntryForMediaType(VRFormatMediaTypePhoto);
        auto video = tpl.sizeEntryForMediaType(VRFormatMediaTypeVideo);
        EXPECT_EQ(photo->size(), row.photo);
        EXPECT_EQ(video->size(), row.video);
        EXPECT_EQ(photo->type(), row.unit);
        EXPECT_EQ(video->type(), row.unit);
        EXPECT_EQ(tpl.formatForMediaType(VRFormatMediaTypePhoto).type(), row.photoFormat);
        EXPECT_EQ(tpl.formatForMediaType(VRFormatMediaTypeVideo).type(), row.videoFormat);
        EXPECT_EQ(tpl.optionsForMediaType(VRFormatMediaTypePhoto), row.options);
        EXPECT_EQ(tpl.optionsForMediaType(VRFormatMediaTypeVideo), row.options);
    }
}

TEST(TemplateCatalogueTest, DeviceWallpaperAndExampleStandApart) {
    auto templates = executableTemplates();
    CGSize screen = TemplateCatalogue::deviceScreenSize();
    EXPECT_GT(screen.width, 0);
    EXPECT_GT(screen.height, 0);
    const auto& device = *templates.at(TemplateCatalogue::kDeviceWallpaperKey);
    EXPECT_EQ(device.sizeEntryForMediaType(VRFormatMediaTypePhoto)->size(), screen);
    auto item = TemplateCatalogue::itemForEntry(TemplateCatalogue::sections().back().entries[0]);
    EXPECT_EQ(item.identifier(), TemplateCatalogue::kDeviceWallpaperKey);
    EXPECT_EQ(item.subtitles()[0], VXHelper::stringFromSize(screen) + " PX");

    const auto& example = *templates.at(TemplateCatalogue::kExampleKey);
    EXPECT_TRUE(example.locked());
    EXPECT_EQ(example.sizeEntryForMediaType(VRFormatMediaTypePhoto)->size(), (CGSize{1200, 600}));
    EXPECT_EQ(example.formatForMediaType(VRFormatMediaTypePhoto).type(), VRFormatTypeJPEG);
    EXPECT_EQ(example.formatForMediaType(VRFormatMediaTypeVideo).type(), VRFormatTypeMOV);
    EXPECT_EQ(example.optionsForMediaType(VRFormatMediaTypeVideo), (VRSizeOptions{5, 1}));
    auto exampleItem = TemplateCatalogue::exampleItem();
    EXPECT_EQ(exampleItem.title(), "RC JPEG / MOV");
    EXPECT_EQ(exampleItem.subtitles(), (std::vector<std::string>{"1200 \u00d7 600 PX [S]", " "}));
}

CGSize resolve(const std::string& key, std::uint64_t mediaType, CGSize source) {
    auto tpl = executableTemplates().at(key);
    VRResolveRequest request;
    request.mediaType = static_cast<VRFormatMediaType>(mediaType);
    request.sizeEntry = *tpl->sizeEntryForMediaType(mediaType);
    request.options = *tpl->optionsForMediaType(mediaType);
    request.format = tpl->formatForMediaType(mediaType);
    request.sourceSize = source;
    request.limits = {VXHelper::maxPhotoSize(4), VXHelper::maxVideoSize(4),
                      VXHelper::minLivePhotoVideoSize(4)};
    auto output = VXHelper::resolveOutput(request);
    EXPECT_FALSE(output.limitExceeded);
    return output.outputSize;
}

TEST(TemplateCatalogueTest, TemplatesResolveTypicalAssetsAsTheCatalogueIntends) {
    struct Case {
        const char* key;
        std::uint64_t mediaType;
        CGSize source, expected;
    };
    const std::vector<Case> cases = {
        // Smart exchanges the entry, so the long side is widened.
        {"uw-133", VRFormatMediaTypePhoto, {1000, 500}, {1330, 500}},
        {"uw-133", VRFormatMediaTypePhoto, {500, 1000}, {500, 1330}},
        {"uw-133", VRFormatMediaTypePhoto, {4032, 3024}, {5363, 3024}},
        {"uw-200", VRFormatMediaTypeVideo, {1920, 1080}, {3840, 1080}},
        {"op-ar-1x1", VRFormatMediaTypePhoto, {1000, 500}, {500, 500}},
        {"ms-universal", VRFormatMediaTypePhoto, {1000, 500}, {600, 300}},
        {"fb-cover", VRFormatMediaTypePhoto, {1000, 500}, {820, 360}},
        {"fb-cover", VRFormatMediaTypeVideo, {1920, 1080}, {820, 462}},
        {"op-rel-50", VRFormatMediaTypePhoto, {1001, 401}, {501, 201}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.key) + " " + VXHelper::stringFromSize(c.source));
        EXPECT_EQ(resolve(c.key, c.mediaType, c.source), c.expected);
    }
}

}  // namespace
