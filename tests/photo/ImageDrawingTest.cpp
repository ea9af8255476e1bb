#include <gtest/gtest.h>

#include <cstring>

#include "photo/ImageDrawing.h"
#include "photo/PhotoSupport.h"
#include "platform/Log.h"

using namespace platform;
using photo_test::colourAt;
using photo_test::corners;

namespace {

constexpr VRImageArrangementBits kStretch =
    VRImageArrangementOriented | VRImageArrangementSourceColorSpace;
constexpr VRImageArrangementBits kFit = kStretch | VRImageArrangementFit;
constexpr VRImageArrangementBits kClip = kStretch | VRImageArrangementFill;

// A picture of four flat quadrants: red top-left, green top-right, blue bottom-left, white
// bottom-right, so that every turn and mirror shows.
Bitmap quadrants(std::size_t w, std::size_t h, CGImageAlphaInfo alpha = kCGImageAlphaNoneSkipLast,
                 int bits = 8) {
    PixelLayout layout{bits, 3, alpha};
    std::vector<std::uint8_t> px(w * h * layout.bytesPerPixel());
    const std::uint16_t colours[4][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 1}};
    for (std::size_t y = 0; y < h; ++y)
        for (std::size_t x = 0; x < w; ++x) {
            const auto* c = colours[(y >= h / 2 ? 2 : 0) + (x >= w / 2 ? 1 : 0)];
            for (int k = 0; k < 4; ++k) {
                const std::uint16_t v = k < 3 ? c[k] * 65535 : 65535;
                const std::size_t at = (y * w + x) * 4 + k;
                if (bits == 16)
                    std::memcpy(&px[at * 2], &v, 2);
                else
                    px[at] = static_cast<std::uint8_t>(v >> 8);
            }
        }
    return Bitmap(w, h, layout, ColorSpace::deviceRGB(), px);
}

std::optional<Bitmap> render(const Bitmap& image, std::int64_t orientation,
                             VRImageArrangementBits bits, std::optional<VRColor> fill,
                             CGSize target, CGPoint d = {}) {
    return VRRenderCGImage(image, orientation, kCGInterpolationHigh, fill, bits, 1, 0, CGRect{},
                           target, d);
}

TEST(ImageDrawing, OrientationsTurnAndMirrorThePixelsOrNotWithoutTheOrientedBit) {
    const Bitmap source = quadrants(60, 40);
    // Stored RGBW (row by row); what each platform orientation shows when applied.
    struct Case {
        std::int64_t orientation;
        const char* shown;
        bool turned;
    };
    const std::vector<Case> cases = {
        {0, "RGBW", false}, {1, "WBGR", false}, {2, "GWRB", true}, {3, "BRWG", true},
        {4, "GRWB", false}, {5, "BWRG", false}, {6, "RBGW", true}, {7, "WGBR", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.orientation);
        auto out = render(source, c.orientation, kStretch, VRColor::whiteColor(), {0, 0});
        ASSERT_TRUE(out);
        EXPECT_EQ(out->width(), c.turned ? 40u : 60u);
        EXPECT_EQ(out->height(), c.turned ? 60u : 40u);
        EXPECT_EQ(corners(*out), c.shown);
        // Without the Oriented bit the work stays in the stored frame.
        auto stored = render(source, c.orientation, VRImageArrangementSourceColorSpace,
                             VRColor::whiteColor(), {0, 0});
        ASSERT_TRUE(stored);
        EXPECT_EQ(stored->width(), 60u);
        EXPECT_EQ(corners(*stored), "RGBW");
    }
}

