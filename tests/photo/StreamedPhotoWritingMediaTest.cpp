// Drawing and writing a photo in strips gives the very file that drawing the whole bitmap and
// writing it gives, for every method, the orientations that stream and each source depth; the
// orientations that can't stream are left to the whole-bitmap path.
#include "photo/StreamedPhotoWriting.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <vector>

#include "photo/ImageFileWriting.h"
#include "photo/PhotoSupport.h"
#include "platform/BitmapContext.h"
#include "platform/FileManager.h"

using namespace photo_test;
using testing_support::TestHome;

namespace {

constexpr VRImageArrangementBits kBase =
    VRImageArrangementOriented | VRImageArrangementSourceColorSpace;

std::vector<std::uint8_t> bytesOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// An uncompressed 8-bit RGB TIFF whose directory comes first, so that it still opens when
// the pixels are cut short; `planar` 2 stores each channel as its own plane.
std::vector<std::uint8_t> uncompressedTiff(std::uint32_t width, std::uint32_t height,
                                           std::uint16_t planar) {
    constexpr std::uint32_t kRowsPerStrip = 16;
    const std::uint32_t perPlane = (height + kRowsPerStrip - 1) / kRowsPerStrip;
    const std::uint32_t strips = planar == 2 ? perPlane * 3 : perPlane;
    const std::uint32_t sampleBytes = planar == 2 ? 1 : 3;
    std::vector<std::uint8_t> out = {'I', 'I', 42, 0, 8, 0, 0, 0};
    auto put16 = [&](std::uint32_t v) {
        out.push_back(std::uint8_t(v));
        out.push_back(std::uint8_t(v >> 8));
    };
    auto put32 = [&](std::uint32_t v) {
        put16(v & 0xFFFF);
        put16(v >> 16);
    };
    struct Entry {
        std::uint16_t tag, type;
        std::uint32_t count, value;
    };
    constexpr std::uint16_t kShort = 3, kLong = 4;
    const std::uint32_t entries = 10;
    const std::uint32_t arrays = 8 + 2 + entries * 12 + 4;  // after the directory
    const std::uint32_t offsetsAt = arrays + 8, countsAt = offsetsAt + 4 * strips;
    const std::uint32_t dataAt = countsAt + 4 * strips;
    const Entry directory[entries] = {
        {256, kLong, 1, width},
        {257, kLong, 1, height},
        {258, kShort, 3, arrays},
        {259, kShort, 1, 1},
        {262, kShort, 1, 2},
        {273, kLong, strips, offsetsAt},
        {277, kShort, 1, 3},
        {278, kLong, 1, kRowsPerStrip},
        {279, kLong, strips, countsAt},
        {284, kShort, 1, planar},
    };
    put16(entries);
    for (const auto& e : directory) {
        put16(e.tag);
        put16(e.type);
        put32(e.count);
        e.type == kShort&& e.count == 1 ? (put16(e.value), put16(0)) : put32(e.value);
    }
    put32(0);
    for (int i = 0; i < 4; ++i) put16(8);  // three samples of 8 bits, and padding
    std::uint32_t at = dataAt;
    for (std::uint32_t s = 0; s < strips; ++s) {
        const std::uint32_t rows = std::min(kRowsPerStrip, height - (s % perPlane) * kRowsPerStrip);
        put32(at);
        at += rows * width * sampleBytes;
    }
    for (std::uint32_t s = 0; s < strips; ++s) {
        const std::uint32_t rows = std::min(kRowsPerStrip, height - (s % perPlane) * kRowsPerStrip);
        put32(rows * width * sampleBytes);
    }
    for (std::uint32_t i = 0; i < width * height * 3; ++i) out.push_back(std::uint8_t(i * 7 / 5));
    return out;
}

struct Method {
    const char* name;
    VRImageArrangementBits bits;
    CGSize target;
    std::optional<VRColor> fill;
    CGPoint displacement;
};

const VRColor kWhite{1, 1, 1, 1}, kVeil{0.2, 0.4, 0.6, 0.5};
const Method kMethods[] = {
    {"stretch up", kBase, {419.5, 241}, std::nullopt, {0, 0}},
    {"stretch down", kBase, {150, 97}, std::nullopt, {0, 0}},
    {"fit with fill", kBase | VRImageArrangementFit, {257, 300}, kWhite, {3, -7}},
    {"fit with translucent fill", kBase | VRImageArrangementFit, {180, 260}, kVeil, {0, 0}},
    {"clip", kBase | VRImageArrangementFill, {233, 233}, std::nullopt, {-5, 4}},
};

void makeSources(const TestHome& home) {
    const std::string texture = " plasma:fractal -blur 0x1 ";
    run("convert -seed 7 -size 301x203" + texture + "-quality 92 '" + home.path("s.jpg") + "'");
    run("convert -seed 8 -size 301x203" + texture + "PNG24:'" + home.path("s8.png") + "'");
    run("convert -seed 9 -size 301x203" + texture +
        "'(' -size 203x301 gradient:white-gray20 -rotate 90 ')' -alpha off -compose CopyOpacity "
        "-composite -depth 16 PNG64:'" +
        home.path("s16.png") + "'");
}

}  // namespace

