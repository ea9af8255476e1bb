#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "platform/BitmapContext.h"

using namespace platform;

namespace {

constexpr std::uint32_t kRGBA = kCGImageAlphaPremultipliedLast;

// A solid image of one colour; 8-bit straight RGBA unless told otherwise.
Bitmap solid(std::size_t w, std::size_t h, std::uint8_t r, std::uint8_t g, std::uint8_t b,
             std::uint8_t a = 255, CGImageAlphaInfo alpha = kCGImageAlphaLast) {
    PixelLayout layout{8, 3, alpha};
    std::vector<std::uint8_t> px(w * h * 4);
    for (std::size_t i = 0; i < w * h; ++i) {
        px[i * 4] = r, px[i * 4 + 1] = g, px[i * 4 + 2] = b, px[i * 4 + 3] = a;
    }
    return Bitmap(w, h, layout, ColorSpace::deviceRGB(), px);
}

std::unique_ptr<BitmapContext> context(std::size_t w, std::size_t h, std::size_t bits = 8,
                                       std::uint32_t info = kRGBA) {
    auto c = BitmapContext::create(w, h, bits, ColorSpace::deviceRGB(), info);
    EXPECT_TRUE(c);
    return c;
}

// One row of the snapshot as text: 'R' opaque red, '.' clear, 'W' white, '?' anything else.
std::string rowText(const Bitmap& b, std::size_t y) {
    std::string s;
    for (std::size_t x = 0; x < b.width(); ++x) {
        auto p = b.pixelAt(x, y);
        if (p.a == 0 && p.r == 0)
            s += '.';
        else if (p.a == 65535 && p.r == 65535 && p.g == 0 && p.b == 0)
            s += 'R';
        else if (p.a == 65535 && p.r == 65535 && p.g == 65535 && p.b == 65535)
            s += 'W';
        else if (p.a == 65535 && p.r == 0 && p.g == 0 && p.b == 65535)
            s += 'B';
        else
            s += '?';
    }
    return s;
}

std::vector<std::string> picture(const Bitmap& b) {
    std::vector<std::string> rows;
    for (std::size_t y = 0; y < b.height(); ++y) rows.push_back(rowText(b, y));
    return rows;
}

}  // namespace

TEST(BitmapContext, RedSquareLandsOnExactPixelsAtEveryQualityAndDepth) {
    // The rectangle is in bottom-left space: y 3..7 of a 10 high context is rows 3..6 from top.
    const std::vector<std::string> expected = {
        "..........", "..........", "..........", "..RRRR....", "..RRRR....",
        "..RRRR....", "..RRRR....", "..........", "..........", ".........."};
    for (auto quality : {kCGInterpolationNone, kCGInterpolationLow, kCGInterpolationMedium,
                         kCGInterpolationHigh}) {
        for (std::size_t bits : {8u, 16u}) {
            for (std::size_t source : {1u, 4u, 7u}) {
                auto c = context(10, 10, bits);
                c->setInterpolationQuality(quality);
                c->drawImage({{2, 3}, {4, 4}}, solid(source, source, 255, 0, 0));
                EXPECT_EQ(picture(c->createImage()), expected)
                    << "quality " << quality << " bits " << bits << " source " << source;
            }
        }
    }
}

TEST(BitmapContext, FractionalEdgesGetTheCoveredShare) {
    struct Case {
        CGRect rect;
        std::vector<double> alphas;  // bottom row, columns 0..5, as fractions
    } cases[] = {
        {{{1, 0}, {3, 1}}, {0, 1, 1, 1, 0, 0}},
        {{{1.5, 0}, {3, 1}}, {0, 0.5, 1, 1, 0.5, 0}},
        {{{0.25, 0}, {1.5, 1}}, {0.75, 0.75, 0, 0, 0, 0}},
        {{{2, 0.5}, {1, 1}}, {0, 0, 0.5, 0, 0, 0}},  // half of each row
    };
    for (const auto& c : cases) {
        auto ctx = context(6, 2);
        ctx->setInterpolationQuality(kCGInterpolationHigh);
        ctx->drawImage(c.rect, solid(8, 8, 255, 0, 0));
        Bitmap b = ctx->createImage();
        for (std::size_t x = 0; x < 6; ++x) {
            auto p = b.pixelAt(x, 1);
            EXPECT_NEAR(p.a / 65535.0, c.alphas[x], 0.01) << "x " << x;
            EXPECT_EQ(p.r, p.a) << "premultiplied red equals alpha at x " << x;
            EXPECT_EQ(p.g, 0);
        }
    }
}

