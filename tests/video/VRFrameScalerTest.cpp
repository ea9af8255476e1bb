#include "video/VRFrameScaler.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/AVVideoSettings.h"

namespace {

using Form = VRFrameScaler::Form;

// Where a narrowed view starts (in pixels of its plane) and how large it is.
struct Placed {
    std::size_t x, y, width, height;
    friend bool operator==(const Placed&, const Placed&) = default;
};

std::ostream& operator<<(std::ostream& out, const Placed& p) {
    return out << "(" << p.x << ", " << p.y << ") " << p.width << " x " << p.height;
}

// The placement rules on views of plain memory: which view is narrowed, where and how far.
TEST(VRFrameScaler, PlaceViews) {
    constexpr std::size_t kRowBytes = 512;
    struct Case {
        const char* name;
        std::size_t sw, sh, dw, dh;
        VRImageArrangement arrangement;
        bool luma;
        double dx, dy;
        std::size_t bytesPerPixel;
        Placed source, destination;
    };
    using A = VRImageArrangement;
    const Case cases[] = {
        {"stretch ignores the shift",
         100,
         50,
         60,
         60,
         A::stretch,
         true,
         10,
         10,
         1,
         {0, 0, 100, 50},
         {0, 0, 60, 60}},
        {"fit centres between even bars",
         160,
         90,
         96,
         96,
         A::fit,
         true,
         0,
         0,
         1,
         {0, 0, 160, 90},
         {0, 22, 96, 52}},
        {"fit chroma stays on the luma grid",
         80,
         45,
         48,
         48,
         A::fit,
         false,
         0,
         0,
         2,
         {0, 0, 80, 45},
         {0, 11, 48, 26}},
        {"fit side bars", 90, 160, 96, 96, A::fit, true, 0, 0, 1, {0, 0, 90, 160}, {22, 0, 52, 96}},
        {"fit shift stops at the bottom",
         160,
         90,
         96,
         96,
         A::fit,
         true,
         0,
         100,
         1,
         {0, 0, 160, 90},
         {0, 44, 96, 52}},
        {"fit shift stops at the top",
         160,
         90,
         96,
         96,
         A::fit,
         true,
         0,
         -100,
         1,
         {0, 0, 160, 90},
         {0, 0, 96, 52}},
        {"fit shift by 10 luma rows",
         160,
         90,
         96,
         96,
         A::fit,
         true,
         0,
         10,
         2,
         {0, 0, 160, 90},
         {0, 32, 96, 52}},
        {"fill crops the middle",
         200,
         100,
         100,
         100,
         A::fill,
         true,
         0,
         0,
         1,
         {50, 0, 100, 100},
         {0, 0, 100, 100}},
        {"fill: picture right, window left",
         200,
         100,
         100,
         100,
         A::fill,
         true,
         20,
         0,
         1,
         {30, 0, 100, 100},
         {0, 0, 100, 100}},
        {"fill: picture left, window right",
         200,
         100,
         100,
         100,
         A::fill,
         true,
         -20,
         0,
         1,
         {70, 0, 100, 100},
         {0, 0, 100, 100}},
        {"fill shift stops at the edge",
         200,
         100,
         100,
         100,
         A::fill,
         true,
         -500,
         0,
         1,
         {100, 0, 100, 100},
         {0, 0, 100, 100}},
        {"fill chroma, shift in chroma pixels",
         100,
         50,
         50,
         50,
         A::fill,
         false,
         10,
         0,
         2,
         {15, 0, 50, 50},
         {0, 0, 50, 50}},
        {"fill on a downscale: source pixels",
         400,
         200,
         100,
         100,
         A::fill,
         true,
         20,
         0,
         1,
         {60, 0, 200, 200},
         {0, 0, 100, 100}},
        {"odd luma side stays inside the view",
         100,
         50,
         101,
         101,
         A::fit,
         true,
         0,
         0,
         1,
         {0, 0, 100, 50},
         {0, 26, 101, 50}},
        {"BGRA fit, no halving",
         160,
         90,
         96,
         96,
         A::fit,
         false,
         0,
         0,
         4,
         {0, 0, 160, 90},
         {0, 21, 96, 54}},
        {"b64a fill with a shift",
         200,
         100,
         100,
         100,
         A::fill,
         false,
         20,
         0,
         8,
         {30, 0, 100, 100},
         {0, 0, 100, 100}},
    };
    std::vector<std::uint8_t> memory(kRowBytes * 512);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::uint8_t* base = memory.data();
        vImage_Buffer s{base, c.sh, c.sw, kRowBytes};
        vImage_Buffer d{base, c.dh, c.dw, kRowBytes};
        VRFrameScaler::placeViews(s, d, c.arrangement, c.luma, c.dx, c.dy, c.bytesPerPixel);
        auto placed = [&](const vImage_Buffer& v) {
            const auto offset = static_cast<std::size_t>(static_cast<std::uint8_t*>(v.data) - base);
            EXPECT_EQ(offset % kRowBytes % c.bytesPerPixel, 0u);
            return Placed{offset % kRowBytes / c.bytesPerPixel, offset / kRowBytes, v.width,
                          v.height};
        };
        EXPECT_EQ(placed(s), c.source);
        EXPECT_EQ(placed(d), c.destination);
        EXPECT_EQ(s.rowBytes, kRowBytes);
        EXPECT_EQ(d.rowBytes, kRowBytes);
    }
}