TEST(ImageDrawing, FitClipAndStretchPlaceThePictureInTheFrame) {
    const Bitmap source = quadrants(200, 100);
    // Fit into a square: bars of 50 rows above and below; clip: the middle 100 columns.
    auto fit = render(source, 0, kFit, VRColor::blackColor(), {200, 200});
    ASSERT_TRUE(fit);
    EXPECT_EQ(colourAt(*fit, 100, 20), 'K');
    EXPECT_EQ(colourAt(*fit, 100, 180), 'K');
    EXPECT_EQ(colourAt(*fit, 20, 60), 'R');
    EXPECT_EQ(colourAt(*fit, 180, 140), 'W');

    auto clip = render(source, 0, kClip, VRColor::blackColor(), {100, 100});
    ASSERT_TRUE(clip);
    EXPECT_EQ(corners(*clip), "RGBW");
    EXPECT_EQ(colourAt(*clip, 0, 0), 'R');
    EXPECT_EQ(colourAt(*clip, 99, 99), 'W');

    auto stretch = render(source, 0, kStretch, VRColor::blackColor(), {50, 300});
    ASSERT_TRUE(stretch);
    EXPECT_EQ(stretch->width(), 50u);
    EXPECT_EQ(stretch->height(), 300u);
    EXPECT_EQ(corners(*stretch), "RGBW");

    // Fractional targets are truncated; a side below one pixel gives nothing.
    auto truncated = render(source, 0, kStretch, VRColor::whiteColor(), {99.9, 10.2});
    ASSERT_TRUE(truncated);
    EXPECT_EQ(truncated->width(), 99u);
    EXPECT_EQ(truncated->height(), 10u);
    EXPECT_FALSE(render(source, 0, kStretch, VRColor::whiteColor(), {0.5, 10}));
    EXPECT_FALSE(render(Bitmap(), 0, kStretch, VRColor::whiteColor(), {10, 10}));
}

TEST(ImageDrawing, DisplacementMovesRightAndDownInDisplayedOrientation) {
    const Bitmap source = quadrants(100, 100);
    // Fit 100x100 into 300x100 (columns 100 to 200) and move it 100 px right.
    auto moved = render(source, 0, kFit, VRColor::blackColor(), {300, 100}, {100, 0});
    ASSERT_TRUE(moved);
    EXPECT_EQ(colourAt(*moved, 50, 50), 'K');
    EXPECT_EQ(colourAt(*moved, 150, 50), 'K');
    EXPECT_EQ(colourAt(*moved, 220, 20), 'R');
    EXPECT_EQ(colourAt(*moved, 280, 80), 'W');
    // Downwards, for a picture displayed turned (orientation 3, right): the displacement is in
    // the displayed frame, not the stored one.
    auto down = render(source, 3, kFit, VRColor::blackColor(), {100, 300}, {0, 100});
    ASSERT_TRUE(down);
    EXPECT_EQ(colourAt(*down, 50, 50), 'K');
    EXPECT_EQ(colourAt(*down, 50, 150), 'K');
    EXPECT_EQ(colourAt(*down, 20, 220), 'B');
    EXPECT_EQ(colourAt(*down, 80, 280), 'G');
}

