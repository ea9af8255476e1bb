#include <gtest/gtest.h>

#include "../platform/PhotoLibraryTestSupport.h"
#include "assets/VRAsset.h"
#include "assets/VRLocalAsset.h"
#include "support/TestHome.h"

namespace {

using photolibrary_test::makeJpeg;
using photolibrary_test::makeMovie;

TEST(VRLocalAsset, ReadsItsFileLazilyAndIsNamedByItsIdentifier) {
    testing_support::TestHome home;
    const std::string photo = home.path("results/B1/main/shot.jpg");
    const std::string thumb = home.path("results/B1/thumbnail.jpg");
    const std::string movie = home.path("results/B2/main/clip.mov");
    // A quarter-turned photo reads with its sides exchanged.
    makeJpeg(photo, 60, 40, "-Orientation=6 -n");
    makeJpeg(thumb, 12, 8);
    makeMovie(movie);
    const auto date = platform::PlistDate::fromTimeIntervalSince1970(1000);

    auto still = VRLocalAsset::localAssetWithIdentifier("B1", VRFormatMediaTypePhoto, photo, thumb,
                                                        std::nullopt, date);
    EXPECT_EQ(still->pixelSize(), (CGSize{40, 60}));
    EXPECT_EQ(still->duration(), 0);
    EXPECT_EQ(still->originalFilename(), "shot.jpg");
    EXPECT_EQ(still->modificationDate(), std::optional(date));
    auto thumbnail = still->thumbnailImage();
    ASSERT_TRUE(thumbnail);
    EXPECT_EQ(thumbnail->width(), 12u);

    auto clip = VRLocalAsset::localAssetWithIdentifier(
        "B2", VRFormatMediaTypeVideo, movie, home.path("missing.jpg"), std::nullopt, date);
    EXPECT_EQ(clip->pixelSize(), (CGSize{64, 48}));
    EXPECT_NEAR(clip->duration(), 0.5, 0.05);
    EXPECT_FALSE(clip->thumbnailImage());

    // A file that is gone keeps the defaults instead of failing.
    auto gone = VRLocalAsset::localAssetWithIdentifier(
        "B3", VRFormatMediaTypePhoto, home.path("gone.jpg"), "", std::nullopt, date);
    EXPECT_EQ(gone->pixelSize(), (CGSize{640, 480}));

    // Identity is the identifier; a local Live Photo still answers false, its movie is found
    // through the paired URL.
    auto sameName = VRLocalAsset::localAssetWithIdentifier("B1", VRFormatMediaTypePhoto, movie, "",
                                                           movie, date);
    EXPECT_TRUE(still->isEqual(*sameName));
    EXPECT_EQ(still->hash(), sameName->hash());
    EXPECT_FALSE(still->isEqual(*clip));
    auto wrapped = VRAsset::assetWithObject(sameName, 0);
    EXPECT_FALSE(wrapped->livePhoto());
    EXPECT_EQ(sameName->pairedVideoURL(), std::optional(movie));
    EXPECT_EQ(wrapped->type(), VRAssetIdentifierTypeLocal);
    EXPECT_EQ(wrapped->objectIdentifier(), "B1");
}

}  // namespace
