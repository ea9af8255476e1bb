#include "platform/linux/PlaneInterleave.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

namespace {

// Lengths around the vector blocks (8 and 16 samples), with a sentinel after each row.
constexpr std::size_t kCounts[] = {0, 1, 7, 8, 9, 15, 16, 17, 31, 33, 100};
constexpr std::uint16_t kSentinel = 0xBEEF;

template <class T>
std::vector<T> randomRow(std::size_t n, unsigned seed, unsigned maxValue) {
    std::mt19937 rng(seed);
    std::vector<T> row(n);
    for (T& v : row) v = static_cast<T>(rng() % (maxValue + 1));
    return row;
}

TEST(PlaneInterleaveTest, EightBitPairsBothWays) {
    for (std::size_t n : kCounts) {
        SCOPED_TRACE(n);
        auto cb = randomRow<std::uint8_t>(n, 1, 255), cr = randomRow<std::uint8_t>(n, 2, 255);
        std::vector<std::uint8_t> pairs(2 * n + 1, 0xAB);
        platform::interleaveChroma8(cb.data(), cr.data(), pairs.data(), n);
        for (std::size_t i = 0; i < n; ++i) {
            ASSERT_EQ(pairs[2 * i], cb[i]) << i;
            ASSERT_EQ(pairs[2 * i + 1], cr[i]) << i;
        }
        EXPECT_EQ(pairs[2 * n], 0xAB);
        std::vector<std::uint8_t> b(n + 1, 0xAB), r(n + 1, 0xAB);
        platform::deinterleaveChroma8(pairs.data(), b.data(), r.data(), n);
        EXPECT_EQ(std::vector<std::uint8_t>(b.begin(), b.begin() + n), cb);
        EXPECT_EQ(std::vector<std::uint8_t>(r.begin(), r.begin() + n), cr);
        EXPECT_EQ(b[n], 0xAB);
        EXPECT_EQ(r[n], 0xAB);
    }
}

// 10 bits go to the top of 16 and come back rounded to the nearest, the top held at 1023.
TEST(PlaneInterleaveTest, TenBitSamplesMoveBetweenLowAndHighBits) {
    for (std::size_t n : kCounts) {
        SCOPED_TRACE(n);
        auto cb = randomRow<std::uint16_t>(n, 3, 1023), cr = randomRow<std::uint16_t>(n, 4, 1023);
        std::vector<std::uint16_t> pairs(2 * n + 1, kSentinel), luma(n + 1, kSentinel);
        platform::interleaveChroma10(cb.data(), cr.data(), pairs.data(), n);
        platform::widenLuma10(cb.data(), luma.data(), n);
        for (std::size_t i = 0; i < n; ++i) {
            ASSERT_EQ(pairs[2 * i], cb[i] * 64) << i;
            ASSERT_EQ(pairs[2 * i + 1], cr[i] * 64) << i;
            ASSERT_EQ(luma[i], cb[i] * 64) << i;
        }
        EXPECT_EQ(pairs[2 * n], kSentinel);
        EXPECT_EQ(luma[n], kSentinel);
        std::vector<std::uint16_t> b(n + 1, kSentinel), r(n + 1, kSentinel);
        platform::deinterleaveChroma10(pairs.data(), b.data(), r.data(), n);
        EXPECT_EQ(std::vector<std::uint16_t>(b.begin(), b.begin() + n), cb);
        EXPECT_EQ(std::vector<std::uint16_t>(r.begin(), r.begin() + n), cr);
        EXPECT_EQ(b[n], kSentinel);
    }

    // 16-bit samples from scaling land between the 10-bit steps and at the very top.
    struct Case {
        std::uint16_t in, out;
    };
    const Case cases[] = {{0, 0},        {31, 0},       {32, 1},       {95, 1},
                          {96, 2},       {60160, 940},  {65471, 1023}, {65503, 1023},
                          {65504, 1023}, {65535, 1023}, {0x8000, 512}, {0x7FFF, 512}};
    const std::size_t n = std::size(cases) * 2;  // more than one vector block
    std::vector<std::uint16_t> in(n), pairs(2 * n), expected(n), luma(n), cb(n), cr(n);
    for (std::size_t i = 0; i < n; ++i) {
        in[i] = cases[i % std::size(cases)].in;
        expected[i] = cases[i % std::size(cases)].out;
    }
    for (std::size_t i = 0; i < n; ++i) {
        pairs[2 * i] = in[i];
        pairs[2 * i + 1] = in[n - 1 - i];
    }
    platform::narrowLuma10(in.data(), luma.data(), n);
    platform::deinterleaveChroma10(pairs.data(), cb.data(), cr.data(), n);
    EXPECT_EQ(luma, expected);
    EXPECT_EQ(cb, expected);
    std::reverse(expected.begin(), expected.end());
    EXPECT_EQ(cr, expected);
}

}  // namespace