namespace {

// Draws `name` whole and in strips with every method, and expects the same file both ways.
void expectStripsWriteTheWholeFile(const TestHome& home, const std::string& name,
                                   std::initializer_list<std::int64_t> orientations,
                                   const std::vector<VRFormat>& formats) {
    const platform::PlistDictionary properties{{"DPIWidth", 144.0}, {"DPIHeight", 144.0}};
    const auto source = decode(home.path(name));
    ASSERT_TRUE(source) << name;
    for (const auto& m : kMethods)
        for (std::int64_t orientation : orientations)
            for (const auto& format : formats) {
                SCOPED_TRACE(name + " " + m.name + " orientation " + std::to_string(orientation) +
                             " to " + format.extension());
                const std::string whole = home.path("whole." + format.extension());
                const std::string strips = home.path("strips." + format.extension());
                auto drawn =
                    VRRenderCGImage(*source, orientation, platform::kCGInterpolationHigh, m.fill,
                                    m.bits, 1, 0, CGRect{}, m.target, m.displacement);
                ASSERT_TRUE(drawn);
                ASSERT_TRUE(VRWriteImageFile(*drawn, 0, format, whole, properties));

                auto image = VRImage::imageWithData(bytesOf(home.path(name)));
                ASSERT_TRUE(image);
                auto streamed = VRStreamedPhoto::make(*image, orientation, m.fill, m.bits, m.target,
                                                      m.displacement, 1, format);
                ASSERT_TRUE(streamed);
                EXPECT_EQ(streamed->pixelSize().width, double(drawn->width()));
                EXPECT_EQ(streamed->pixelSize().height, double(drawn->height()));
                platform::ErrorRef error;
                ASSERT_EQ(streamed->write(strips, properties, nullptr, &error),
                          VRStreamedPhoto::Outcome::written)
                    << (error ? error->description() : "");
                EXPECT_TRUE(bytesOf(whole) == bytesOf(strips)) << "the files differ";
            }
}

}  // namespace

TEST(StreamedPhotoWritingMedia, StripsWriteTheFileTheWholeBitmapWrites) {
    TestHome home;
    makeSources(home);
    const std::vector<VRFormat> formats = {
        VRFormat(VRFormatTypeJPEG, VRFormatMediaTypePhoto, 0.85f),
        VRFormat(VRFormatTypePNG, VRFormatMediaTypePhoto, 1.0f)};
    for (const char* name : {"s.jpg", "s8.png", "s16.png"})
        expectStripsWriteTheWholeFile(home, name, {0, 4}, formats);  // up, mirrored side to side
}

// TIFF rows come as stored for plain strips, and through libtiff's RGBA reader a strip or a
// row of tiles at a time for the other layouts; each must give the whole decode's pixels.
TEST(StreamedPhotoWritingMedia, TiffLayoutsInStripsWriteTheFileTheWholeBitmapWrites) {
    TestHome home;
    makeSources(home);
    struct Layout {
        const char* name;
        const char* options;
    } layouts[] = {
        {"strips8lzw.tif", "-depth 8 -compress LZW"},
        {"strips16alpha-zip.tif", "-depth 16 -compress Zip"},
        {"gray16none.tif", "-colorspace Gray -depth 16 -compress None"},
        {"tiles8none.tif", "-alpha off -depth 8 -compress None -define tiff:tile-geometry=64x48"},
        {"tiles16alpha-lzw.tif", "-depth 16 -compress LZW -define tiff:tile-geometry=64x48"},
        {"planar8alpha-zip.tif", "-depth 8 -interlace Plane -compress Zip"},
        {"ycbcr-jpeg.tif", "-alpha off -compress JPEG -quality 90"},
        {"palette.tif", "-alpha off -colors 40 -type Palette -compress LZW"},
    };
    const std::vector<VRFormat> png = {VRFormat(VRFormatTypePNG, VRFormatMediaTypePhoto, 1.0f)};
    for (const auto& l : layouts) {
        // s16.png has a soft alpha; "-alpha off" drops it where the layout has none.
        run(std::string("convert '") + home.path("s16.png") + "' " + l.options +
            " 'TIFF:" + home.path(l.name) + "'");
        expectStripsWriteTheWholeFile(home, l.name, {0, 4}, png);
    }
}

