#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "../platform/PhotoLibraryTestSupport.h"
#include "assets/VRAssetManager2Internal.h"
#include "assets/VRAssetThumbnails.h"
#include "platform/ImageSource.h"
#include "support/TestHome.h"

namespace {

TEST(VRAssetThumbnails, SizeKeepsProportionsAndNeverEnlarges) {
    struct Case {
        CGSize source, target;
        PHImageContentMode mode;
        CGSize size;
    };
    const Case cases[] = {
        {{4000, 3000}, {256, 256}, PHImageContentModeAspectFit, {256, 192}},
        {{4000, 3000}, {256, 256}, PHImageContentModeAspectFill, {341, 256}},
        {{3000, 4000}, {256, 256}, PHImageContentModeAspectFit, {192, 256}},
        {{100, 50}, {256, 256}, PHImageContentModeAspectFill, {100, 50}},
        {{10000, 1}, {100, 100}, PHImageContentModeAspectFit, {100, 1}},
        {{0, 50}, {256, 256}, PHImageContentModeAspectFit, {0, 0}},
        {{100, 50}, {0, 256}, PHImageContentModeAspectFit, {0, 0}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(VRThumbnailSizeForSize(c.source, c.target, c.mode), c.size)
            << c.source.width << "x" << c.source.height << " mode " << c.mode;
}

TEST(VRAssetThumbnails, FileIsAnUprightJpegAndNothingComesOfAnUnreadableFile) {
    testing_support::TestHome home;
    const std::string photo = home.path("in/turned.jpg");
    // Stored 80 x 40, shown as 40 x 80.
    photolibrary_test::makeJpeg(photo, 80, 40, "-Orientation=6 -n");
    const std::string thumb = home.path("thumbs/t.jpg");
    std::filesystem::create_directories(home.path("thumbs"));

    auto image = VRCreateThumbnailForURL(photo, thumb, {20, 20}, PHImageContentModeAspectFit, true);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width(), 10u);
    EXPECT_EQ(image->height(), 20u);
    auto source = platform::ImageSource::createWithURL(thumb);
    ASSERT_TRUE(source);
    EXPECT_EQ(source->type(), "public.jpeg");
    auto written = source->createImageAtIndex(0);
    ASSERT_TRUE(written);
    EXPECT_EQ(written->width(), 10u);
    EXPECT_EQ(written->height(), 20u);

    // A movie gives its frame: testsrc is 64 x 48.
    const std::string movie = home.path("in/clip.mov");
    photolibrary_test::makeMovie(movie);
    auto frame = VRCreateThumbnailForURL(movie, home.path("thumbs/m.jpg"), {32, 32},
                                         PHImageContentModeAspectFit, true);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->width(), 32u);
    EXPECT_EQ(frame->height(), 24u);
    EXPECT_TRUE(std::filesystem::exists(home.path("thumbs/m.jpg")));

    // Not a picture: nothing, and no file.
    const std::string text = home.path("in/notes.jpg");
    std::ofstream(text) << "not a picture";
    EXPECT_FALSE(VRCreateThumbnailForURL(text, home.path("thumbs/n.jpg"), {20, 20},
                                         PHImageContentModeAspectFit, true));
    EXPECT_FALSE(std::filesystem::exists(home.path("thumbs/n.jpg")));
    // A folder that doesn't exist: the image can't be kept, so nothing is answered.
    EXPECT_FALSE(VRCreateThumbnailForURL(photo, home.path("nowhere/t.jpg"), {20, 20},
                                         PHImageContentModeAspectFit, true));
}

// A JPEG large enough for a reduced decode gives the thumbnail the full decode would: the same
// size, turned the same way, and the same pixels within the scaling's rounding.
TEST(VRAssetThumbnails, ReducedDecodeOfAJpegDrawsWhatTheFullDecodeDraws) {
    testing_support::TestHome home;
    const std::string photo = home.path("in/turned.jpg");
    photolibrary_test::makeJpeg(photo, 640, 480, "-Orientation=6 -n");
    for (PHImageContentMode mode : {PHImageContentModeAspectFill, PHImageContentModeAspectFit}) {
        SCOPED_TRACE(mode);
        auto reduced = VRThumbnailForURL(photo, {152, 152}, mode);
        auto picture = vr_asset_manager::pictureAtPath(photo, false);
        ASSERT_TRUE(reduced && picture);
        auto full = vr_asset_manager::drawPicture(
            *picture, {152, 152}, mode,
            static_cast<VRImageArrangementBits>(VRImageArrangementIntegral |
                                                VRImageArrangementOriented));
        ASSERT_TRUE(full);
        ASSERT_EQ(reduced->width(), full->width());
        ASSERT_EQ(reduced->height(), full->height());
        EXPECT_LT(reduced->width(), reduced->height()) << "shown upright";
        ASSERT_EQ(reduced->bitsPerPixel(), full->bitsPerPixel());
        double sum = 0;
        std::size_t count = 0;
        const std::size_t rowBytes = reduced->width() * reduced->bitsPerPixel() / 8;
        for (std::size_t y = 0; y < reduced->height(); ++y) {
            const std::uint8_t* a = reduced->data() + y * reduced->bytesPerRow();
            const std::uint8_t* b = full->data() + y * full->bytesPerRow();
            for (std::size_t i = 0; i < rowBytes; ++i, ++count) sum += std::abs(a[i] - b[i]);
        }
        EXPECT_LT(sum / double(count), 2.0);
    }
}

}  // namespace
