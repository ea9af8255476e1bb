// Shrink-on-load: the reduced JPEG decode, and drawings from it against the same drawings from
// the whole decode, in every orientation and method, down to the photo stage's results.
#include <gtest/gtest.h>

#include <cmath>

#include "model/ImageRendering.h"
#include "photo/PhotoSupport.h"

using namespace photo_test;
using platform::Bitmap;
using platform::ImageSource;
using testing_support::TestHome;

namespace {

constexpr VRImageArrangementBits kBase =
    VRImageArrangementOriented | VRImageArrangementSourceColorSpace;

double psnr(const Bitmap& a, const Bitmap& b) {
    double sum = 0;
    for (std::size_t y = 0; y < a.height(); ++y)
        for (std::size_t x = 0; x < a.width(); ++x) {
            auto p = a.pixelAt(x, y), q = b.pixelAt(x, y);
            for (double d : {double(p.r) - q.r, double(p.g) - q.g, double(p.b) - q.b})
                sum += (d / 257) * (d / 257);
        }
    double mse = sum / (3.0 * double(a.width() * a.height()));
    return mse == 0 ? INFINITY : 10 * std::log10(255.0 * 255.0 / mse);
}

// Smooth colour with a soft off-centre disc: any misplacement of the reduced grid shows as
// error along the disc's edge, and any wrong turn moves the disc.
std::string picture(const TestHome& home, const std::string& name, int w, int h) {
    const std::string path = home.path(name);
    run("convert -size " + std::to_string(w) + "x" + std::to_string(h) +
        " gradient:orange-navy -fill white -draw 'circle " + std::to_string(w / 3) + "," +
        std::to_string(h / 3) + " " + std::to_string(w / 3 + h / 5) + "," + std::to_string(h / 3) +
        "' -blur 0x2 -quality 95 '" + path + "'");
    return path;
}

}  // namespace

TEST(ShrinkOnLoadMedia, JpegsDecodeReducedWhereTheirSidesDivideAndOtherFormatsNever) {
    TestHome home;
    const std::string even = picture(home, "even.jpg", 64, 48);
    const std::string odd = picture(home, "odd.jpg", 60, 44);
    const std::string png = picture(home, "even.png", 64, 48);
    struct Case {
        const std::string* path;
        std::uint32_t denominator;
        bool reducible;
        std::size_t width, height;
    } cases[] = {
        {&even, 2, true, 32, 24}, {&even, 4, true, 16, 12}, {&even, 8, true, 8, 6},
        {&even, 3, false, 0, 0},  {&even, 1, false, 0, 0},  {&odd, 4, true, 15, 11},
        {&odd, 8, false, 0, 0},   {&png, 2, false, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(*c.path + " 1/" + std::to_string(c.denominator));
        auto source = ImageSource::createWithURL(*c.path);
        ASSERT_TRUE(source);
        EXPECT_EQ(source->canDecodeReduced(c.denominator), c.reducible);
        platform::ErrorRef error;
        auto reduced = source->createReducedImage(c.denominator, &error);
        ASSERT_EQ(reduced.has_value(), c.reducible);
        if (!reduced) {
            EXPECT_TRUE(error);
            continue;
        }
        EXPECT_EQ(reduced->width(), c.width);
        EXPECT_EQ(reduced->height(), c.height);
    }
}

TEST(ShrinkOnLoadMedia, DrawingsFromAReducedDecodeMatchTheWholeDecodeInEveryOrientation) {
    TestHome home;
    auto source = ImageSource::createWithURL(picture(home, "p.jpg", 640, 480));
    ASSERT_TRUE(source);
    auto whole = source->createImageAtIndex(0);
    ASSERT_TRUE(whole);
    const VRColor white{1, 1, 1, 1};
    struct Method {
        const char* name;
        VRImageArrangementBits bits;
        CGSize target;
        std::optional<VRColor> fill;
    } methods[] = {
        {"stretch", kBase, {150, 110}, std::nullopt},
        {"fit with fill", kBase | VRImageArrangementFit, {140, 140}, white},
        {"clip", kBase | VRImageArrangementFill, {120, 120}, std::nullopt},
    };
    for (std::uint32_t d : {2u, 4u}) {
        auto reduced = source->createReducedImage(d);
        ASSERT_TRUE(reduced);
        for (const auto& m : methods)
            for (std::int64_t orientation = 0; orientation < 8; ++orientation) {
                SCOPED_TRACE(std::string(m.name) + " orientation " + std::to_string(orientation) +
                             " 1/" + std::to_string(d));
                auto draw = [&](const Bitmap& b) {
                    return VRRenderCGImage(b, orientation, platform::kCGInterpolationHigh, m.fill,
                                           m.bits, 1, 0, CGRect{}, m.target, {3, -2});
                };
                auto expected = draw(*whole), actual = draw(*reduced);
                ASSERT_TRUE(expected && actual);
                ASSERT_EQ(actual->width(), expected->width());
                ASSERT_EQ(actual->height(), expected->height());
                EXPECT_GE(psnr(*expected, *actual), 40.0);
            }
    }
}

TEST(ShrinkOnLoadMedia, ThePhotoStageKeepsOrientationAndFrameWhenItDecodesReduced) {
    TestHome home;
    // 480 x 320 drawn at 96 x 64 or 100 x 100 leaves 2.4x or more after a decode at 1/2.
    const std::string base = quadrants(home, "base.jpg", 480, 320, "-quality 95");
    const VRSizeOptions stretch = {VRSizeOptionNormal, VRSizeOptionStretch};
    const VRSizeOptions fit = {VRSizeOptionNormal, VRSizeOptionRatioFit};
    const VRSizeOptions clip = {VRSizeOptionNormal, VRSizeOptionRatioClip};
    struct Template {
        const char* name;
        VXTemplateRef tpl;
        const char* magick;  // the same geometry for ImageMagick, after -auto-orient
    } templates[] = {
        {"20 % stretch", makeTemplate(20, 20, VRSizeTypePercent, stretch, VRFormatTypePNG),
         "-resize 20%"},
        {"fit 100", makeTemplate(100, 100, VRSizeTypePixels, fit, VRFormatTypePNG),
         "-resize 100x100 -background none -gravity center -extent 100x100"},
        {"clip 100", makeTemplate(100, 100, VRSizeTypePixels, clip, VRFormatTypePNG),
         "-resize 100x100^ -gravity center -extent 100x100"},
    };
    for (int orientation = 1; orientation <= 8; ++orientation) {
        const std::string source = home.path("o" + std::to_string(orientation) + ".jpg");
        run("cp '" + base + "' '" + source + "' && exiftool -q -overwrite_original -n " +
            "-IFD0:Orientation=" + std::to_string(orientation) + " '" + source + "'");
        for (const auto& t : templates) {
            SCOPED_TRACE(std::string(t.name) + " orientation " + std::to_string(orientation));
            const std::string expected = home.path("expected.png");
            run("convert '" + source + "' -auto-orient " + t.magick + " '" + expected + "'");
            Processed out = process(source, t.tpl);
            ASSERT_TRUE(out.result) << (out.error ? out.error->description() : "cancelled");
            EXPECT_EQ(vipsSize(out.path()), vipsSize(expected));
            auto pixels = decode(out.path());
            auto reference = decode(expected);
            ASSERT_TRUE(pixels && reference);
            EXPECT_EQ(corners(*pixels), corners(*reference));
        }
    }
}
