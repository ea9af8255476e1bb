#include "core/VRSession.h"

#include <gtest/gtest.h>

#include "assets/VRAssetManager2.h"
#include "assets/VRDataAsset.h"

namespace {

TEST(VRSession, SizesAreKeptPerSourceChoiceAndFile) {
    VRSession session;
    // A data asset has no file: its modification date is the 1970 epoch.
    auto asset = VRAsset::assetWithObject(
        VRDataAsset::dataAssetWithData({0xFF, 0xD8, 0xFF, 0xE0, 1, 2, 3, 4}), 0);
    ASSERT_TRUE(asset);
    EXPECT_EQ(session._keyForAsset(*asset), "0-" + asset->objectIdentifier() + "-0.000000");
    session.setImageSize({400, 300}, *asset);
    EXPECT_EQ(session.imageSizeForAsset(*asset), std::optional(CGSize{400, 300}));
    // The source image choice is part of the key: a size of the edited version doesn't
    // answer for the original.
    session.setSourceImageEnabled(true);
    EXPECT_EQ(session._keyForAsset(*asset), "1-" + asset->objectIdentifier() + "-0.000000");
    EXPECT_FALSE(session.imageSizeForAsset(*asset));
    EXPECT_TRUE(VRAssetManager2::defaultManager().sourceImageEnabled());
    session.setSourceImageEnabled(false);
    EXPECT_FALSE(VRAssetManager2::defaultManager().sourceImageEnabled());
    session.setLoadImagesOnly(true);
    EXPECT_TRUE(VRAssetManager2::defaultManager().loadImagesOnly());
    session.setLoadImagesOnly(false);
    EXPECT_FALSE(VRAssetManager2::defaultManager().loadImagesOnly());
}

TEST(VRSession, LimitedPhotosAlertIsAskedForAtMostOnce) {
    VRSession session;
    EXPECT_FALSE(session.limitedPhotosAlertAllowedOnce());
    session.setNeedsShowOnceLimitedPhotosAlert(true);
    EXPECT_TRUE(session.needsShowOnceLimitedPhotosAlert());
    EXPECT_TRUE(session.limitedPhotosAlertAllowedOnce());
    // Shown: cleared, and a second request in this process is ignored.
    session.setNeedsShowOnceLimitedPhotosAlert(false);
    session.setNeedsShowOnceLimitedPhotosAlert(true);
    EXPECT_FALSE(session.needsShowOnceLimitedPhotosAlert());

    // A false first still uses up the one chance.
    VRSession other;
    other.setNeedsShowOnceLimitedPhotosAlert(false);
    other.setNeedsShowOnceLimitedPhotosAlert(true);
    EXPECT_FALSE(other.needsShowOnceLimitedPhotosAlert());
}

}  // namespace
