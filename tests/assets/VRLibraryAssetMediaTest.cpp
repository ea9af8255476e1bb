#include <gtest/gtest.h>

#include "../platform/PhotoLibraryTestSupport.h"
#include "assets/VRAssetManager2.h"
#include "assets/VRLibraryAsset.h"
#include "assets/VRPickerSelection.h"
#include "support/TestHome.h"

namespace {

using namespace platform;

TEST(VRLibraryAsset, AnswersFromTheLibraryRecord) {
    PHAsset live;
    live.localIdentifier = "L1";
    live.mediaType = PHAssetMediaTypeImage;
    live.mediaSubtypes = PHAssetMediaSubtypePhotoLive;
    live.pixelWidth = 40;
    live.pixelHeight = 30;
    live.resources = {{PHAssetResourceTypePairedVideo, "IMG_1.MOV", "/p/IMG_1.MOV"},
                      {PHAssetResourceTypePhoto, "IMG_1.HEIC", "/p/IMG_1.HEIC"}};
    auto object = VRLibraryAsset::assetWithPhotoAsset(live);
    // The first photo or video resource names it, whatever comes before.
    EXPECT_EQ(object->originalFilename(), "IMG_1.HEIC");
    EXPECT_EQ(object->primaryPath(), std::optional<std::string>("/p/IMG_1.HEIC"));
    EXPECT_EQ(object->moviePath(), std::optional<std::string>("/p/IMG_1.MOV"));
    EXPECT_EQ(object->mediaType(), VRFormatMediaTypePhoto);
    EXPECT_EQ(object->pixelSize(), (CGSize{40, 30}));

    // Two wrappers with different flags are one asset; a plain photo is no Live Photo.
    auto a = VRAsset::assetWithObject(object, 0);
    auto b = VRAsset::assetWithObject(VRLibraryAsset::assetWithPhotoAsset(live), 3);
    EXPECT_TRUE(a->livePhoto());
    EXPECT_TRUE(a->isEqual(*b));
    EXPECT_EQ(a->hash(), b->hash());
    EXPECT_EQ(a->objectIdentifier(), "L1");

    PHAsset bare;
    bare.localIdentifier = "L2";
    bare.mediaType = PHAssetMediaTypeVideo;
    auto none = VRAsset::assetWithObject(VRLibraryAsset::assetWithPhotoAsset(bare), 0);
    EXPECT_EQ(none->originalFilename(), "img");
    EXPECT_FALSE(none->livePhoto());
    EXPECT_EQ(none->mediaType(), VRFormatMediaTypeVideo);
    EXPECT_FALSE(a->isEqual(*none));
}

TEST(VRLibraryAsset, ManagerFindsAssetsByIdentifierUntilTheyAreGone) {
    testing_support::TestHome home;
    photolibrary_test::makeJpeg(home.path("Pictures/Trip/a.jpg"), 32, 24);
    auto library = photolibrary_test::openLibrary(home);
    ASSERT_TRUE(library);
    VRAssetManager2& manager = VRAssetManager2::defaultManager();
    manager.setPhotoLibrary(library);
    auto all = library->fetchAssetsWithOptions({});
    ASSERT_EQ(all.count(), 1u);
    const std::string id = all.firstObject()->localIdentifier;

    // Lists and the picker wrap library records as kind 1 through the manager's library.
    VRAssetList list(library->fetchAssetsWithOptions({}), 7);
    ASSERT_TRUE(list.assetAtIndex(0));
    EXPECT_EQ(list.assetAtIndex(0)->type(), VRAssetIdentifierTypeLibrary);
    EXPECT_EQ(list.assetAtIndex(0)->flag(), 7u);
    auto items = VRImportItemsForPickerResults({{"a.jpg", id}, {"b.jpg", "not in the library"}});
    ASSERT_EQ(items.size(), 2u);
    EXPECT_TRUE(items[0].accessable);
    ASSERT_TRUE(items[0].photoAsset);
    EXPECT_EQ(items[0].photoAsset->objectIdentifier(), id);
    EXPECT_FALSE(items[1].accessable);

    auto asset = manager.assetWithPhotoAssetIdentifier(id);
    ASSERT_TRUE(asset);
    EXPECT_EQ(asset->type(), VRAssetIdentifierTypeLibrary);
    EXPECT_EQ(asset->originalFilename(), "a.jpg");
    EXPECT_EQ(asset->pixelSize(), (CGSize{32, 24}));

    std::filesystem::remove(home.path("Pictures/Trip/a.jpg"));
    ASSERT_FALSE(library->rescan());
    EXPECT_FALSE(manager.assetWithPhotoAssetIdentifier(id));
    EXPECT_FALSE(manager.assetWithPhotoAssetIdentifier("no such asset"));
    manager.setPhotoLibrary(nullptr);
}

}  // namespace
