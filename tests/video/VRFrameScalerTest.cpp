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
    struct Size {
        std::size_t width, height;
    };
    struct Case {
        Size source, destination;
        VRImageArrangement arrangement;
        bool luma;
        CGPoint shift;
        std::size_t bytesPerPixel;
        Placed placedSource, placedDestination;
    };
    using A = VRImageArrangement;
    const Case cases[] = {
        // Stretch ignores the shift.
        {{100, 50}, {60, 60}, A::stretch, true, {10, 10}, 1, {0, 0, 100, 50}, {0, 0, 60, 60}},
        // Fit: centred between equal bars, even in luma; chroma on the same grid; side bars.
        {{160, 90}, {96, 96}, A::fit, true, {0, 0}, 1, {0, 0, 160, 90}, {0, 22, 96, 52}},
        {{80, 45}, {48, 48}, A::fit, false, {0, 0}, 2, {0, 0, 80, 45}, {0, 11, 48, 26}},
        {{90, 160}, {96, 96}, A::fit, true, {0, 0}, 1, {0, 0, 90, 160}, {22, 0, 52, 96}},
        // Fit shifts: stopped at either edge with the size kept, 10 luma rows down.
        {{160, 90}, {96, 96}, A::fit, true, {0, 100}, 1, {0, 0, 160, 90}, {0, 44, 96, 52}},
        {{160, 90}, {96, 96}, A::fit, true, {0, -100}, 1, {0, 0, 160, 90}, {0, 0, 96, 52}},
        {{160, 90}, {96, 96}, A::fit, true, {0, 10}, 2, {0, 0, 160, 90}, {0, 32, 96, 52}},
        // Fill: the middle cut out; the picture right moves the window left and the reverse;
        // stopped at the edge; chroma shifts in chroma pixels; a downscale in source pixels.
        {{200, 100}, {100, 100}, A::fill, true, {0, 0}, 1, {50, 0, 100, 100}, {0, 0, 100, 100}},
        {{200, 100}, {100, 100}, A::fill, true, {20, 0}, 1, {30, 0, 100, 100}, {0, 0, 100, 100}},
        {{200, 100}, {100, 100}, A::fill, true, {-20, 0}, 1, {70, 0, 100, 100}, {0, 0, 100, 100}},
        {{200, 100}, {100, 100}, A::fill, true, {-500, 0}, 1, {100, 0, 100, 100}, {0, 0, 100, 100}},
        {{100, 50}, {50, 50}, A::fill, false, {10, 0}, 2, {15, 0, 50, 50}, {0, 0, 50, 50}},
        {{400, 200}, {100, 100}, A::fill, true, {20, 0}, 1, {60, 0, 200, 200}, {0, 0, 100, 100}},
        // An odd luma side, halved, rounded and doubled, stays inside the view.
        {{100, 50}, {101, 101}, A::fit, true, {0, 0}, 1, {0, 0, 100, 50}, {0, 26, 101, 50}},
        // BGRA and b64a: no halving, four and eight bytes a pixel.
        {{160, 90}, {96, 96}, A::fit, false, {0, 0}, 4, {0, 0, 160, 90}, {0, 21, 96, 54}},
        {{200, 100}, {100, 100}, A::fill, false, {20, 0}, 8, {30, 0, 100, 100}, {0, 0, 100, 100}},
    };
    std::vector<std::uint8_t> memory(kRowBytes * 512);
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const Case& c = cases[i];
        SCOPED_TRACE("case " + std::to_string(i));
        std::uint8_t* base = memory.data();
        vImage_Buffer s{base, c.source.height, c.source.width, kRowBytes};
        vImage_Buffer d{base, c.destination.height, c.destination.width, kRowBytes};
        VRFrameScaler::placeViews(s, d, c.arrangement, c.luma, c.shift.x, c.shift.y,
                                  c.bytesPerPixel);
        auto placed = [&](const vImage_Buffer& v) {
            const auto offset = static_cast<std::size_t>(static_cast<std::uint8_t*>(v.data) - base);
            EXPECT_EQ(offset % kRowBytes % c.bytesPerPixel, 0u);
            return Placed{offset % kRowBytes / c.bytesPerPixel, offset / kRowBytes, v.width,
                          v.height};
        };
        EXPECT_EQ(placed(s), c.placedSource);
        EXPECT_EQ(placed(d), c.placedDestination);
        EXPECT_EQ(s.rowBytes, kRowBytes);
        EXPECT_EQ(d.rowBytes, kRowBytes);
    }
}

