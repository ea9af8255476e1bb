#include "platform/PlaneScaling.h"

#include <gtest/gtest.h>
#include <zimg.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

namespace {

// A picture of W x H pixels of N channels of T, stored with a padded stride and an unaligned
// start, as a view narrowed by placement would be.
template <class T>
struct Image {
    std::size_t width, height, channels, rowBytes;
    std::vector<std::uint8_t> storage;
    T* pixels;

    Image(std::size_t w, std::size_t h, std::size_t n, std::size_t offset = 3)
        : width(w), height(h), channels(n), rowBytes(w * n * sizeof(T) + 7 * sizeof(T)) {
        storage.assign(rowBytes * h + offset * sizeof(T) + 64, 0xEE);
        pixels = reinterpret_cast<T*>(storage.data() + offset * sizeof(T));
    }
    T& at(std::size_t x, std::size_t y, std::size_t c) {
        return reinterpret_cast<T*>(reinterpret_cast<std::uint8_t*>(pixels) +
                                    y * rowBytes)[x * channels + c];
    }
    vImage_Buffer view() { return vImage_Buffer{pixels, height, width, rowBytes}; }
};

using ScaleFn = vImage_Error (*)(const vImage_Buffer*, const vImage_Buffer*, void*, vImage_Flags);

template <class T>
void fillRandom(Image<T>& image, unsigned seed, unsigned maxValue) {
    std::mt19937 rng(seed);
    for (std::size_t y = 0; y < image.height; ++y)
        for (std::size_t x = 0; x < image.width; ++x)
            for (std::size_t c = 0; c < image.channels; ++c)
                image.at(x, y, c) = static_cast<T>(rng() % (maxValue + 1));
}

// zimg's own Lanczos-3 greyscale resize of one plane, the reference for every form.
template <class T>
std::vector<T> zimgReference(const std::vector<T>& plane, unsigned sw, unsigned sh, unsigned dw,
                             unsigned dh) {
    zimg_image_format src, dst;
    zimg_image_format_default(&src, ZIMG_API_VERSION);
    zimg_image_format_default(&dst, ZIMG_API_VERSION);
    src.width = sw, src.height = sh, dst.width = dw, dst.height = dh;
    for (auto* f : {&src, &dst}) {
        f->pixel_type = sizeof(T) == 1 ? ZIMG_PIXEL_BYTE : ZIMG_PIXEL_WORD;
        f->depth = sizeof(T) * 8;
        f->color_family = ZIMG_COLOR_GREY;
        f->pixel_range = ZIMG_RANGE_FULL;
    }
    zimg_graph_builder_params params;
    zimg_graph_builder_params_default(&params, ZIMG_API_VERSION);
    params.resample_filter = ZIMG_RESIZE_LANCZOS;
    params.filter_param_a = 3;
    params.dither_type = ZIMG_DITHER_NONE;
    zimg_filter_graph* graph = zimg_filter_graph_build(&src, &dst, &params);
    size_t tmpSize = 0;
    zimg_filter_graph_get_tmp_size(graph, &tmpSize);
    const std::size_t srcStride = (sw * sizeof(T) + 63) / 64 * 64;
    const std::size_t dstStride = (dw * sizeof(T) + 63) / 64 * 64;
    void* in = std::aligned_alloc(64, srcStride * sh);
    void* out = std::aligned_alloc(64, dstStride * dh);
    void* tmp = std::aligned_alloc(64, (tmpSize + 63) / 64 * 64 + 64);
    for (unsigned y = 0; y < sh; ++y) {
        std::memcpy(static_cast<std::uint8_t*>(in) + y * srcStride, &plane[y * sw], sw * sizeof(T));
    }
    zimg_image_buffer_const sb{};
    sb.version = ZIMG_API_VERSION;
    sb.plane[0] = {in, static_cast<ptrdiff_t>(srcStride), ZIMG_BUFFER_MAX};
    zimg_image_buffer db{};
    db.version = ZIMG_API_VERSION;
    db.plane[0] = {out, static_cast<ptrdiff_t>(dstStride), ZIMG_BUFFER_MAX};
    EXPECT_EQ(zimg_filter_graph_process(graph, &sb, &db, tmp, nullptr, nullptr, nullptr, nullptr),
              0);
    std::vector<T> result(static_cast<std::size_t>(dw) * dh);
    for (unsigned y = 0; y < dh; ++y) {
        std::memcpy(&result[y * dw], static_cast<std::uint8_t*>(out) + y * dstStride,
                    dw * sizeof(T));
    }
    zimg_filter_graph_free(graph);
    std::free(in);
    std::free(out);
    std::free(tmp);
    return result;
}

template <class T>
std::vector<T> channelOf(Image<T>& image, std::size_t c) {
    std::vector<T> plane(image.width * image.height);
    for (std::size_t y = 0; y < image.height; ++y)
        for (std::size_t x = 0; x < image.width; ++x)
            plane[y * image.width + x] = image.at(x, y, c);
    return plane;
}

// Every form, on unaligned padded views, up and down, gives exactly zimg's own Lanczos result
// for each channel, and leaves the padding of its rows alone.
template <class T>
void expectMatchesZimg(ScaleFn scale, std::size_t channels, const char* name) {
    struct Case {
        std::size_t sw, sh, dw, dh;
    };
    // The wide ones are taken by zimg in column tiles, so the line callbacks get ranges that
    // start inside a row and are not whole blocks of samples.
    const Case cases[] = {{37, 23, 64, 50}, {64, 48, 21, 17},   {40, 30, 71, 30},
                          {1, 1, 5, 3},     {1000, 9, 1533, 7}, {3001, 4, 1002, 6}};
    for (const Case& k : cases) {
        SCOPED_TRACE(std::string(name) + " " + std::to_string(k.sw) + "x" + std::to_string(k.sh) +
                     " -> " + std::to_string(k.dw) + "x" + std::to_string(k.dh));
        Image<T> src(k.sw, k.sh, channels), dst(k.dw, k.dh, channels, 5);
        fillRandom(src, static_cast<unsigned>(k.sw * 31 + k.dh), sizeof(T) == 1 ? 255 : 65535);
        vImage_Buffer s = src.view(), d = dst.view();
        vImage_Error tmpSize =
            scale(&s, &d, nullptr, kvImageHighQualityResampling | kvImageGetTempBufferSize);
        ASSERT_GE(tmpSize, 0);
        std::vector<std::uint8_t> tmp(static_cast<std::size_t>(tmpSize) + 1);
        ASSERT_EQ(scale(&s, &d, tmp.data() + 1, kvImageHighQualityResampling), kvImageNoError);
        for (std::size_t c = 0; c < channels; ++c) {
            std::vector<T> expected = zimgReference(
                channelOf(src, c), static_cast<unsigned>(k.sw), static_cast<unsigned>(k.sh),
                static_cast<unsigned>(k.dw), static_cast<unsigned>(k.dh));
            EXPECT_EQ(channelOf(dst, c), expected) << "channel " << c;
        }
        const std::size_t rowEnd = k.dw * channels * sizeof(T);
        for (std::size_t y = 0; y < k.dh; ++y) {
            const auto* row = reinterpret_cast<const std::uint8_t*>(dst.pixels) + y * dst.rowBytes;
            for (std::size_t b = rowEnd; b < dst.rowBytes; ++b) ASSERT_EQ(row[b], 0xEE);
        }
    }
}

TEST(PlaneScalingTest, EveryFormMatchesZimgLanczosPerChannel) {
    expectMatchesZimg<std::uint8_t>(vImageScale_Planar8, 1, "Planar8");
    expectMatchesZimg<std::uint16_t>(vImageScale_Planar16U, 1, "Planar16U");
    expectMatchesZimg<std::uint8_t>(vImageScale_CbCr8, 2, "CbCr8");
    expectMatchesZimg<std::uint16_t>(vImageScale_CbCr16U, 2, "CbCr16U");
    expectMatchesZimg<std::uint8_t>(vImageScale_ARGB8888, 4, "ARGB8888");
    expectMatchesZimg<std::uint16_t>(vImageScale_ARGB16U, 4, "ARGB16U");
}

// Simple patterns come out exact: a flat picture stays flat in every channel at any size and
// with either filter, and the same size is a copy.
TEST(PlaneScalingTest, FlatPicturesAndSameSizeAreExact) {
    struct Case {
        std::size_t sw, sh, dw, dh;
        vImage_Flags flags;
    };
    const Case cases[] = {{50, 30, 50, 30, kvImageHighQualityResampling},
                          {50, 30, 133, 30, kvImageHighQualityResampling},
                          {50, 30, 17, 9, kvImageHighQualityResampling},
                          {50, 30, 75, 45, kvImageNoFlags}};
    const std::uint16_t levels[4] = {235, 16, 128, 255};
    for (const Case& k : cases) {
        SCOPED_TRACE(std::to_string(k.dw) + "x" + std::to_string(k.dh));
        Image<std::uint8_t> src(k.sw, k.sh, 4), dst(k.dw, k.dh, 4);
        for (std::size_t y = 0; y < k.sh; ++y)
            for (std::size_t x = 0; x < k.sw; ++x)
                for (std::size_t c = 0; c < 4; ++c)
                    src.at(x, y, c) = static_cast<std::uint8_t>(levels[c]);
        vImage_Buffer s = src.view(), d = dst.view();
        ASSERT_EQ(vImageScale_ARGB8888(&s, &d, nullptr, k.flags), kvImageNoError);
        for (std::size_t y = 0; y < k.dh; ++y)
            for (std::size_t x = 0; x < k.dw; ++x)
                for (std::size_t c = 0; c < 4; ++c) ASSERT_EQ(dst.at(x, y, c), levels[c]);

        Image<std::uint16_t> s16(k.sw, k.sh, 2), d16(k.dw, k.dh, 2);
        for (std::size_t y = 0; y < k.sh; ++y)
            for (std::size_t x = 0; x < k.sw; ++x) {
                s16.at(x, y, 0) = 4096;
                s16.at(x, y, 1) = 60160;
            }
        vImage_Buffer a = s16.view(), b = d16.view();
        ASSERT_EQ(vImageScale_CbCr16U(&a, &b, nullptr, k.flags), kvImageNoError);
        for (std::size_t y = 0; y < k.dh; ++y)
            for (std::size_t x = 0; x < k.dw; ++x) {
                ASSERT_EQ(d16.at(x, y, 0), 4096);
                ASSERT_EQ(d16.at(x, y, 1), 60160);
            }
    }
    Image<std::uint16_t> src(19, 7, 1), dst(19, 7, 1, 1);
    fillRandom(src, 7, 65535);
    vImage_Buffer s = src.view(), d = dst.view();
    ASSERT_EQ(vImageScale_Planar16U(&s, &d, nullptr, kvImageHighQualityResampling), kvImageNoError);
    EXPECT_EQ(channelOf(dst, 0), channelOf(src, 0));
}

// Fills write the colour in the buffer's channel order inside the view and nowhere else.
TEST(PlaneScalingTest, FillsStayInsideTheView) {
    Image<std::uint8_t> whole(10, 6, 2);
    vImage_Buffer inner{&whole.at(2, 1, 0), 3, 5, whole.rowBytes};
    const std::uint8_t cbcr[2] = {90, 240};
    ASSERT_EQ(vImageBufferFill_CbCr8(&inner, cbcr, kvImageNoFlags), kvImageNoError);
    for (std::size_t y = 0; y < 6; ++y)
        for (std::size_t x = 0; x < 10; ++x) {
            bool in = x >= 2 && x < 7 && y >= 1 && y < 4;
            EXPECT_EQ(whole.at(x, y, 0), in ? 90 : 0xEE) << x << "," << y;
            EXPECT_EQ(whole.at(x, y, 1), in ? 240 : 0xEE) << x << "," << y;
        }

    Image<std::uint16_t> argb(4, 2, 4);
    vImage_Buffer all = argb.view();
    const std::uint16_t color[4] = {65535, 1, 2, 3};
    ASSERT_EQ(vImageBufferFill_ARGB16U(&all, color, kvImageNoFlags), kvImageNoError);
    EXPECT_EQ(argb.at(3, 1, 0), 65535);
    EXPECT_EQ(argb.at(3, 1, 3), 3);

    Image<std::uint16_t> luma(3, 3, 1);
    vImage_Buffer l = luma.view();
    ASSERT_EQ(vImageOverwriteChannelsWithScalar_Planar16U(4096, &l, kvImageNoFlags),
              kvImageNoError);
    EXPECT_EQ(channelOf(luma, 0), std::vector<std::uint16_t>(9, 4096));
    Image<std::uint8_t> bgra(2, 2, 4);
    vImage_Buffer v = bgra.view();
    const std::uint8_t black[4] = {0, 0, 0, 255};
    ASSERT_EQ(vImageBufferFill_ARGB8888(&v, black, kvImageNoFlags), kvImageNoError);
    EXPECT_EQ(bgra.at(1, 1, 3), 255);
    Image<std::uint8_t> y8(3, 2, 1);
    vImage_Buffer yv = y8.view();
    ASSERT_EQ(vImageOverwriteChannelsWithScalar_Planar8(235, &yv, kvImageNoFlags), kvImageNoError);
    EXPECT_EQ(channelOf(y8, 0), std::vector<std::uint8_t>(6, 235));
}

TEST(PlaneScalingTest, BadViewsAreRefused) {
    Image<std::uint8_t> img(8, 8, 1);
    vImage_Buffer good = img.view();
    vImage_Buffer nullData = good;
    nullData.data = nullptr;
    vImage_Buffer zeroWidth = good;
    zeroWidth.width = 0;
    vImage_Buffer shortRows = good;
    shortRows.rowBytes = 4;
    struct Case {
        const char* name;
        vImage_Buffer src, dst;
        ScaleFn fn;
        vImage_Error expected;
    };
    const Case cases[] = {
        {"null source", nullData, good, vImageScale_Planar8, kvImageNullPointerArgument},
        {"zero width", good, zeroWidth, vImageScale_Planar8, kvImageInvalidParameter},
        {"rows shorter than width", shortRows, good, vImageScale_Planar8,
         kvImageRoiLargerThanInputBuffer},
        {"rows shorter than pairs", good, good, vImageScale_CbCr16U,
         kvImageRoiLargerThanInputBuffer},
    };
    for (const Case& k : cases) {
        EXPECT_EQ(k.fn(&k.src, &k.dst, nullptr, kvImageHighQualityResampling), k.expected)
            << k.name;
    }
    EXPECT_EQ(vImageScale_Planar8(nullptr, &good, nullptr, 0), kvImageNullPointerArgument);
}

}  // namespace