TEST(BitmapContext, FitWithMarginsOverFillAndClip) {
    // A 4 x 2 red image fitted into an 8 x 8 white opaque bitmap: bands of 2 rows above/below.
    auto c = context(8, 8, 8, kCGImageAlphaNoneSkipLast);
    c->setFillColor({1, 1, 1, 1});
    c->fillRect({{0, 0}, {8, 8}});
    c->setInterpolationQuality(kCGInterpolationHigh);
    c->drawImage({{0, 2}, {8, 4}}, solid(4, 2, 255, 0, 0));
    EXPECT_EQ(picture(c->createImage()),
              (std::vector<std::string>{"WWWWWWWW", "WWWWWWWW", "RRRRRRRR", "RRRRRRRR", "RRRRRRRR",
                                        "RRRRRRRR", "WWWWWWWW", "WWWWWWWW"}));

    // Clipping to the left half and the lower half (in bottom-left space) of the same draw.
    auto d = context(8, 8, 8, kCGImageAlphaNoneSkipLast);
    d->setFillColor({1, 1, 1, 1});
    d->fillRect({{0, 0}, {8, 8}});
    d->saveGState();
    d->clipToRect({{0, 0}, {4, 4}});
    d->drawImage({{0, 0}, {8, 8}}, solid(3, 3, 255, 0, 0));
    d->restoreGState();
    d->setFillColor({0, 0, 1, 1});
    d->fillRect({{7, 7}, {1, 1}});  // the clip is gone after restore
    EXPECT_EQ(picture(d->createImage()),
              (std::vector<std::string>{"WWWWWWWB", "WWWWWWWW", "WWWWWWWW", "WWWWWWWW", "RRRRWWWW",
                                        "RRRRWWWW", "RRRRWWWW", "RRRRWWWW"}));
}

TEST(BitmapContext, QuarterTurnsAndFlipsPlaceTheImageAsTheTransformSays) {
    // A 2 x 1 image: red on the left, blue on the right.
    PixelLayout layout{8, 3, kCGImageAlphaNoneSkipLast};
    Bitmap image(2, 1, layout, ColorSpace::deviceRGB(), {255, 0, 0, 255, 0, 0, 255, 255});
    struct Case {
        const char* name;
        std::size_t w, h;
        void (*transform)(BitmapContext&);
        CGRect rect;
        std::vector<std::string> expected;
    } cases[] = {
        {"identity", 2, 1, [](BitmapContext&) {}, {{0, 0}, {2, 1}}, {"RB"}},
        {"flip x",
         2,
         1,
         [](BitmapContext& c) {
             c.translateCTM(2, 0);
             c.scaleCTM(-1, 1);
         },
         {{0, 0}, {2, 1}},
         {"BR"}},
        {"quarter turn",
         1,
         2,
         [](BitmapContext& c) {
             c.translateCTM(0.5, 1);
             c.rotateCTM(M_PI / 2);
         },
         {{-1, -0.5}, {2, 1}},
         {"B", "R"}},
        {"three quarter turns",
         1,
         2,
         [](BitmapContext& c) {
             c.translateCTM(0.5, 1);
             c.rotateCTM(-M_PI / 2);
         },
         {{-1, -0.5}, {2, 1}},
         {"R", "B"}},
        {"half turn",
         2,
         1,
         [](BitmapContext& c) {
             c.translateCTM(1, 0.5);
             c.rotateCTM(M_PI);
         },
         {{-1, -0.5}, {2, 1}},
         {"BR"}},
        {"quarter turn, flipped, stretched",
         1,
         4,
         [](BitmapContext& c) {
             c.translateCTM(0.5, 2);
             c.scaleCTM(1, -1);
             c.rotateCTM(M_PI / 2);
         },
         {{-2, -0.5}, {4, 1}},
         {"R", "R", "B", "B"}},
    };
    for (const auto& c : cases) {
        auto ctx = context(c.w, c.h, 8, kCGImageAlphaNoneSkipLast);
        ctx->setInterpolationQuality(kCGInterpolationNone);
        c.transform(*ctx);
        ctx->drawImage(c.rect, image);
        EXPECT_EQ(picture(ctx->createImage()), c.expected) << c.name;
    }
}

