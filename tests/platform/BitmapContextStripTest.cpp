// A strip context moved from rows to rows reuses the buffers of strips let go, and a fill of
// all its rows is written only where the next draw leaves pixels uncovered: its rows must
// still come out byte for byte as a whole context, filled piece by piece, draws them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "platform/BitmapContext.h"

using namespace platform;

namespace {

struct Layout {
    const char* name;
    int bits;
    CGImageAlphaInfo alpha;
};

const Layout kLayouts[] = {
    {"8-bit premultiplied last", 8, kCGImageAlphaPremultipliedLast},
    {"8-bit skip last", 8, kCGImageAlphaNoneSkipLast},
    {"16-bit premultiplied first", 16, kCGImageAlphaPremultipliedFirst},
    {"16-bit skip first", 16, kCGImageAlphaNoneSkipFirst},
};

std::size_t bytesPerPixel(const Layout& l) {
    return static_cast<std::size_t>(l.bits / 8 * 4);
}

std::unique_ptr<BitmapContext> strip(const Layout& l, std::size_t w, std::size_t h,
                                     std::size_t first, std::size_t rows) {
    auto c = BitmapContext::createStrip(w, h, static_cast<std::size_t>(l.bits),
                                        ColorSpace::deviceRGB(), l.alpha, first, rows);
    EXPECT_TRUE(c) << l.name;
    return c;
}

// Noise in every sample, opaque unless `alpha`, where alpha varies and colour stays below it.
Bitmap noise(std::size_t w, std::size_t h, bool alpha) {
    PixelLayout layout{8, 3, alpha ? kCGImageAlphaPremultipliedLast : kCGImageAlphaNoneSkipLast};
    std::vector<std::uint8_t> px(w * h * 4);
    std::uint32_t seed = 11;
    for (std::size_t i = 0; i < w * h; ++i) {
        seed = seed * 1664525u + 1013904223u;
        const std::uint8_t a = alpha ? static_cast<std::uint8_t>(seed >> 24) : 255;
        for (int k = 0; k < 3; ++k)
            px[i * 4 + k] = static_cast<std::uint8_t>((seed >> (8 * k)) % (a + 1u));
        px[i * 4 + 3] = a;
    }
    return Bitmap(w, h, layout, ColorSpace::deviceRGB(), px);
}

}  // namespace

TEST(BitmapContextStrips, MovedRowsReadAsClearedWhateverTheirBufferHeld) {
    for (const Layout& l : kLayouts) {
        SCOPED_TRACE(l.name);
        auto c = strip(l, 24, 200, 0, 20);
        ASSERT_TRUE(c);
        const bool opaque =
            l.alpha == kCGImageAlphaNoneSkipLast || l.alpha == kCGImageAlphaNoneSkipFirst;
        for (std::size_t first = 0; first < 200; first += 20) {
            // From the third strip on, the buffer of a strip filled and let go comes back.
            if (first) c->moveToRows(first, 20);
            {
                const Bitmap untouched = c->createImage();
                for (std::size_t y = first; y < first + 20; ++y)
                    for (std::size_t x = 0; x < 24; ++x) {
                        const auto p = untouched.pixelAt(x, y);
                        ASSERT_EQ(p.r + p.g + p.b, 0u) << "row " << y << " column " << x;
                        ASSERT_EQ(p.a, opaque ? 65535 : 0) << "row " << y << " column " << x;
                    }
            }
            c->setFillColor({0.9, 0.3, 0.1, 1});
            c->fillRect({{0, 0}, {24, 200}});
            EXPECT_GT(c->createImage().pixelAt(5, first).r, 50000u) << "the fill reached the rows";
        }
    }
}

TEST(BitmapContextStrips, DrawsOverAWholeFillMatchTheWholeContextFilledInPieces) {
    const std::size_t W = 97, H = 131, kRows = 16;
    const Bitmap opaque = noise(61, 43, false), translucent = noise(61, 43, true);
    struct Case {
        const char* name;
        std::optional<RGBAColor> fill;  // none: cleared
        const Bitmap* image;
        CGRect rect;
        std::function<void(BitmapContext&)> transform;
    };
    const auto none = [](BitmapContext&) {};
    const Case cases[] = {
        {"stretched over all", RGBAColor{1, 1, 1, 1}, &opaque, {{0, 0}, {97, 131}}, none},
        {"fitted with bars", RGBAColor{0.2, 0.5, 0.7, 1}, &opaque, {{0, 33.5}, {97, 68.3}}, none},
        {"shifted off two edges", RGBAColor{1, 0, 0, 1}, &opaque, {{-7.25, 9.6}, {97, 131}}, none},
        {"inside, fractional on all sides",
         std::nullopt,
         &opaque,
         {{10.3, 20.7}, {50.2, 80.1}},
         none},
        {"translucent picture", RGBAColor{0, 0, 1, 1}, &translucent, {{5.5, 3}, {80, 120}}, none},
        {"translucent fill", RGBAColor{0.3, 0.6, 0.9, 0.5}, &opaque, {{0, 10}, {97, 100}}, none},
        {"mirrored",
         RGBAColor{0, 1, 0, 1},
         &opaque,
         {{-90.5, 17}, {80, 100}},
         [](BitmapContext& c) { c.scaleCTM(-1, 1); }},
        {"turned by another angle",
         RGBAColor{1, 1, 0, 1},
         &opaque,
         {{30, 20}, {40, 60}},
         [](BitmapContext& c) { c.rotateCTM(0.3); }},
    };
    for (const Layout& l : kLayouts)
        for (const Case& k : cases) {
            SCOPED_TRACE(std::string(l.name) + ", " + k.name);
            // The reference fills in two halves, neither of which covers every pixel: it is
            // written at once, before the draw.
            auto whole = strip(l, W, H, 0, H);
            ASSERT_TRUE(whole);
            auto paint = [&](BitmapContext& c, bool inPieces) {
                c.saveGState();
                c.setInterpolationQuality(kCGInterpolationHigh);
                const std::vector<CGRect> parts =
                    inPieces ? std::vector<CGRect>{{{0, 0}, {40, double(H)}},
                                                   {{40, 0}, {double(W - 40), double(H)}}}
                             : std::vector<CGRect>{{{0, 0}, {double(W), double(H)}}};
                for (const CGRect& part : parts) {
                    if (k.fill) {
                        c.setFillColor(*k.fill);
                        c.fillRect(part);
                    } else {
                        c.clearRect(part);
                    }
                }
                k.transform(c);
                EXPECT_TRUE(c.drawImage(k.rect, *k.image));
                c.restoreGState();
            };
            paint(*whole, true);
            const Bitmap expected = whole->createImage();
            auto strips = strip(l, W, H, 0, kRows);
            ASSERT_TRUE(strips);
            const std::size_t rowBytes = W * bytesPerPixel(l);
            std::size_t differing = 0;
            for (std::size_t first = 0; first < H; first += kRows) {
                if (first) strips->moveToRows(first, kRows);
                paint(*strips, false);
                const Bitmap got = strips->createImage();
                for (std::size_t y = got.firstRow(); y < got.firstRow() + got.rowCount(); ++y)
                    differing += std::memcmp(got.row(y), expected.row(y), rowBytes) != 0;
            }
            EXPECT_EQ(differing, 0u) << "rows differ";
        }
}
