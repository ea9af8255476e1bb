#include "platform/linux/PngIdatWriter.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

using platform::codecs::PngIdatWriter;

namespace {

// Rows with gradients, texture and noise, so that filtering and matching both matter.
std::vector<std::uint8_t> rows(std::size_t rowBytes, std::size_t height, unsigned seed) {
    std::vector<std::uint8_t> raw(rowBytes * height);
    std::mt19937 random(seed);
    for (std::size_t y = 0; y < height; ++y)
        for (std::size_t i = 0; i < rowBytes; ++i)
            raw[y * rowBytes + i] =
                static_cast<std::uint8_t>(i / 7 + y / 3 + ((i * y) % 13) + random() % 4);
    return raw;
}

struct Written {
    std::vector<std::uint8_t> stream;  // the pieces joined
    std::size_t pieces = 0;
    bool ok = false;
    std::string why;
};

using Matching = PngIdatWriter::Matching;

Written compress(const std::vector<std::uint8_t>& raw, std::size_t rowBytes, std::size_t pixelBytes,
                 unsigned threads, std::size_t rowsGiven, Matching matching = Matching::strings) {
    Written w;
    const std::size_t height = raw.size() / rowBytes;
    PngIdatWriter writer(
        rowBytes, pixelBytes, height, matching, 4,
        [&](const std::uint8_t* data, std::size_t size) {
            w.stream.insert(w.stream.end(), data, data + size);
            ++w.pieces;
            return true;
        },
        threads);
    for (std::size_t y = 0; y < rowsGiven; ++y) {
        std::copy_n(raw.data() + y * rowBytes, rowBytes, writer.nextRow());
        if (!writer.commitRow()) break;
    }
    w.ok = writer.finish(w.why);
    return w;
}

// The rows back from a zlib stream, as a PNG reader undoes the Paeth filter. zlib checks the
// header and the Adler-32 at the end.
std::vector<std::uint8_t> decode(const std::vector<std::uint8_t>& stream, std::size_t rowBytes,
                                 std::size_t pixelBytes, std::size_t height, std::string& why) {
    std::vector<std::uint8_t> filtered((rowBytes + 1) * height + 1);
    uLongf length = filtered.size();
    if (uncompress(filtered.data(), &length, stream.data(), stream.size()) != Z_OK)
        return why = "zlib refused the stream", std::vector<std::uint8_t>{};
    if (length != (rowBytes + 1) * height) return why = "wrong length", std::vector<std::uint8_t>{};
    std::vector<std::uint8_t> raw(rowBytes * height);
    for (std::size_t y = 0; y < height; ++y) {
        const std::uint8_t* in = filtered.data() + y * (rowBytes + 1);
        if (in[0] != 4) return why = "row " + std::to_string(y) + " not Paeth", raw;
        std::uint8_t* out = raw.data() + y * rowBytes;
        for (std::size_t i = 0; i < rowBytes; ++i) {
            int a = i >= pixelBytes ? out[i - pixelBytes] : 0;
            int b = y ? out[i - rowBytes] : 0;
            int c = y && i >= pixelBytes ? out[i - rowBytes - pixelBytes] : 0;
            int p = a + b - c, pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
            int predicted = pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
            out[i] = static_cast<std::uint8_t>(in[1 + i] + predicted);
        }
    }
    return raw;
}

// What one serial zlib stream at the writer's settings makes of the same filtered rows.
std::size_t serialSize(const std::vector<std::uint8_t>& raw, std::size_t rowBytes,
                       std::size_t pixelBytes, Matching matching) {
    const std::size_t height = raw.size() / rowBytes;
    // The filtered bytes, from the writer's own stream (checked above), deflated in one piece.
    Written w = compress(raw, rowBytes, pixelBytes, 1, height, matching);
    std::vector<std::uint8_t> filtered((rowBytes + 1) * height);
    uLongf length = filtered.size();
    uncompress(filtered.data(), &length, w.stream.data(), w.stream.size());
    z_stream z{};
    deflateInit2(&z, 4, Z_DEFLATED, 15, 8, matching == Matching::runs ? Z_RLE : Z_FILTERED);
    std::vector<std::uint8_t> serial(deflateBound(&z, length));
    z.next_in = filtered.data();
    z.avail_in = static_cast<uInt>(length);
    z.next_out = serial.data();
    z.avail_out = static_cast<uInt>(serial.size());
    deflate(&z, Z_FINISH);
    deflateEnd(&z);
    return z.total_out;
}

}  // namespace

