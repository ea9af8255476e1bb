// The PNG decoder (its own inflating and unfiltering, row by row, ahead on a thread, and whole)
// against libpng's decoding of the same files.
#include <gtest/gtest.h>
#include <png.h>
#include <zlib.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "platform/ImageRowReader.h"
#include "platform/ImageSource.h"

using namespace platform;

namespace {

struct Shape {
    const char* name;
    int colorType, depth, filters;
    std::size_t width, height;
    bool trns = false;
};

void append(png_structp png, png_bytep data, png_size_t size) {
    auto* out = static_cast<std::vector<std::uint8_t>*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + size);
}

// A PNG of smooth shapes, texture and noise, written by libpng with the filters given, its
// pixel data cut into many small IDAT chunks.
std::vector<std::uint8_t> pngFile(const Shape& s) {
    std::vector<std::uint8_t> file;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(png, &file, append, nullptr);
    png_set_compression_buffer_size(png, 300);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, s.filters);
    png_set_IHDR(png, info, static_cast<png_uint_32>(s.width), static_cast<png_uint_32>(s.height),
                 s.depth, s.colorType, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    std::vector<png_color> palette(256);
    for (int i = 0; i < 256; ++i) palette[i] = {png_byte(i), png_byte(255 - i), png_byte(i * 7)};
    if (s.colorType == PNG_COLOR_TYPE_PALETTE) png_set_PLTE(png, info, palette.data(), 256);
    png_color_16 transparent{0, 10, 10, 10, 10};
    if (s.trns) png_set_tRNS(png, info, nullptr, 0, &transparent);
    png_write_info(png, info);
    const int channels = png_get_channels(png, info);
    const std::size_t rowBytes = s.width * channels * (s.depth / 8);
    std::vector<std::uint8_t> row(rowBytes);
    std::mt19937 random(static_cast<unsigned>(s.colorType * 100 + s.depth + s.filters));
    for (std::size_t y = 0; y < s.height; ++y) {
        for (std::size_t i = 0; i < rowBytes; ++i)
            row[i] = static_cast<std::uint8_t>(i / 3 + y * 2 + ((i * y) % 11) + random() % 6);
        png_write_row(png, row.data());
    }
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return file;
}

void consume(png_structp png, png_bytep out, png_size_t size) {
    auto* in = static_cast<std::pair<const std::uint8_t*, std::size_t>*>(png_get_io_ptr(png));
    if (size > in->second) png_error(png, "truncated");
    std::memcpy(out, in->first, size);
    in->first += size, in->second -= size;
}

using Rows = std::vector<std::vector<std::uint8_t>>;

// The rows libpng itself gives, in the layout the decoder promises: RGB with a fourth opaque
// sample, gray with alpha as RGBA, palettes and a transparent colour expanded, 16-bit samples
// in the machine's order. Empty when libpng fails.
Rows libpngRows(const std::vector<std::uint8_t>& file) {
    std::pair<const std::uint8_t*, std::size_t> in{file.data(), file.size()};
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    Rows rows;
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        return {};
    }
    png_set_read_fn(png, &in, consume);
    png_read_info(png, info);
    const int type = png_get_color_type(png, info), depth = png_get_bit_depth(png, info);
    const bool trns = png_get_valid(png, info, PNG_INFO_tRNS);
    if (type == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
    if (trns) png_set_tRNS_to_alpha(png);
    const bool alpha = (type & PNG_COLOR_MASK_ALPHA) || trns;
    const bool gray = type == PNG_COLOR_TYPE_GRAY || type == PNG_COLOR_TYPE_GRAY_ALPHA;
    if (gray && alpha) png_set_gray_to_rgb(png);
    if (!gray && !alpha) png_set_filler(png, depth == 16 ? 0xFFFF : 0xFF, PNG_FILLER_AFTER);
    if (depth == 16) png_set_swap(png);
    png_read_update_info(png, info);
    rows.assign(png_get_image_height(png, info),
                std::vector<std::uint8_t>(png_get_rowbytes(png, info)));
    for (auto& row : rows) png_read_row(png, row.data(), nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    return rows;
}

std::uint32_t bigEndian32(const std::uint8_t* p) {
    return (std::uint32_t(p[0]) << 24) | (std::uint32_t(p[1]) << 16) | (std::uint32_t(p[2]) << 8) |
           p[3];
}

// Where the IDAT chunk `index` starts.
std::size_t idatChunk(const std::vector<std::uint8_t>& file, int index) {
    for (std::size_t at = 8; at + 12 <= file.size(); at += 12 + bigEndian32(&file[at]))
        if (std::memcmp(&file[at + 4], "IDAT", 4) == 0 && index-- == 0) return at;
    return 0;
}

// Reads every row through the row reader, a few at a time; the failure's text, if any.
std::string readAllRows(const std::vector<std::uint8_t>& file, const Rows* whole,
                        std::size_t* rowsRead = nullptr) {
    auto reader = ImageRowReader::create(ImageSource::createWithData(file));
    if (!reader) return "no row reader";
    const Bitmap& shape = reader->shape();
    const std::size_t rowBytes = shape.width() * shape.layout().bytesPerPixel();
    for (std::size_t y = 0; y < shape.height(); y += 3) {
        ErrorRef error;
        const Bitmap* strip = reader->rows(y, y + 3, &error);
        if (!strip) return error ? error->localizedDescription() : "failed without a reason";
        for (std::size_t r = y; r < std::min(y + 3, shape.height()); ++r) {
            if (whole && (whole->at(r).size() != rowBytes ||
                          std::memcmp(strip->row(r), whole->at(r).data(), rowBytes) != 0))
                return "row " + std::to_string(r) + " differs";
            if (rowsRead) *rowsRead = r + 1;
        }
    }
    return {};
}

}  // namespace