TEST(ImageDrawing, ContextKeepsTheSourceLayoutOrFallsBackToDeviceRgb) {
    struct Case {
        const char* name;
        Bitmap source;
        std::optional<VRColor> fill;
        std::size_t bits;
        CGImageAlphaInfo alpha;
        bool grey;
    };
    const Bitmap greyOpaque(8, 8, PixelLayout{8, 1, kCGImageAlphaNone}, ColorSpace::deviceGray());
    const std::vector<Case> cases = {
        {"opaque RGB, white", quadrants(8, 8), VRColor::whiteColor(), 8, kCGImageAlphaNoneSkipLast,
         false},
        {"opaque RGB, half-transparent fill gets alpha", quadrants(8, 8), VRColor{1, 0, 0, 0.5}, 8,
         kCGImageAlphaPremultipliedLast, false},
        {"opaque RGB, 0.9995 counts as opaque", quadrants(8, 8), VRColor{1, 0, 0, 0.9995}, 8,
         kCGImageAlphaNoneSkipLast, false},
        {"opaque RGB, clear", quadrants(8, 8), VRColor::clearColor(), 8,
         kCGImageAlphaPremultipliedLast, false},
        {"straight alpha becomes premultiplied", quadrants(8, 8, kCGImageAlphaLast),
         VRColor::whiteColor(), 8, kCGImageAlphaPremultipliedLast, false},
        {"16 bits stay 16 bits", quadrants(8, 8, kCGImageAlphaLast, 16), std::nullopt, 16,
         kCGImageAlphaPremultipliedLast, false},
        {"grey stays grey", greyOpaque, VRColor::whiteColor(), 8, kCGImageAlphaNone, true},
        {"grey with a translucent fill falls back to device RGB", greyOpaque, VRColor::clearColor(),
         8, kCGImageAlphaPremultipliedLast, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto out = render(c.source, 0, kFit, c.fill, {16, 8});
        ASSERT_TRUE(out);
        EXPECT_EQ(out->bitsPerComponent(), c.bits);
        EXPECT_EQ(out->alphaInfo(), c.alpha);
        EXPECT_EQ(out->colorSpace().model() == ColorSpace::Model::Gray, c.grey);
    }
    // Without the source bit: always 8-bit device RGB.
    auto device = render(quadrants(8, 8, kCGImageAlphaLast, 16), 0, VRImageArrangementFit,
                         std::nullopt, {16, 8});
    ASSERT_TRUE(device);
    EXPECT_EQ(device->bitsPerComponent(), 8u);
    EXPECT_EQ(device->alphaInfo(), kCGImageAlphaPremultipliedLast);
}

TEST(ImageDrawing, MarginsAreTransparentForClearAndFilledOtherwise) {
    const Bitmap source = quadrants(100, 100);
    auto clear = render(source, 0, kFit, VRColor::clearColor(), {200, 100});
    auto none = render(source, 0, kFit, std::nullopt, {200, 100});
    auto white = render(source, 0, kFit, VRColor::whiteColor(), {200, 100});
    ASSERT_TRUE(clear && none && white);
    EXPECT_EQ(colourAt(*clear, 10, 50), '.');
    EXPECT_EQ(colourAt(*clear, 60, 20), 'R');
    // No colour on an opaque layout clears to black.
    EXPECT_EQ(colourAt(*none, 10, 50), 'K');
    EXPECT_EQ(colourAt(*white, 10, 50), 'W');
    EXPECT_EQ(colourAt(*white, 190, 50), 'W');
}

TEST(ImageDrawing, CropPicksTheRegionInDisplayedOrientation) {
    const Bitmap source = quadrants(100, 60);
    // The top-right quadrant, in displayed orientation, for the image as stored and turned.
    auto plain = VRRenderCGImage(source, 0, kCGInterpolationHigh, VRColor::whiteColor(), kStretch,
                                 1, 0, {{50, 0}, {50, 30}}, {0, 0}, {});
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->width(), 50u);
    EXPECT_EQ(corners(*plain), "GGGG");
    // Orientation 3 shows BRWG (60 x 100): its top-right quarter is red.
    auto turned = VRRenderCGImage(source, 3, kCGInterpolationHigh, VRColor::whiteColor(), kStretch,
                                  1, 0, {{30, 0}, {30, 50}}, {0, 0}, {});
    ASSERT_TRUE(turned);
    EXPECT_EQ(turned->width(), 30u);
    EXPECT_EQ(turned->height(), 50u);
    EXPECT_EQ(corners(*turned), "RRRR");
}

TEST(ImageDrawing, APictureThatCannotBeDrawnGivesNoBitmapButItsReason) {
    // A crop far beyond the picture shrinks it past what the resampler can filter (a filter
    // wider than 2^31 taps), so the draw itself fails; the margins alone are no result.
    const Bitmap source = quadrants(8, 8);
    ErrorRef error;
    auto refused = VRRenderCGImage(source, 0, kCGInterpolationHigh, VRColor::whiteColor(), kStretch,
                                   1, 0, CGRect{{0, 0}, {1e12, 1e12}}, {10, 10}, {}, &error);
    EXPECT_FALSE(refused);
    ASSERT_TRUE(error);
    EXPECT_NE(error->description().find("could not be drawn"), std::string::npos)
        << error->description();
    // The same call within the resampler's reach draws.
    ErrorRef none;
    auto drawn = VRRenderCGImage(source, 0, kCGInterpolationHigh, VRColor::whiteColor(), kStretch,
                                 1, 0, CGRect{{0, 0}, {8, 8}}, {10, 10}, {}, &none);
    ASSERT_TRUE(drawn);
    EXPECT_FALSE(none);
    EXPECT_EQ(corners(*drawn), "RGBW");
}

TEST(ImageDrawing, RenderImageTagsTheResultByTheOrientedBit) {
    auto image = VRImage::imageWithCGImage(quadrants(60, 40), 2, 3);
    auto oriented = VRRenderImage(*image, kCGInterpolationMedium, std::nullopt, kStretch, 0,
                                  CGRect{}, {0, 0}, {});
    ASSERT_TRUE(oriented);
    EXPECT_EQ(oriented->imageOrientation(), 0);
    EXPECT_EQ(oriented->scale(), 2);
    EXPECT_EQ(oriented->pixelSize(), (CGSize{40, 60}));
    auto stored = VRRenderImage(*image, kCGInterpolationMedium, std::nullopt,
                                VRImageArrangementSourceColorSpace, 0, CGRect{}, {0, 0}, {});
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->imageOrientation(), 3);
    EXPECT_EQ(stored->size(), (CGSize{20, 30}));
}

}  // namespace
