// Drawing in bands of output rows on several threads gives the very pixels of one pass over
// the whole picture, for every method, orientation and source depth the photo stage meets.
#include <gtest/gtest.h>

#include <cstring>

#include "model/ImageRendering.h"
#include "photo/PhotoSupport.h"

using namespace photo_test;
using platform::Bitmap;
using platform::BitmapContext;
using testing_support::TestHome;

namespace {

constexpr VRImageArrangementBits kBase =
    VRImageArrangementOriented | VRImageArrangementSourceColorSpace;

// The first row and column where two drawings differ, or "" when every byte is the same.
std::string firstDifference(const Bitmap& a, const Bitmap& b) {
    if (a.width() != b.width() || a.height() != b.height() || a.layout() != b.layout())
        return "sizes or layouts differ";
    const std::size_t bytes = a.width() * static_cast<std::size_t>(a.layout().bytesPerPixel());
    for (std::size_t y = 0; y < a.height(); ++y)
        if (std::memcmp(a.row(y), b.row(y), bytes) != 0) return "row " + std::to_string(y);
    return "";
}

struct BandsGuard {
    ~BandsGuard() { BitmapContext::setDrawingBands(0); }
};

}  // namespace

TEST(DrawingBandsMedia, BandsOnThreadsDrawWhatOnePassDrawsForEveryMethodAndOrientation) {
    TestHome home;
    BandsGuard guard;
    const std::string texture = " plasma:fractal -blur 0x1 ";
    run("convert -seed 7 -size 301x203" + texture + "-quality 92 '" + home.path("s.jpg") + "'");
    run("convert -seed 8 -size 301x203" + texture + "PNG24:'" + home.path("s8.png") + "'");
    run("convert -seed 9 -size 301x203" + texture +
        "'(' -size 203x301 gradient:white-gray20 -rotate 90 ')' -alpha off -compose CopyOpacity "
        "-composite -depth 16 PNG64:'" +
        home.path("s16.png") + "'");
    const VRColor white{1, 1, 1, 1}, veil{0.2, 0.4, 0.6, 0.5};
    struct Method {
        const char* name;
        VRImageArrangementBits bits;
        CGSize target;
        std::optional<VRColor> fill;
        CGPoint displacement;
    } methods[] = {
        {"stretch up", kBase, {419.5, 241}, std::nullopt, {0, 0}},
        {"stretch down", kBase, {150, 97}, std::nullopt, {0, 0}},
        {"fit with fill", kBase | VRImageArrangementFit, {257, 257}, white, {3, -7}},
        {"fit with translucent fill", kBase | VRImageArrangementFit, {180, 260}, veil, {0, 0}},
        {"clip", kBase | VRImageArrangementFill, {233, 233}, std::nullopt, {-5, 4}},
    };
    for (const char* name : {"s.jpg", "s8.png", "s16.png"}) {
        auto source = decode(home.path(name));
        ASSERT_TRUE(source) << name;
        for (const auto& m : methods)
            for (std::int64_t orientation = 0; orientation < 8; ++orientation) {
                SCOPED_TRACE(std::string(name) + " " + m.name + " orientation " +
                             std::to_string(orientation + 1));
                auto draw = [&](std::size_t bands) {
                    BitmapContext::setDrawingBands(bands);
                    return VRRenderCGImage(*source, orientation, platform::kCGInterpolationHigh,
                                           m.fill, m.bits, 1, 0, CGRect{}, m.target,
                                           m.displacement);
                };
                auto whole = draw(1);
                ASSERT_TRUE(whole);
                for (std::size_t bands : {2u, 3u, 7u}) {
                    auto banded = draw(bands);
                    ASSERT_TRUE(banded);
                    EXPECT_EQ(firstDifference(*whole, *banded), "") << bands << " bands";
                }
            }
    }
}