TEST(BitmapContext, StraightAlphaIsPremultipliedBeforeFiltering) {
    // An opaque red pixel beside a fully transparent green one, enlarged over white with
    // Lanczos: no green may bleed into the result, and the blend over white must be exact.
    PixelLayout layout{8, 3, kCGImageAlphaLast};
    Bitmap image(2, 1, layout, ColorSpace::deviceRGB(), {255, 0, 0, 255, 0, 255, 0, 0});
    auto c = context(16, 1, 8, kCGImageAlphaNoneSkipLast);
    c->setFillColor({1, 1, 1, 1});
    c->fillRect({{0, 0}, {16, 1}});
    c->setInterpolationQuality(kCGInterpolationHigh);
    c->drawImage({{0, 0}, {16, 1}}, image);
    Bitmap b = c->createImage();
    for (std::size_t x = 0; x < 16; ++x) {
        auto p = b.pixelAt(x, 0);
        EXPECT_EQ(p.g, p.b) << "green bled in at x " << x;
        EXPECT_EQ(p.r, 65535) << "x " << x;
    }
    EXPECT_EQ(rowText(b, 0).substr(0, 4), "RRRR");
    EXPECT_EQ(rowText(b, 0).substr(12), "WWWW");

    // A half-transparent red over opaque blue: the source-over result.
    auto d = context(2, 2, 16, kCGImageAlphaNoneSkipLast);
    d->setFillColor({0, 0, 1, 1});
    d->fillRect({{0, 0}, {2, 2}});
    d->drawImage({{0, 0}, {2, 2}}, solid(1, 1, 255, 0, 0, 128));
    auto p = d->createImage().pixelAt(1, 1);
    EXPECT_NEAR(p.r, 128 * 257, 40);
    EXPECT_NEAR(p.b, 127 * 257, 40);
    EXPECT_EQ(p.g, 0);
    EXPECT_EQ(p.a, 65535);
}

TEST(BitmapContext, SixteenBitSamplesSurviveAnUnscaledDraw) {
    PixelLayout layout{16, 3, kCGImageAlphaPremultipliedLast};
    std::vector<std::uint8_t> bytes(3 * 1 * 8);
    const std::uint16_t values[3][4] = {
        {1, 2, 3, 65535}, {40000, 300, 65534, 65535}, {1000, 1000, 1000, 2000}};
    std::memcpy(bytes.data(), values, sizeof values);
    Bitmap image(3, 1, layout, ColorSpace::deviceRGB(), bytes);
    auto c = context(3, 1, 16);
    c->setInterpolationQuality(kCGInterpolationHigh);
    c->drawImage({{0, 0}, {3, 1}}, image);
    Bitmap b = c->createImage();
    for (std::size_t x = 0; x < 3; ++x) {
        auto p = b.pixelAt(x, 0);
        EXPECT_EQ(p.r, values[x][0]);
        EXPECT_EQ(p.g, values[x][1]);
        EXPECT_EQ(p.b, values[x][2]);
        EXPECT_EQ(p.a, values[x][3]);
    }
}

TEST(BitmapContext, CreateAcceptsOnlyLayoutsItCanDrawInto) {
    struct Case {
        ColorSpace space;
        std::size_t bits;
        std::uint32_t info;
        bool accepted;
    } cases[] = {
        {ColorSpace::deviceRGB(), 8, kCGImageAlphaPremultipliedLast | kCGBitmapByteOrder32Big,
         true},
        {ColorSpace::deviceRGB(), 8, kCGImageAlphaPremultipliedFirst, true},
        {ColorSpace::deviceRGB(), 8, kCGImageAlphaNoneSkipLast, true},
        {ColorSpace::deviceRGB(), 16, kCGImageAlphaNoneSkipLast | kCGBitmapByteOrder16Little, true},
        {ColorSpace::deviceGray(), 8, kCGImageAlphaNone, true},
        {ColorSpace::deviceGray(), 16, kCGImageAlphaNone, true},
        {ColorSpace::deviceRGB(), 8, kCGImageAlphaNone, false},
        {ColorSpace::deviceRGB(), 8, kCGImageAlphaLast, false},
        {ColorSpace::deviceRGB(), 16, kCGImageAlphaFirst, false},
        {ColorSpace::deviceGray(), 8, kCGImageAlphaPremultipliedLast, false},
        {ColorSpace::deviceRGB(), 12, kCGImageAlphaNoneSkipLast, false},
        {ColorSpace::deviceRGB(), 8, kCGImageAlphaNoneSkipLast | kCGBitmapByteOrder32Little, false},
        {ColorSpace(ColorSpace::Model::CMYK), 8, kCGImageAlphaNone, false},
    };
    for (const auto& c : cases) {
        ErrorRef error;
        auto ctx = BitmapContext::create(4, 4, c.bits, c.space, c.info, &error);
        EXPECT_EQ(ctx != nullptr, c.accepted) << c.bits << " bits, info " << c.info;
        EXPECT_EQ(error != nullptr, !c.accepted);
    }
    EXPECT_FALSE(BitmapContext::create(0, 4, 8, ColorSpace::deviceRGB(), kRGBA));
}