TEST(StreamedPhotoWritingMedia, ReducedDecodeInStripsMatchesTheReducedBitmap) {
    TestHome home;
    run("convert -seed 5 -size 640x480 plasma:fractal -quality 90 '" + home.path("big.jpg") + "'");
    const VRFormat jpeg(VRFormatTypeJPEG, VRFormatMediaTypePhoto, 0.85f);
    auto whole = VRImage::imageWithData(bytesOf(home.path("big.jpg")));
    ASSERT_TRUE(whole);
    ASSERT_EQ(whole->decodeReduced(2), 2u);
    auto drawn = VRRenderCGImage(whole->cgImage(), 0, platform::kCGInterpolationHigh, std::nullopt,
                                 kBase, 1, 0, CGRect{}, {150, 110}, {0, 0});
    ASSERT_TRUE(drawn);
    ASSERT_TRUE(VRWriteImageFile(*drawn, 0, jpeg, home.path("whole.jpg"), std::nullopt));

    auto image = VRImage::imageWithData(bytesOf(home.path("big.jpg")));
    auto streamed =
        VRStreamedPhoto::make(*image, 0, std::nullopt, kBase, {150, 110}, {0, 0}, 2, jpeg);
    ASSERT_TRUE(streamed);
    ASSERT_EQ(streamed->write(home.path("strips.jpg"), std::nullopt, nullptr, nullptr),
              VRStreamedPhoto::Outcome::written);
    EXPECT_TRUE(bytesOf(home.path("whole.jpg")) == bytesOf(home.path("strips.jpg")));
}

// A sideways stretch repeats one geometry strip after strip, so the strips share their
// resampling graphs, two bands of each at once; the strips at the top and bottom, whose
// filters meet the picture's edges, must not take the middle's. Stretched both ways, every
// strip samples the source at its own phase.
TEST(StreamedPhotoWritingMedia, StripsSharingTheirGeometryDrawWhatTheWholeBitmapDraws) {
    TestHome home;
    struct BandsGuard {
        ~BandsGuard() { platform::BitmapContext::setDrawingBands(0); }
    } guard;
    platform::BitmapContext::setDrawingBands(2);
    run("convert -seed 11 -size 150x700 plasma:fractal -blur 0x1 -quality 92 '" +
        home.path("tall.jpg") + "'");
    const VRFormat jpeg(VRFormatTypeJPEG, VRFormatMediaTypePhoto, 0.85f);
    const CGSize targets[] = {{200, 700}, {200, 433}, {120, 700}};
    for (const CGSize target : targets) {
        SCOPED_TRACE(std::to_string(target.width) + " x " + std::to_string(target.height));
        auto image = VRImage::imageWithData(bytesOf(home.path("tall.jpg")));
        ASSERT_TRUE(image);
        auto drawn = VRRenderCGImage(image->cgImage(), 0, platform::kCGInterpolationHigh,
                                     std::nullopt, kBase, 1, 0, CGRect{}, target, {0, 0});
        ASSERT_TRUE(drawn);
        ASSERT_TRUE(VRWriteImageFile(*drawn, 0, jpeg, home.path("whole.jpg"), std::nullopt));
        auto fresh = VRImage::imageWithData(bytesOf(home.path("tall.jpg")));
        auto streamed =
            VRStreamedPhoto::make(*fresh, 0, std::nullopt, kBase, target, {0, 0}, 1, jpeg);
        ASSERT_TRUE(streamed);
        ASSERT_EQ(streamed->write(home.path("strips.jpg"), std::nullopt, nullptr, nullptr),
                  VRStreamedPhoto::Outcome::written);
        EXPECT_TRUE(bytesOf(home.path("whole.jpg")) == bytesOf(home.path("strips.jpg")));
    }
}

