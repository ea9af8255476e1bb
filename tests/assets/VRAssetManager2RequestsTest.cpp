#include <gtest/gtest.h>

#include <set>

#include "assets/VRAssetManager2.h"
#include "assets/VRCollection.h"
#include "platform/Dispatch.h"
#include "platform/PhotoLibrary.h"
#include "support/TestHome.h"

using testing_support::TestHome;

namespace {

// The main session's flags are process-wide: each test leaves them as it found them.
struct Flags {
    explicit Flags(bool sourceImage, bool imagesOnly) {
        auto& manager = VRAssetManager2::defaultManager();
        manager.setSourceImageEnabled(sourceImage);
        manager.setLoadImagesOnly(imagesOnly);
    }
    ~Flags() {
        auto& manager = VRAssetManager2::defaultManager();
        manager.setSourceImageEnabled(false);
        manager.setLoadImagesOnly(false);
    }
};

}  // namespace

// The two requests read the source-image flag differently: the data request asks for the
// original (2), the thumbnail request takes the flag itself as the version (1).
TEST(VRAssetManager2Options, ImageDataAndThumbnailRows) {
    auto& manager = VRAssetManager2::defaultManager();
    struct Row {
        bool sourceImage;
        bool highQuality;
        bool synchronous;
        PHImageRequestOptions data;
        PHImageRequestOptions thumbnail;
    } rows[] = {
        {false, false, false, {true, 0, 1, 0, false}, {true, 0, 2, 1, false}},
        {true, false, true, {true, 2, 1, 0, true}, {true, 1, 2, 1, true}},
        {false, true, true, {true, 0, 1, 0, true}, {true, 0, 0, 1, true}},
        {true, true, false, {true, 2, 1, 0, false}, {true, 1, 0, 1, false}},
    };
    for (const auto& row : rows) {
        Flags flags(row.sourceImage, false);
        const auto data = manager.optionsForImageDataRequestSynchronous(row.synchronous);
        const auto thumbnail =
            manager.optionsForThumbnailRequestHighQuality(row.highQuality, row.synchronous);
        const std::string label = std::to_string(row.sourceImage) +
                                  std::to_string(row.highQuality) + std::to_string(row.synchronous);
        EXPECT_EQ(data, row.data) << label << " data version " << data.version;
        EXPECT_EQ(thumbnail, row.thumbnail) << label << " thumbnail version " << thumbnail.version
                                            << " delivery " << thumbnail.deliveryMode;
    }
}

TEST(VRAssetManager2Options, AssetFetchFiltersVideosOnlyWhenImagesOnly) {
    auto& manager = VRAssetManager2::defaultManager();
    {
        Flags flags(false, true);
        EXPECT_EQ(manager.optionsForAssetReqest().mediaTypes,
                  (std::vector<platform::PHAssetMediaType>{platform::PHAssetMediaTypeImage}));
    }
    EXPECT_EQ(manager.optionsForAssetReqest().mediaTypes,
              (std::vector<platform::PHAssetMediaType>{platform::PHAssetMediaTypeImage,
                                                       platform::PHAssetMediaTypeVideo}));
}

TEST(VRAssetManager2Sessions, NamesReplacementAndEnd) {
    TestHome home;
    auto& manager = VRAssetManager2::defaultManager();
    manager.setPhotoLibrary(platform::PhotoLibrary::open(
        {home.path("Pictures"), home.path("data/library.sqlite"), home.path("cache/thumbnails")}));

    // Empty names get names of their own, never one already in use.
    const std::string a =
        manager.beginSessionWithName("", PHImageContentModeAspectFill, false, false, false);
    const std::string b =
        manager.beginSessionWithName("", PHImageContentModeAspectFit, true, true, true);
    EXPECT_FALSE(a.empty());
    EXPECT_NE(a, b);
    ASSERT_TRUE(manager.sessionWithName(b));
    EXPECT_TRUE(manager.sessionWithName(b)->imageManager->allowsCachingHighQualityImages());

    // Beginning a name again ends the old session: its caching manager is let go.
    auto first = manager.sessionWithName(a);
    const std::string again =
        manager.beginSessionWithName(a, PHImageContentModeAspectFit, true, false, false);
    EXPECT_EQ(again, a);
    EXPECT_FALSE(first->imageManager);
    auto second = manager.sessionWithName(a);
    ASSERT_TRUE(second);
    EXPECT_NE(second, first);
    EXPECT_EQ(second->contentMode, PHImageContentModeAspectFit);

    manager.sessionWithNameSetTargetSize(a, CGSize{120, 90});
    EXPECT_EQ(manager.sessionWithName(a)->targetSize.width, 120);

    manager.endSessionWithName(a);
    manager.endSessionWithName("");
    EXPECT_FALSE(manager.sessionWithName(a));
    EXPECT_TRUE(manager.sessionWithName(b));
    manager.endSessionWithName(b);

    // A thumbnail of a session that does not exist completes with nothing.
    bool done = false;
    std::optional<platform::Bitmap> image =
        platform::Bitmap(1, 1, {}, platform::ColorSpace::deviceRGB());
    manager.sessionWithNameRequestThumbnailForAsset("none", nullptr, [&](auto result) {
        image = std::move(result);
        done = true;
    });
    platform::MainRunLoop::runUntil([&] { return done; }, std::chrono::seconds(10));
    EXPECT_TRUE(done);
    EXPECT_FALSE(image);
    manager.setPhotoLibrary(nullptr);
}

TEST(VRCollection, PseudoCollectionsAndAlbums) {
    platform::PHAssetCollection album{"ALBUM-1", "Trip", 4};
    struct Row {
        VRCollection collection;
        VRCollectionType type;
        std::string identifier;
        std::string title;
    } rows[] = {
        {VRCollection::collectionWithObject(album, 4), VRCollectionTypeAssetCollection, "ALBUM-1",
         "Trip"},
        {VRCollection::collectionWithObject(VRClipboard::clipboard(), 0), VRCollectionTypeClipboard,
         "vr-clipboard", "Copied Photos"},
        {VRCollection::collectionWithObject(VRUnsaved::collection(), 2), VRCollectionTypeUnsaved,
         "vr-unsaved", "Unsaved items"},
        {VRCollection::collectionWithObject(VRTutorialCollection::collection(), 0),
         VRCollectionTypeTutorial, "vr-tutorial", "Tutorial"},
        {VRCollection::collectionWithObject({}, 0), VRCollectionTypeNone, "", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.collection.type(), row.type) << row.identifier;
        EXPECT_EQ(row.collection.objectIdentifier(), row.identifier);
        EXPECT_EQ(row.collection.localizedTitle(), row.title);
    }
    // Equality: same type and identifier; the count is no part of it.
    auto renamed = album;
    renamed.localizedTitle = "Trip 2";
    EXPECT_EQ(VRCollection::collectionWithObject(renamed, 9), rows[0].collection);
    EXPECT_EQ(VRCollection::collectionWithObject(renamed, 9).hash(), rows[0].collection.hash());
    EXPECT_FALSE(rows[1].collection == rows[2].collection);
    // An album that happens to carry a pseudo-collection's identifier is still an album.
    platform::PHAssetCollection lookalike{"vr-unsaved", "Unsaved items", 0};
    EXPECT_FALSE(VRCollection::collectionWithObject(lookalike, 0) == rows[2].collection);
    EXPECT_FALSE(rows[4].collection == rows[4].collection);
}
