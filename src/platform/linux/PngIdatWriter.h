// The pixel data of a PNG, compressed on all cores, for the PNG writer. The rows are cut into
// groups of about 512 KB, each filtered on its own (Paeth on every row, the first reading the
// row before the group). Then either each group is deflated by zlib on its own, ending on a
// sync flush, so that the pieces joined in order make one zlib stream, closed by one Adler-32
// combined from the groups' own; or the filtered rows are held whole and libdeflate makes the
// stream in one call, which is cheaper where its level 1 matches zlib's size (16-bit samples)
// but holds the filtered picture and its compressed form at once.
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
    enum class Deflater { zlibGroups, libdeflateWhole };

    // Rows of `rowBytes` raw bytes, `pixelBytes` to a pixel (the filter's reach), `height`
    // of them; `level` is the deflater's own. `threads` work side by side; 0 means one per core.
    PngIdatWriter(std::size_t rowBytes, std::size_t pixelBytes, std::size_t height,
                  Deflater deflater, int level, Sink sink, unsigned threads = 0);
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