// Y, Cb and Cr of fill colours by matrix, range and form, worked out independently; values
// beyond a sample's range are held at its edge.
TEST(VRFrameScaler, BiplanarFillColours) {
    const VRColor red{1, 0, 0, 1}, green{0, 1, 0, 1}, blue{0, 0, 1, 1};
    const VRColor white = VRColor::whiteColor();
    struct Case {
        const char* name;
        std::optional<VRColor> color;
        std::optional<std::string> matrix;
        bool fullRange;
        Form form;
        VRYCbCrColor expected;
    };
    const Case cases[] = {
        {"none, video range", std::nullopt, std::nullopt, false, Form::eightBit, {16, 128, 128}},
        {"none, video range, 16-bit",
         std::nullopt,
         std::nullopt,
         false,
         Form::sixteenBit,
         {4096, 32768, 32768}},
        {"none, full range", std::nullopt, std::nullopt, true, Form::eightBit, {0, 128, 128}},
        {"white, video range",
         white,
         AVVideoYCbCrMatrix_ITU_R_709_2,
         false,
         Form::eightBit,
         {235, 128, 128}},
        {"white, video range, 16-bit",
         white,
         std::nullopt,
         false,
         Form::sixteenBit,
         {60160, 32768, 32768}},
        {"white, full range", white, std::nullopt, true, Form::eightBit, {255, 128, 128}},
        {"white, alpha plays no part",
         VRColor{1, 1, 1, 0},
         std::nullopt,
         false,
         Form::eightBit,
         {235, 128, 128}},
        {"red, 601 as given",
         red,
         AVVideoYCbCrMatrix_ITU_R_601_4,
         false,
         Form::eightBit,
         {81, 90, 240}},
        {"blue, 2020, 16-bit",
         blue,
         AVVideoYCbCrMatrix_ITU_R_2020,
         false,
         Form::sixteenBit,
         {7421, 61440, 30462}},
        {"green, SMPTE 240M, full range",
         green,
         kCVImageBufferYCbCrMatrix_SMPTE_240M_1995,
         true,
         Form::eightBit,
         {179, 30, 15}},
        {"unknown matrix counts as 709",
         white,
         "ITU_R_709_2_OTHER",
         false,
         Form::eightBit,
         {235, 128, 128}},
        {"red, full range: Cr held at 255", red, std::nullopt, true, Form::eightBit, {54, 99, 255}},
        {"red, full range, 16-bit: Cr held",
         red,
         std::nullopt,
         true,
         Form::sixteenBit,
         {13933, 25260, 65535}},
        {"out-of-range colour held",
         VRColor{2, 2, 2, 1},
         std::nullopt,
         true,
         Form::eightBit,
         {255, 128, 128}},
    };
    for (const Case& c : cases) {
        const VRColorCoefficients k = VRFrameScaler::coefficients(c.matrix, c.fullRange, c.form);
        const VRYCbCrColor got = VRFrameScaler::biplanarFillColor(c.color, k, c.form);
        EXPECT_EQ(got, c.expected) << c.name << ": " << got.y << ", " << got.cb << ", " << got.cr;
    }
}

TEST(VRFrameScaler, NonPlanarFillColours) {
    using Argb = std::array<std::uint16_t, 4>;
    EXPECT_EQ(VRFrameScaler::nonPlanarFillColor(std::nullopt, Form::eightBit),
              (Argb{0, 0, 0, 255}));
    EXPECT_EQ(VRFrameScaler::nonPlanarFillColor(std::nullopt, Form::sixteenBit),
              (Argb{65535, 0, 0, 0}));
    // BGRA order for 8 bits, ARGB for 16.
    EXPECT_EQ(VRFrameScaler::nonPlanarFillColor(VRColor{1, 0.5, 0, 0.5}, Form::eightBit),
              (Argb{0, 128, 255, 128}));
    EXPECT_EQ(VRFrameScaler::nonPlanarFillColor(VRColor{1, 0.5, 0, 0.5}, Form::sixteenBit),
              (Argb{32768, 65535, 32768, 0}));
}

}  // namespace
