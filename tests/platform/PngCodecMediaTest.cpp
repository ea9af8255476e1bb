#include <gtest/gtest.h>
#include <png.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "platform/ImageDestination.h"
#include "platform/ImagePropertyKeys.h"
#include "platform/ImageSource.h"
#include "support/TestHome.h"

using namespace platform;
using testing_support::TestHome;

namespace {

// A photograph-like picture: smooth shapes, texture and a little noise.
Bitmap picture(std::size_t w, std::size_t h, int bits, bool alpha) {
    PixelLayout layout{bits, 3, alpha ? kCGImageAlphaLast : kCGImageAlphaNoneSkipLast};
    std::vector<std::uint8_t> px(w * h * layout.bytesPerPixel());
    std::mt19937 random(11);
    for (std::size_t y = 0; y < h; ++y)
        for (std::size_t x = 0; x < w; ++x)
            for (int k = 0; k < 4; ++k) {
                double v = k == 3 ? (alpha ? 0.5 + 0.5 * std::sin(x * 0.01) : 1.0)
                                  : 0.5 + 0.3 * std::sin(x * (0.01 + 0.005 * k) + y * 0.02) +
                                        0.1 * std::sin((x + y) * 0.1) + (random() % 64) / 2000.0;
                std::size_t at = (y * w + x) * 4 + k;
                if (bits == 16) {
                    auto s = static_cast<std::uint16_t>(std::lround(v * 65535));
                    std::memcpy(&px[at * 2], &s, 2);
                } else {
                    px[at] = static_cast<std::uint8_t>(std::lround(v * 255));
                }
            }
    return Bitmap(w, h, layout, ColorSpace::deviceRGB(), std::move(px));
}

std::vector<std::uint8_t> bytesOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The bytes of all IDAT chunks of a PNG file.
std::size_t idatBytes(const std::vector<std::uint8_t>& file) {
    std::size_t total = 0;
    for (std::size_t at = 8; at + 12 <= file.size();) {
        std::size_t length = (std::size_t(file[at]) << 24) | (std::size_t(file[at + 1]) << 16) |
                             (std::size_t(file[at + 2]) << 8) | file[at + 3];
        if (std::memcmp(&file[at + 4], "IDAT", 4) == 0) total += length;
        at += 12 + length;
    }
    return total;
}

// The same picture through libpng's own serial writer at the same settings (zlib level 4,
// Paeth on every row).
std::vector<std::uint8_t> libpngReference(const Bitmap& image, bool alpha,
                                          const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file);
    png_set_compression_level(png, 4);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_PAETH);
    const int bits = static_cast<int>(image.bitsPerComponent());
    png_set_IHDR(png, info, static_cast<png_uint_32>(image.width()),
                 static_cast<png_uint_32>(image.height()), bits,
                 alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    if (bits == 16) png_set_swap(png);
    if (!alpha) png_set_filler(png, 0, PNG_FILLER_AFTER);
    for (std::size_t y = 0; y < image.height(); ++y)
        png_write_row(png, const_cast<png_bytep>(image.row(y)));
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    std::fclose(file);
    return bytesOf(path);
}

}  // namespace

TEST(PngCodecMedia, PicturesOfManyRowGroupsReadBackExactlyAndAsSmallAsLibpngWritesThem) {
    TestHome home;
    struct Case {
        const char* name;
        int bits;
        bool alpha;
    } cases[] = {
        {"rgba16.png", 16, true},
        {"rgb16.png", 16, false},
        {"rgba8.png", 8, true},
        {"rgb8.png", 8, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        // Large enough for several groups of rows at every depth.
        Bitmap original = picture(700, 600, c.bits, c.alpha);
        std::string path = home.path(c.name);
        auto destination = ImageDestination::createWithURL(path, "public.png", 1);
        ASSERT_TRUE(destination);
        destination->addImage(original, {});
        ASSERT_TRUE(destination->finalize());

        auto back = ImageSource::createWithURL(path)->createImageAtIndex(0);
        ASSERT_TRUE(back);
        ASSERT_EQ(back->width(), original.width());
        ASSERT_EQ(back->height(), original.height());
        EXPECT_EQ(back->bitsPerComponent(), original.bitsPerComponent());
        std::size_t differing = 0;
        for (std::size_t y = 0; y < original.height(); ++y)
            for (std::size_t x = 0; x < original.width(); ++x) {
                auto a = original.pixelAt(x, y), b = back->pixelAt(x, y);
                differing += a.r != b.r || a.g != b.g || a.b != b.b || a.a != b.a;
            }
        EXPECT_EQ(differing, 0u);

        const double ours = static_cast<double>(idatBytes(bytesOf(path)));
        const double serial = static_cast<double>(
            idatBytes(libpngReference(original, c.alpha, home.path(std::string("ref-") + c.name))));
        EXPECT_LT(std::abs(ours - serial) / serial, 0.01) << ours << " against " << serial;
    }
}