TEST(BitmapContext, SnapshotIsUnchangedByLaterDrawing) {
    auto c = context(2, 2, 8, kCGImageAlphaNoneSkipLast);
    c->setFillColor({1, 0, 0, 1});
    c->fillRect({{0, 0}, {2, 2}});
    Bitmap first = c->createImage();
    c->setFillColor({0, 0, 1, 1});
    c->fillRect({{0, 0}, {2, 2}});
    EXPECT_EQ(picture(first), (std::vector<std::string>{"RR", "RR"}));
    EXPECT_EQ(picture(c->createImage()), (std::vector<std::string>{"BB", "BB"}));
    c->clearRect({{0, 0}, {1, 2}});
    auto p = c->createImage().pixelAt(0, 0);
    EXPECT_EQ(p.r + p.g + p.b, 0);
    EXPECT_EQ(p.a, 65535) << "an opaque layout stays opaque when cleared";
}

TEST(BitmapContext, OtherAnglesDrawByInverseMapping) {
    // A 45 degree turn about the centre of a 9 x 9 bitmap: the centre is covered, the corners
    // (outside the turned square) are not.
    auto c = context(9, 9);
    c->translateCTM(4.5, 4.5);
    c->rotateCTM(M_PI / 4);
    c->drawImage({{-3, -3}, {6, 6}}, solid(2, 2, 255, 0, 0));
    Bitmap b = c->createImage();
    EXPECT_EQ(rowText(b, 4)[4], 'R');
    EXPECT_EQ(rowText(b, 0)[0], '.');
    EXPECT_EQ(rowText(b, 8)[8], '.');
    EXPECT_EQ(rowText(b, 0)[4], 'R');  // the turned square's top corner reaches row 0
}

namespace {

// A picture with a different value in nearly every sample, so that a pixel landing in the wrong
// place, a swapped channel or a lost row shows.
Bitmap texture(std::size_t w, std::size_t h, int bits, CGImageAlphaInfo alpha) {
    PixelLayout layout{bits, 3, alpha};
    std::size_t bpp = static_cast<std::size_t>(layout.bytesPerPixel());
    std::vector<std::uint8_t> px(w * h * bpp);
    std::uint32_t seed = 7;
    for (std::size_t i = 0; i < w * h; ++i)
        for (int k = 0; k < layout.samplesPerPixel(); ++k) {
            seed = seed * 1664525u + 1013904223u;
            std::uint16_t v = static_cast<std::uint16_t>(seed >> 16);
            if (k == layout.alphaOffset() ||
                (!layout.hasAlpha() && k != layout.colorOffset() && k != layout.colorOffset() + 1 &&
                 k != layout.colorOffset() + 2))
                v = layout.hasAlpha() ? static_cast<std::uint16_t>(v | 0x0101) : 0xFFFF;
            if (bits == 8)
                px[i * bpp + k] = static_cast<std::uint8_t>(v >> 8);
            else
                std::memcpy(&px[i * bpp + 2 * k], &v, 2);
        }
    return Bitmap(w, h, layout, ColorSpace::deviceRGB(), px);
}

}  // namespace

