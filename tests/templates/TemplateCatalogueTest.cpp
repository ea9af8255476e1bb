#include "templates/TemplateCatalogue.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <utility>

#include "model/VRSizeOption.h"
#include "model/VRSizeResolver.h"
#include "model/VXHelperDevice.h"
#include "model/VXHelperText.h"

namespace {

using TemplateCatalogue::executableTemplates;

// What every row must satisfy however the table changes: a unique key that the store can
// execute, a locked template for both media, formats of the right media, and detail lines that
// tell the size the template makes.
TEST(TemplateCatalogueTest, EveryRowIsALockedTemplateForBothMediaThatItsLinesDescribe) {
    auto sections = TemplateCatalogue::standardSections();
    std::vector<std::string> titles;
    for (const auto& section : sections) titles.push_back(section->title());
    EXPECT_EQ(titles, (std::vector<std::string>{"Unwarp", "Facebook", "Instagram",
                                                "Message & Email", "Smart Optimization",
                                                "X (Twitter)", "YouTube", "Wallpaper"}));
    auto templates = executableTemplates();
    EXPECT_EQ(templates.size(), TemplateCatalogue::kTemplateCount);
    std::set<std::string> keys;
    for (const auto& section : sections) {
        for (const auto& item : section->items()) {
            SCOPED_TRACE(item.identifier());
            EXPECT_TRUE(keys.insert(item.identifier()).second);
            ASSERT_TRUE(templates.count(item.identifier()));
            const auto& tpl = *templates.at(item.identifier());
            EXPECT_TRUE(tpl.locked());
            EXPECT_EQ(item.mediaTypes(),
                      (std::set<std::uint64_t>{VRFormatMediaTypePhoto, VRFormatMediaTypeVideo}));
            EXPECT_TRUE(item.title() && !item.title()->empty());
            EXPECT_NE(item.imageSource(), TemplatePictureSource::empty());
            EXPECT_FALSE(item.description());
            EXPECT_TRUE(item.keywords().empty());

            // A format stored under the other media type would silently read as Auto.
            for (std::uint64_t mediaType : {VRFormatMediaTypePhoto, VRFormatMediaTypeVideo}) {
                auto stored = tpl.formatDictionary().find(mediaType);
                ASSERT_NE(stored, tpl.formatDictionary().end());
                EXPECT_EQ(stored->second.mediaType(), mediaType);
            }

            auto photo = tpl.sizeEntryForMediaType(VRFormatMediaTypePhoto);
            auto video = tpl.sizeEntryForMediaType(VRFormatMediaTypeVideo);
            ASSERT_TRUE(photo && video);
            EXPECT_EQ(photo->type(), video->type());
            const auto& lines = item.subtitles();
            ASSERT_EQ(lines.size(), 2u);
            const bool smart =
                containsOption(*tpl.optionsForMediaType(VRFormatMediaTypePhoto), VRSizeOptionSmart);
            EXPECT_EQ(lines[0].ends_with(" [S]"), smart);
            if (photo->type() == VRSizeTypePixels) {
                EXPECT_TRUE(lines[0].starts_with(VXHelper::stringFromSize(photo->size()) + " PX"));
            }
            // The second line is the wallpaper's screen diagonal, else the video size where it
            // differs from the photo size.
            if (item.identifier().starts_with("wp-")) {
                EXPECT_TRUE(lines[1] == " " || lines[1].ends_with(" inches"));
            } else if (photo->size() == video->size()) {
                EXPECT_EQ(lines[1], " ");
            } else {
                EXPECT_EQ(lines[1], VXHelper::stringFromSize(video->size()) + " PX");
            }
        }
    }
    EXPECT_EQ(keys.size() + 1, TemplateCatalogue::kTemplateCount);
    EXPECT_FALSE(keys.count(TemplateCatalogue::kExampleKey));
    ASSERT_TRUE(templates.count(TemplateCatalogue::kExampleKey));
    // Sections are new objects with each build.
    EXPECT_NE(sections[0]->identifier(), TemplateCatalogue::standardSections()[0]->identifier());
}

// A few rows in full, one of each kind of detail line.
TEST(TemplateCatalogueTest, SpotRowsCarryTheirSizesFormatsOptionsAndPictures) {
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

// Every row makes a usable output from a common camera photo and an HD video: inside the
// device limits, and a pixel row that names both sides gives that frame (for video, with even
// sides).
TEST(TemplateCatalogueTest, EveryTemplateResolvesCommonSourcesWithinTheLimits) {
    for (const auto& [key, tpl] : executableTemplates()) {
        for (auto [mediaType, source] :
             {std::pair<std::uint64_t, CGSize>{VRFormatMediaTypePhoto, {4032, 3024}},
              {VRFormatMediaTypeVideo, {1920, 1080}}}) {
            SCOPED_TRACE(key + " " + VXHelper::stringFromSize(source));
            CGSize output = resolve(key, mediaType, source);
            EXPECT_GT(output.width, 0);
            EXPECT_GT(output.height, 0);
            auto entry = tpl->sizeEntryForMediaType(mediaType);
            bool smart = containsOption(*tpl->optionsForMediaType(mediaType), VRSizeOptionSmart);
            if (entry->type() != VRSizeTypePixels || entry->width() <= 0 || entry->height() <= 0 ||
                smart) {
                continue;
            }
            if (mediaType == VRFormatMediaTypePhoto) {
                EXPECT_EQ(output, entry->size());
            } else {
                // Video frames take even sides for the encoders.
                for (auto [side, asked] : {std::pair{output.width, entry->width()},
                                           std::pair{output.height, entry->height()}}) {
                    EXPECT_EQ(std::fmod(side, 2), 0) << side;
                    EXPECT_LE(std::abs(side - asked), 1) << side;
                }
            }
        }
    }
}

}  // namespace