TEST(PngIdatWriter, RowsComeBackExactlyFromOneStreamWhateverTheGroupsAndThreads) {
    struct Case {
        const char* what;
        std::size_t rowBytes, pixelBytes, height;
    } cases[] = {
        {"one row", 300, 3, 1},
        {"one group, 8-bit RGB", 300, 3, 40},
        {"many groups, 16-bit RGBA", 1080 * 8, 8, 300},
        {"many groups, grey", 2000, 1, 900},
        {"one-pixel rows", 1, 1, 1200000},
        {"rows wider than a group", 300000 * 2, 2, 5},
    };
    for (const auto& c : cases) {
        auto raw = rows(c.rowBytes, c.height, 7);
        for (Matching matching : {Matching::strings, Matching::runs}) {
            SCOPED_TRACE(std::string(c.what) +
                         (matching == Matching::strings ? ", strings" : ", runs"));
            std::vector<std::uint8_t> first;
            for (unsigned threads : {1u, 2u, 5u}) {
                SCOPED_TRACE(threads);
                Written w = compress(raw, c.rowBytes, c.pixelBytes, threads, c.height, matching);
                ASSERT_TRUE(w.ok) << w.why;
                std::string why;
                EXPECT_TRUE(decode(w.stream, c.rowBytes, c.pixelBytes, c.height, why) == raw)
                    << why;
                // The stream does not depend on how many threads made it.
                if (first.empty()) first = w.stream;
                EXPECT_TRUE(w.stream == first);
            }
        }
    }
}

TEST(PngIdatWriter, GroupsCompressWithinOnePercentOfOneSerialStream) {
    struct Case {
        std::size_t rowBytes, pixelBytes, height;
        Matching matching;
    } cases[] = {{1080 * 8, 8, 400, Matching::strings},
                 {3000 * 3, 3, 300, Matching::strings},
                 {1080 * 8, 8, 400, Matching::runs}};
    for (const auto& c : cases) {
        auto raw = rows(c.rowBytes, c.height, 3);
        Written w = compress(raw, c.rowBytes, c.pixelBytes, 2, c.height, c.matching);
        ASSERT_TRUE(w.ok) << w.why;
        EXPECT_GT(w.pieces, 3u) << "the picture is cut into groups";
        const double serial =
            static_cast<double>(serialSize(raw, c.rowBytes, c.pixelBytes, c.matching));
        EXPECT_LT(std::abs(static_cast<double>(w.stream.size()) - serial) / serial, 0.01)
            << w.stream.size() << " against " << serial;
    }
}

TEST(PngIdatWriter, MissingRowsAndARefusingSinkFailWithAReason) {
    auto raw = rows(4000, 600, 5);
    for (Matching matching : {Matching::strings, Matching::runs}) {
        Written shortOf = compress(raw, 4000, 4, 2, 599, matching);
        EXPECT_FALSE(shortOf.ok);
        EXPECT_EQ(shortOf.why, "the picture ended early");
        EXPECT_TRUE(shortOf.stream.empty());
    }

    for (std::size_t refuseAt : {0u, 2u}) {
        std::size_t calls = 0;
        PngIdatWriter writer(
            4000, 4, 600, Matching::strings, 4,
            [&](const std::uint8_t*, std::size_t) { return calls++ < refuseAt; }, 2);
        for (std::size_t y = 0; y < 600; ++y) {
            std::copy_n(raw.data() + y * 4000, 4000, writer.nextRow());
            if (!writer.commitRow()) break;
        }
        std::string why;
        EXPECT_FALSE(writer.finish(why)) << refuseAt;
        EXPECT_EQ(why, "writing failed");
        EXPECT_EQ(calls, refuseAt + 1) << "nothing more is written after a refusal";
    }
}