TEST(BitmapContext, PhotoSizedDrawsAtOneToOneCopyEveryPixel) {
    // Large enough to be drawn in bands on two threads, with rows long enough for the vector
    // paths; placed at whole pixels, so that every covered pixel is the source's own.
    struct Case {
        int bits;
        CGImageAlphaInfo source, context;
    } cases[] = {
        {8, kCGImageAlphaNoneSkipLast, kCGImageAlphaNoneSkipLast},
        {8, kCGImageAlphaNoneSkipFirst, kCGImageAlphaNoneSkipLast},
        {8, kCGImageAlphaNoneSkipLast, kCGImageAlphaNoneSkipFirst},
        {8, kCGImageAlphaNoneSkipLast, kCGImageAlphaPremultipliedLast},
        {16, kCGImageAlphaNoneSkipLast, kCGImageAlphaNoneSkipLast},
        {16, kCGImageAlphaLast, kCGImageAlphaPremultipliedLast},
    };
    const std::size_t W = 1003, H = 611, w = 917, h = 533, left = 37, top = 45;
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << c.bits << " bits, source " << c.source << ", context " << c.context);
        Bitmap image = texture(w, h, c.bits, c.source);
        auto ctx = context(W, H, c.bits, c.context);
        const bool clear = c.source == kCGImageAlphaLast;
        if (!clear) {
            ctx->setFillColor({1, 1, 1, 1});
            ctx->fillRect({{0, 0}, {double(W), double(H)}});
        }
        ctx->setInterpolationQuality(kCGInterpolationHigh);
        ctx->drawImage({{double(left), double(H - top - h)}, {double(w), double(h)}}, image);
        Bitmap out = ctx->createImage();
        std::size_t wrong = 0;
        for (std::size_t y = 0; y < H; ++y)
            for (std::size_t x = 0; x < W; ++x) {
                auto got = out.pixelAt(x, y);
                Bitmap::Pixel16 want{65535, 65535, 65535, 65535};
                if (clear) want = {0, 0, 0, 0};
                if (x >= left && x < left + w && y >= top && y < top + h) {
                    want = image.pixelAt(x - left, y - top);
                    auto pm = [&](std::uint16_t v) {
                        return static_cast<std::uint16_t>((v * std::uint32_t(want.a) + 32767) /
                                                          65535);
                    };
                    if (clear) want = {pm(want.r), pm(want.g), pm(want.b), want.a};
                }
                if (got.r != want.r || got.g != want.g || got.b != want.b || got.a != want.a)
                    if (++wrong <= 3)
                        ADD_FAILURE() << "pixel " << x << "," << y << " is " << got.r << " "
                                      << got.g << " " << got.b << " " << got.a << ", not " << want.r
                                      << " " << want.g << " " << want.b << " " << want.a;
            }
        EXPECT_EQ(wrong, 0u);
    }
}

TEST(BitmapContext, AScaledDrawIsTheSameInAnyWindowOfRows) {
    // The same stretch and enlargement seen whole (drawn in bands) and through windows of rows
    // (each drawn alone): rows at the band boundary and at the windows' edges must agree.
    Bitmap image = texture(640, 481, 8, kCGImageAlphaNoneSkipLast);
    const std::size_t W = 1000, H = 700;
    auto whole = context(W, H, 8, kCGImageAlphaNoneSkipLast);
    whole->setInterpolationQuality(kCGInterpolationHigh);
    whole->drawImage({{0, 0}, {double(W), double(H)}}, image);
    Bitmap all = whole->createImage();
    for (std::size_t first : {0u, 311u, 340u, 660u}) {
        const std::size_t rows = 40;
        auto part = context(W, rows, 8, kCGImageAlphaNoneSkipLast);
        part->setInterpolationQuality(kCGInterpolationHigh);
        part->translateCTM(0, -double(H - first - rows));
        part->drawImage({{0, 0}, {double(W), double(H)}}, image);
        Bitmap window = part->createImage();
        int worst = 0;
        for (std::size_t y = 0; y < rows; ++y)
            for (std::size_t x = 0; x < W; ++x) {
                auto a = all.pixelAt(x, first + y), b = window.pixelAt(x, y);
                worst = std::max({worst, std::abs(int(a.r) - int(b.r)),
                                  std::abs(int(a.g) - int(b.g)), std::abs(int(a.b) - int(b.b))});
            }
        // One step of 8 bits at most: the filters of the two are computed apart.
        EXPECT_LE(worst, 257) << "rows from " << first;
    }
}
