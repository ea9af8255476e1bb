#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/CVPixelBuffer.h"

namespace {

// Every sample of a plane gets a value from its plane, row and column, so that a sample
// moved to the wrong place or the wrong plane shows.
void paint(const CVPixelBuffer& b) {
    for (std::size_t p = 0; p < std::max<std::size_t>(1, b.planeCount()); ++p) {
        const CVPixelBuffer::Plane& plane = b.plane(p);
        const std::size_t bytes = plane.rowBytes;
        for (std::size_t r = 0; r < plane.height; ++r) {
            for (std::size_t x = 0; x < bytes; ++x) {
                plane.data[r * bytes + x] = static_cast<std::uint8_t>(p * 97 + r * 13 + x * 7);
            }
        }
    }
}

}  // namespace

// Interleaved and separate chroma hold the same samples: Cb is the even byte of a pair and
// goes to plane 1, Cr the odd one to plane 2, for odd and even sizes; and back again.
TEST(CVPixelBuffer, ChromaLayoutsHoldTheSameSamples) {
    struct Size {
        std::size_t width, height, chromaWidth, chromaHeight;
    };
    for (const Size s : {Size{6, 4, 3, 2}, Size{5, 3, 3, 2}, Size{1, 1, 1, 1}}) {
        SCOPED_TRACE(std::to_string(s.width) + "x" + std::to_string(s.height));
        auto pairs = CVPixelBuffer::create(kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, s.width,
                                           s.height);
        ASSERT_TRUE(pairs);
        paint(*pairs);
        pairs->setColorAttachments("p", "t", "m");
        CVPixelBufferRef split = CVPixelBufferCopyWithChromaLayout(pairs, true);
        ASSERT_TRUE(split);
        ASSERT_EQ(split->planeCount(), 3u);
        EXPECT_TRUE(split->hasSeparateChroma());
        EXPECT_EQ(split->yCbCrMatrix(), "m");
        for (std::size_t p : {1, 2}) {
            EXPECT_EQ(split->widthOfPlane(p), s.chromaWidth);
            EXPECT_EQ(split->heightOfPlane(p), s.chromaHeight);
        }
        for (std::size_t r = 0; r < s.height; ++r) {
            for (std::size_t x = 0; x < s.width; ++x) {
                ASSERT_EQ(split->plane(0).data[r * split->bytesPerRowOfPlane(0) + x],
                          pairs->plane(0).data[r * pairs->bytesPerRowOfPlane(0) + x]);
            }
        }
        for (std::size_t r = 0; r < s.chromaHeight; ++r) {
            for (std::size_t x = 0; x < s.chromaWidth; ++x) {
                const std::uint8_t* pair = pairs->plane(1).data + r * pairs->bytesPerRowOfPlane(1);
                EXPECT_EQ(split->plane(1).data[r * split->bytesPerRowOfPlane(1) + x], pair[2 * x]);
                EXPECT_EQ(split->plane(2).data[r * split->bytesPerRowOfPlane(2) + x],
                          pair[2 * x + 1]);
            }
        }
        CVPixelBufferRef back = CVPixelBufferCopyWithChromaLayout(split, false);
        ASSERT_TRUE(back);
        ASSERT_EQ(back->planeCount(), 2u);
        for (std::size_t r = 0; r < s.chromaHeight; ++r) {
            EXPECT_EQ(0, std::memcmp(back->plane(1).data + r * back->bytesPerRowOfPlane(1),
                                     pairs->plane(1).data + r * pairs->bytesPerRowOfPlane(1),
                                     2 * s.chromaWidth));
        }
        EXPECT_EQ(CVPixelBufferCopyWithChromaLayout(split, true), split) << "already so: no copy";
    }
}

// Only 8-bit 4:2:0 formats take separate chroma; a pool hands out the layout it was set to,
// and a buffer of the old layout given back is not handed out again after a change.
TEST(CVPixelBuffer, PoolsAndFormatsOfSeparateChroma) {
    struct Case {
        OSType format;
        bool separate;
        std::size_t planes;
    };
    for (const Case c : {Case{kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, true, 3},
                         Case{kCVPixelFormatType_420YpCbCr8BiPlanarFullRange, true, 3},
                         Case{kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, false, 2},
                         Case{kCVPixelFormatType_420YpCbCr10BiPlanarVideoRange, true, 2},
                         Case{kCVPixelFormatType_32BGRA, true, 0}}) {
        SCOPED_TRACE(NSStringFromFourCharCode(c.format) + (c.separate ? " separate" : ""));
        auto pool = CVPixelBufferPool::create(c.format, 8, 6);
        ASSERT_TRUE(pool);
        {
            CVPixelBufferRef old;
            ASSERT_EQ(pool->createPixelBuffer(&old), kCVReturnSuccess);
        }
        pool->setSeparateChroma(c.separate);
        CVPixelBufferRef b;
        ASSERT_EQ(pool->createPixelBuffer(&b), kCVReturnSuccess);
        EXPECT_EQ(b->planeCount(), c.planes);
        EXPECT_EQ(pool->separateChroma(), c.planes == 3);
    }
}
