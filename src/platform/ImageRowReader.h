// Reads the pixels of an image source a band of rows at a time, top first, so that the whole
// picture is never in memory: the photo stage's streamed drawing takes its source rows from it.
// A thread of the reader's own decodes a few bands ahead of the rows asked for, so that
// decoding overlaps the drawing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/Bitmap.h"
#include "platform/Error.h"
#include "platform/ImageSource.h"

namespace platform {

namespace codecs {
class RowDecoder;
}

class BitmapStripQueue;

class ImageRowReader {
  public:
    // A reader of image 0 at 1/`denominator` of each side (1, or what
    // ImageSource::canDecodeReduced accepts). Null without an error where the format has no
    // row decoder (JPEG other than CMYK, PNG without interlacing, and TIFF in 8 or 16 bits other
    // than CMYK have one); null with an error where the header can't be read.
    static std::unique_ptr<ImageRowReader> create(std::shared_ptr<const ImageSource> source,
                                                  std::uint32_t denominator = 1,
                                                  ErrorRef* error = nullptr);
    ~ImageRowReader();

    // The picture's size, layout and colour space, as createImageAtIndex would give them: a
    // strip without rows.
    const Bitmap& shape() const { return _shape; }
    // A strip holding at least rows [first, end) (clamped to the picture), decoding on as far
    // as `end`. Rows above `first` may be forgotten, so `first` never goes back. The strip is
    // valid until the next call. Null with the decoder's reason when decoding fails or an
    // earlier row is asked for.
    const Bitmap* rows(std::size_t first, std::size_t end, ErrorRef* error = nullptr);

    // The source rows decoded a band at a time by the thread ahead.
    static constexpr std::size_t kAheadRows = 32;

  private:
    ImageRowReader() = default;
    void decodeAhead();
    bool nextRow(std::uint8_t* out, ErrorRef* error);
    std::shared_ptr<const ImageSource> _source;
    std::unique_ptr<codecs::RowDecoder> _decoder;
    std::unique_ptr<BitmapStripQueue> _ahead;
    std::thread _thread;
    std::string _why;  // the decoder's reason, set before the thread finishes the queue
    Bitmap _shape;
    Bitmap _strip;
    std::shared_ptr<std::vector<std::uint8_t>> _buffer;
    std::size_t _stride = 0;
    std::size_t _base = 0;     // the row at the start of the buffer
    std::size_t _decoded = 0;  // rows decoded so far
};

}  // namespace platform
