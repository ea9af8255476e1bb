#include <gtest/gtest.h>

#include <chrono>

#include "assets/VRURLAsset.h"
#include "editing/VRAdjustSizeController.h"
#include "photo/PhotoSupport.h"
#include "platform/Dispatch.h"

using testing_support::TestHome;

namespace {

VXTemplateRef squareFit(std::uint64_t mediaType) {
    auto tpl = VXTemplate::create();
    tpl->setSizeEntry(VRSizeEntry::sizeEntryWithWidth(1080, 1080, VRSizeTypePixels), mediaType);
    tpl->setOptions(VRSizeOptions{VRSizeOptionNormal, VRSizeOptionRatioFit}, mediaType);
    return tpl;
}

VRAssetRef fileAsset(const std::string& path) {
    return VRAsset::assetWithObject(VRURLAsset::urlAssetWithURL(path));
}

std::optional<platform::Bitmap> preview(const VRAdjustSizeController& session,
                                        const VRAssetRef& asset, CGSize size) {
    bool done = false;
    std::optional<platform::Bitmap> image;
    session.requestPreviewImageForAsset(asset, size, [&](std::optional<platform::Bitmap> i) {
        image = std::move(i);
        done = true;
    });
    EXPECT_TRUE(platform::MainRunLoop::runUntil([&] { return done; }, std::chrono::seconds(30)));
    return image;
}

// Where the picture starts along the middle row (or column): the first pixel whose red is
// above (a white picture on black bars) or below (a dark picture on white or red margins)
// half, or -1.
int pictureStart(const platform::Bitmap& b, bool vertical, bool bright = true) {
    const std::size_t n = vertical ? b.height() : b.width();
    for (std::size_t i = 0; i < n; ++i) {
        auto p = vertical ? b.pixelAt(b.width() / 2, i) : b.pixelAt(i, b.height() / 2);
        if ((p.r > 32768) == bright) return static_cast<int>(i);
    }
    return -1;
}

// A preview is the item as the session's state makes it, scaled into the box: a photo whose
// file says it is turned is tall on the screen, so it takes a sideways drag; the drag of 100
// output pixels is 25 preview pixels at a quarter of the size, and the picked colour fills
// the margins.
TEST(VRAdjustSizeControllerMedia, PreviewsDrawTheItemsState) {
    TestHome home;
    const std::string photo = home.path("turned.jpg");
    photo_test::run("convert -size 100x50 xc:'#002040' '" + photo + "'");
    photo_test::run("exiftool -q -overwrite_original -Orientation=6 -n '" + photo + "'");
    auto asset = fileAsset(photo);
    VRAdjustSizeController session({asset}, *squareFit(VRFormatMediaTypePhoto),
                                   VRFormatMediaTypePhoto);
    auto centred = preview(session, asset, {270, 400});
    ASSERT_TRUE(centred);
    EXPECT_EQ(centred->width(), 270u);
    EXPECT_EQ(centred->height(), 270u);
    EXPECT_NEAR(pictureStart(*centred, false, false), 67, 2);
    EXPECT_GT(centred->pixelAt(2, 135).g, 0xF000);  // white margins without a colour

    ASSERT_TRUE(session.beginPan({100, 0}, 2));
    session.changePan({100, 0}, {1080, 1080});
    session.endPan();
    session.setPickedColor({1, 0, 0, 1});
    auto moved = preview(session, asset, {270, 270});
    ASSERT_TRUE(moved);
    EXPECT_NEAR(pictureStart(*moved, false, false), 92, 2);
    EXPECT_GT(moved->pixelAt(2, 135).r, 0xF000);
    EXPECT_LT(moved->pixelAt(2, 135).g, 0x1000);

    EXPECT_FALSE(preview(session, asset, {0, 100}));
    EXPECT_FALSE(preview(session, fileAsset(home.path("other.jpg")), {100, 100}));
}

// A movie's preview is its frame in the frame of the output, with the black bars a video gets
// without a colour of its own.
TEST(VRAdjustSizeControllerMedia, MoviePreviewsTakeAFrame) {
    TestHome home;
    const std::string movie = home.path("clip.mp4");
    photo_test::run("ffmpeg -v error -f lavfi -i color=white:s=128x64:d=1 -pix_fmt yuv420p '" +
                    movie + "'");
    auto asset = fileAsset(movie);
    VRAdjustSizeController session({asset}, *squareFit(VRFormatMediaTypeVideo),
                                   VRFormatMediaTypeVideo);
    auto image = preview(session, asset, {100, 100});
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width(), 100u);
    EXPECT_EQ(image->height(), 100u);
    EXPECT_NEAR(pictureStart(*image, true), 25, 2);
    EXPECT_LT(image->pixelAt(50, 5).r, 0x1000);
}

}  // namespace