// Y, Cb and Cr of fill colours by matrix, range and form, worked out independently; values
// beyond a sample's range are held at its edge.
TEST(VRFrameScaler, BiplanarFillColours) {
    const std::optional<VRColor> none, white = VRColor::whiteColor(), red = VRColor{1, 0, 0, 1},
                                       green = VRColor{0, 1, 0, 1}, blue = VRColor{0, 0, 1, 1};
    const std::optional<std::string> untagged,
        m709 = AVVideoYCbCrMatrix_ITU_R_709_2, m601 = AVVideoYCbCrMatrix_ITU_R_601_4,
        m2020 = AVVideoYCbCrMatrix_ITU_R_2020, m240 = kCVImageBufferYCbCrMatrix_SMPTE_240M_1995,
        unknown = "ITU_R_709_2_OTHER";
    constexpr Form F8 = Form::eightBit, F16 = Form::sixteenBit;
    constexpr bool video = false, full = true;
    struct Case {
        std::optional<VRColor> color;
        std::optional<std::string> matrix;
        bool fullRange;
        Form form;
        VRYCbCrColor expected;
    };
    const Case cases[] = {
        // No colour is black: the offsets.
        {none, untagged, video, F8, {16, 128, 128}},
        {none, untagged, video, F16, {4096, 32768, 32768}},
        {none, untagged, full, F8, {0, 128, 128}},
        // White: 235 on 8-bit video range; alpha plays no part.
        {white, m709, video, F8, {235, 128, 128}},
        {white, untagged, video, F16, {60160, 32768, 32768}},
        {white, untagged, full, F8, {255, 128, 128}},
        {VRColor{1, 1, 1, 0}, untagged, video, F8, {235, 128, 128}},
        {white, unknown, video, F8, {235, 128, 128}},
        // Each matrix's weights (601 with its Kg of 0.5864 as given).
        {red, m601, video, F8, {81, 90, 240}},
        {blue, m2020, video, F16, {7421, 61440, 30462}},
        {green, m240, full, F8, {179, 30, 15}},
        // Beyond a sample's range: held at its edge.
        {red, untagged, full, F8, {54, 99, 255}},
        {red, untagged, full, F16, {13933, 25260, 65535}},
        {VRColor{2, 2, 2, 1}, untagged, full, F8, {255, 128, 128}},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const Case& c = cases[i];
        const VRColorCoefficients k = VRFrameScaler::coefficients(c.matrix, c.fullRange, c.form);
        const VRYCbCrColor got = VRFrameScaler::biplanarFillColor(c.color, k, c.form);
        EXPECT_EQ(got, c.expected)
            << "case " << i << ": " << got.y << ", " << got.cb << ", " << got.cr;
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

// Which frames go to the writer as they are: only where drawing would copy them exactly, so
// that no scale, crop, bar or shift is ever skipped.
TEST(VRFrameScaler, DrawsUnchanged) {
    using A = VRImageArrangement;
    constexpr OSType k420v = kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;
    constexpr OSType k420f = kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
    constexpr OSType kX420 = kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange;
    constexpr OSType kBGRA = kCVPixelFormatType_32BGRA;
    struct Frame {
        OSType format;
        std::size_t width, height;
    };
    struct Case {
        Frame source, destination;
        A arrangement;
        CGPoint shift;
        bool unchanged;
    };
    const Case cases[] = {
        {{k420v, 64, 48}, {k420v, 64, 48}, A::stretch, {0, 0}, true},
        // At the same size the picture fills the box: the shift stops at its edge.
        {{k420v, 64, 48}, {k420v, 64, 48}, A::fit, {8, 6}, true},
        {{k420v, 63, 47}, {k420v, 63, 47}, A::fill, {-5, 3}, true},
        {{kX420, 64, 48}, {kX420, 64, 48}, A::fit, {0, -4}, true},
        {{kBGRA, 64, 48}, {kBGRA, 64, 48}, A::fill, {10, 0}, true},
        // A scale, a crop, bars or a turn are drawn.
        {{k420v, 64, 48}, {k420v, 66, 48}, A::stretch, {0, 0}, false},
        {{k420v, 64, 48}, {k420v, 64, 50}, A::fill, {0, 0}, false},
        {{k420v, 64, 48}, {k420v, 64, 50}, A::fit, {0, 0}, false},
        {{k420v, 64, 48}, {k420v, 48, 64}, A::stretch, {0, 0}, false},
        {{kBGRA, 64, 48}, {kBGRA, 32, 24}, A::stretch, {0, 0}, false},
        // Another format is never handed over.
        {{k420v, 64, 48}, {k420f, 64, 48}, A::stretch, {0, 0}, false},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const Case& c = cases[i];
        auto source = CVPixelBuffer::create(c.source.format, c.source.width, c.source.height);
        auto pool = CVPixelBufferPool::create(c.destination.format, c.destination.width,
                                              c.destination.height);
        ASSERT_TRUE(source && pool) << "case " << i;
        VRFrameScaler::Arguments arguments;
        arguments.arrangement = c.arrangement;
        arguments.x = c.shift.x;
        arguments.y = c.shift.y;
        arguments.width = static_cast<double>(c.destination.width);
        EXPECT_EQ(VRFrameScaler::drawsUnchanged(*source, *pool, arguments), c.unchanged)
            << "case " << i;
    }
}

}  // namespace