TEST(PngRowsMedia, RowsAreLibpngsForEveryFilterColourTypeAndDepth) {
    const int all = PNG_ALL_FILTERS;
    const Shape shapes[] = {
        {"gray 8 paeth", PNG_COLOR_TYPE_GRAY, 8, PNG_FILTER_PAETH, 37, 9},
        {"gray 16 all", PNG_COLOR_TYPE_GRAY, 16, all, 37, 9},
        {"gray-alpha 8 all", PNG_COLOR_TYPE_GRAY_ALPHA, 8, all, 37, 9},
        {"gray-alpha 16 paeth", PNG_COLOR_TYPE_GRAY_ALPHA, 16, PNG_FILTER_PAETH, 37, 9},
        {"rgb 8 none", PNG_COLOR_TYPE_RGB, 8, PNG_FILTER_NONE, 37, 9},
        {"rgb 8 sub", PNG_COLOR_TYPE_RGB, 8, PNG_FILTER_SUB, 37, 9},
        {"rgb 8 paeth", PNG_COLOR_TYPE_RGB, 8, PNG_FILTER_PAETH, 37, 9},
        {"rgb 16 up", PNG_COLOR_TYPE_RGB, 16, PNG_FILTER_UP, 37, 9},
        {"rgb 16 paeth", PNG_COLOR_TYPE_RGB, 16, PNG_FILTER_PAETH, 37, 9},
        {"rgba 8 avg", PNG_COLOR_TYPE_RGB_ALPHA, 8, PNG_FILTER_AVG, 37, 9},
        {"rgba 8 paeth", PNG_COLOR_TYPE_RGB_ALPHA, 8, PNG_FILTER_PAETH, 37, 9},
        {"rgba 16 all", PNG_COLOR_TYPE_RGB_ALPHA, 16, all, 37, 9},
        {"rgba 16 paeth, one pixel wide", PNG_COLOR_TYPE_RGB_ALPHA, 16, PNG_FILTER_PAETH, 1, 5},
        {"rgba 16 paeth, many chunks", PNG_COLOR_TYPE_RGB_ALPHA, 16, PNG_FILTER_PAETH, 301, 120},
        // Through libpng's own transformations, decoded ahead all the same.
        {"palette", PNG_COLOR_TYPE_PALETTE, 8, all, 37, 9},
        {"rgb 8 with a transparent colour", PNG_COLOR_TYPE_RGB, 8, all, 37, 9, true},
    };
    for (const auto& s : shapes) {
        SCOPED_TRACE(s.name);
        const auto file = pngFile(s);
        const Rows reference = libpngRows(file);
        ASSERT_EQ(reference.size(), s.height);
        EXPECT_EQ(readAllRows(file, &reference), "");
        ErrorRef error;
        auto whole = ImageSource::createWithData(file)->createImageAtIndex(0, &error);
        ASSERT_TRUE(whole) << (error ? error->localizedDescription() : "");
        for (std::size_t y = 0; y < s.height; ++y)
            ASSERT_EQ(std::memcmp(whole->row(y), reference[y].data(), reference[y].size()), 0)
                << "row " << y << " of the whole decode";
    }
}