TEST(StreamedPhotoWritingMedia, WhatCannotStreamIsLeftToTheWholeBitmap) {
    TestHome home;
    makeSources(home);
    run("convert -size 64x48 gradient:red-blue -interlace PNG PNG24:'" + home.path("i.png") + "'");
    const std::string tiff8 = "convert '" + home.path("s8.png") + "' -depth 8 ";
    run(tiff8 + "-colorspace CMYK 'TIFF:" + home.path("cmyk.tif") + "'");
    run(tiff8 + "-monochrome -depth 1 'TIFF:" + home.path("bilevel.tif") + "'");
    run(tiff8 + "-define tiff:tile-geometry=64x48 -orient bottom-left 'TIFF:" +
        home.path("bottomup.tif") + "'");
    const VRFormat jpeg(VRFormatTypeJPEG, VRFormatMediaTypePhoto, 0.85f);
    const VRFormat tiff(VRFormatTypeTIFF, VRFormatMediaTypePhoto, 1.0f);
    struct Case {
        const char* source;
        std::int64_t orientation;
        const VRFormat* format;
        const char* why;
    } cases[] = {
        {"s.jpg", 1, &jpeg, "upside down"},
        {"s.jpg", 2, &jpeg, "a quarter turn"},
        {"s.jpg", 3, &jpeg, "a quarter turn"},
        {"s.jpg", 5, &jpeg, "mirrored upside down"},
        {"s.jpg", 6, &jpeg, "mirrored, turned"},
        {"s8.png", 0, &tiff, "a writer without rows"},
        {"i.png", 0, &jpeg, "an interlaced PNG"},
        {"cmyk.tif", 0, &jpeg, "a CMYK TIFF"},
        {"bilevel.tif", 0, &jpeg, "a TIFF of one bit per sample"},
        {"bottomup.tif", 0, &jpeg, "a tiled TIFF stored bottom up"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.source) + ": " + c.why);
        auto image = VRImage::imageWithData(bytesOf(home.path(c.source)));
        ASSERT_TRUE(image);
        EXPECT_FALSE(VRStreamedPhoto::make(*image, c.orientation, std::nullopt, kBase, {100, 80},
                                           {0, 0}, 1, *c.format));
        // The image keeps its bytes for the whole-bitmap path.
        EXPECT_FALSE(image->cgImage().isNull());
    }
}

TEST(StreamedPhotoWritingMedia, DamagedOrCancelledWritesLeaveNoFile) {
    TestHome home;
    run("convert -seed 3 -size 300x400 plasma:fractal -quality 90 '" + home.path("s.jpg") + "'");
    auto bytes = bytesOf(home.path("s.jpg"));
    const VRFormat jpeg(VRFormatTypeJPEG, VRFormatMediaTypePhoto, 0.85f);
    const std::vector<std::uint8_t> cut(bytes.begin(), bytes.begin() + bytes.size() / 2);
    const auto tiffCut = [](std::uint16_t planar) {
        auto tiff = uncompressedTiff(300, 400, planar);
        tiff.resize(tiff.size() * 2 / 3);
        return tiff;
    };
    struct Case {
        const char* name;
        std::vector<std::uint8_t> bytes;
        bool cancel;
        VRStreamedPhoto::Outcome outcome;
    } cases[] = {
        {"cut in half", cut, false, VRStreamedPhoto::Outcome::failed},
        {"tiff cut short", tiffCut(1), false, VRStreamedPhoto::Outcome::failed},
        {"planar tiff cut short", tiffCut(2), false, VRStreamedPhoto::Outcome::failed},
        {"cancelled", bytes, true, VRStreamedPhoto::Outcome::cancelled},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto image = VRImage::imageWithData(c.bytes);
        ASSERT_TRUE(image);
        auto streamed =
            VRStreamedPhoto::make(*image, 0, std::nullopt, kBase, {300, 400}, {0, 0}, 1, jpeg);
        ASSERT_TRUE(streamed);
        const std::string out = home.path(std::string(c.name) + ".jpg");
        platform::ErrorRef error;
        EXPECT_EQ(streamed->write(
                      out, std::nullopt, [&] { return c.cancel; }, &error),
                  c.outcome);
        EXPECT_FALSE(platform::FileManager::fileExistsAtPath(out));
        std::size_t left = 0;
        for (const auto& entry : std::filesystem::directory_iterator(home.root()))
            left += entry.path().filename().string().find(".part") != std::string::npos;
        EXPECT_EQ(left, 0u) << "a temporary file was left behind";
        if (c.outcome == VRStreamedPhoto::Outcome::failed) {
            EXPECT_TRUE(error);
        }
    }
}
