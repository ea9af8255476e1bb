// The pixel data of a PNG, compressed on all cores, for the PNG writer. The rows are cut into
// groups of about 512 KB, each filtered on its own (Paeth on every row, the first reading the
// row before the group) and deflated by zlib on its own, ending on a sync flush, so that the
// pieces joined in order make one zlib stream, closed by one Adler-32 combined from the
// groups' own. Each piece goes to the sink as soon as the groups before it have gone: neither
// the filtered picture nor its compressed form is ever whole in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace platform::codecs {

class PngIdatWriter {
  public:
    // Takes the stream's bytes in order, one piece per call (the writer makes each an IDAT
    // chunk), on the thread that calls commitRow and finish. False stops the writer.
    using Sink = std::function<bool(const std::uint8_t* data, std::size_t size)>;
    // What zlib looks for: repeated strings (its "filtered" strategy, as libpng gives filtered
    // rows), or runs of one byte only, which on 16-bit samples is as small (their high bytes
    // filter to runs of zeros, the low ones to noise that no string matches) at a quarter of
    // the work.
    enum class Matching { strings, runs };

    // Rows of `rowBytes` raw bytes, `pixelBytes` to a pixel (the filter's reach), `height`
    // of them, deflated at zlib's `level`. `threads` work side by side; 0 means one per core.
    PngIdatWriter(std::size_t rowBytes, std::size_t pixelBytes, std::size_t height,
                  Matching matching, int level, Sink sink, unsigned threads = 0);
    ~PngIdatWriter();
    PngIdatWriter(const PngIdatWriter&) = delete;
    PngIdatWriter& operator=(const PngIdatWriter&) = delete;

    // Room for the next raw row, in PNG byte order (16-bit samples big-endian); rowBytes long.
    std::uint8_t* nextRow();
    // Hands over the row written at nextRow(). False once the writer has failed.
    bool commitRow();
    // After the last row: waits for every group, writes the rest and the checksum. False with
    // the reason when a row is missing, compressing failed or the sink refused.
    bool finish(std::string& why);

    struct State;

  private:
    std::unique_ptr<State> _state;
};

}  // namespace platform::codecs