TEST(PngRowsMedia, DamagedPixelDataFailsAfterTheRowsBeforeIt) {
    const Shape shape{"rgba 16", PNG_COLOR_TYPE_RGB_ALPHA, 16, PNG_FILTER_PAETH, 200, 60};
    const auto good = pngFile(shape);
    const Rows whole = libpngRows(good);
    ASSERT_EQ(whole.size(), shape.height);
    int chunks = 0;
    while (idatChunk(good, chunks)) ++chunks;
    // A chunk halfway through the pixel data.
    const std::size_t middle = idatChunk(good, chunks / 2);
    ASSERT_GT(chunks, 10);
    struct Damage {
        const char* name;
        std::vector<std::uint8_t> file;
        const char* reason;
    };
    auto truncated = good;
    truncated.resize(middle + 20);
    auto badChecksum = good;
    badChecksum[middle + 9] ^= 0x40;
    auto badData = badChecksum;  // the same change under a checksum that matches it
    const std::uint32_t length = bigEndian32(&badData[middle]);
    const auto crc = static_cast<std::uint32_t>(crc32(0, &badData[middle + 4], length + 4));
    for (int i = 0; i < 4; ++i)
        badData[middle + 8 + length + i] = std::uint8_t(crc >> (24 - 8 * i));
    // The stream's header asking for a preset dictionary, under matching checksums.
    auto dictionary = good;
    const std::size_t first = idatChunk(good, 0);
    std::uint8_t& flags = dictionary[first + 9];
    flags = static_cast<std::uint8_t>((flags & 0xC0) | 0x20);
    flags =
        static_cast<std::uint8_t>(flags + (31 - (dictionary[first + 8] * 256 + flags) % 31) % 31);
    const std::uint32_t firstLength = bigEndian32(&dictionary[first]);
    const auto firstCrc =
        static_cast<std::uint32_t>(crc32(0, &dictionary[first + 4], firstLength + 4));
    for (int i = 0; i < 4; ++i)
        dictionary[first + 8 + firstLength + i] = std::uint8_t(firstCrc >> (24 - 8 * i));
    const Damage damages[] = {
        {"cut inside the pixel data", truncated, "Not enough image data"},
        {"a wrong checksum", badChecksum, "CRC error"},
        {"a preset dictionary", dictionary, ""},
    };
    for (const auto& d : damages) {
        SCOPED_TRACE(d.name);
        std::size_t rowsRead = 0;
        const std::string failure = readAllRows(d.file, &whole, &rowsRead);
        EXPECT_NE(failure.find("could not be decoded"), std::string::npos) << failure;
        EXPECT_NE(failure.find(d.reason), std::string::npos) << failure;
        // The rows of the chunks before the damage came, and matched.
        if (d.file != dictionary) {
            EXPECT_GT(rowsRead, 0u);
        }
        EXPECT_LT(rowsRead, shape.height);
        // And the whole decode fails alike.
        ErrorRef error;
        EXPECT_FALSE(ImageSource::createWithData(d.file)->createImageAtIndex(0, &error));
        EXPECT_TRUE(error);
    }
    // Compressed data changed under a matching chunk checksum may still inflate, to other
    // pixels whose stream checksum libpng does not hold against them: the rows are then
    // libpng's, or both fail.
    const Rows garbled = libpngRows(badData);
    const std::string failure = readAllRows(badData, garbled.empty() ? nullptr : &garbled);
    if (!garbled.empty())
        EXPECT_EQ(failure, "");
    else
        EXPECT_NE(failure.find("could not be decoded"), std::string::npos) << failure;
}

TEST(PngRowsMedia, AReaderDroppedWhileDecodingAheadStopsItsDecoder) {
    const Shape shape{"rgba 8", PNG_COLOR_TYPE_RGB_ALPHA, 8, PNG_FILTER_PAETH, 600, 2000};
    const auto file = pngFile(shape);
    for (std::size_t rows : {0, 1, 700}) {
        auto reader = ImageRowReader::create(ImageSource::createWithData(file));
        ASSERT_TRUE(reader);
        if (rows) {
            ASSERT_TRUE(reader->rows(0, rows));
        }
        reader.reset();  // joins a decoder that waits for room, or is still decoding
    }
}
