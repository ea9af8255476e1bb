// The pixel data of a PNG without interlacing, of 8 or 16 bits a sample, row by row and
// unfiltered, for the row decoder. The IDAT chunks are walked and their checksums checked
// here, their stream is inflated by ISA-L (about three times zlib's speed, streaming, which
// libdeflate is not) and the rows are unfiltered here, with the Paeth filter that most
// photographs are written with on 8 or 16 lanes at once. The bytes are libpng's, in PNG order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace platform::codecs {

class PngPixelRows {
  public:
    // The file's bytes (kept by the caller), the raw bytes of a row, of a pixel (1 to 8), and
    // the rows.
    PngPixelRows(const std::uint8_t* data, std::size_t size, std::size_t rowBytes,
                 std::size_t pixelBytes, std::size_t height);
    ~PngPixelRows();
    PngPixelRows(const PngPixelRows&) = delete;
    PngPixelRows& operator=(const PngPixelRows&) = delete;

    // The next row, rowBytes long and valid until the next call; null with the reason when
    // the data are damaged or end early, or every row has been given.
    const std::uint8_t* next(std::string& why);

    struct Inflater;

  private:
    bool feed(std::string& why);

    const std::uint8_t* _data;
    std::size_t _size, _rowBytes, _pixelBytes, _height;
    std::size_t _at = 8;  // the next chunk to look at
    bool _inPixels = false, _pixelsEnded = false;
    std::size_t _given = 0;
    std::unique_ptr<Inflater> _inflater;
    std::vector<std::uint8_t> _filtered, _row, _prior;
};

// Undoes `filter` (0 to 4) on one row of `rowBytes`, `pixelBytes` to a pixel, against the
// unfiltered row above (zeros above the first). False for an unknown filter.
bool unfilterPngRow(std::uint8_t filter, const std::uint8_t* in, const std::uint8_t* prior,
                    std::size_t rowBytes, std::size_t pixelBytes, std::uint8_t* out);

}  // namespace platform::codecs
