// A row decoder that decodes ahead on a thread of its own, so that inflating or decoding the
// next rows overlaps the drawing and encoding of the last ones. Holds a few batches of rows.
#pragma once

#include <memory>

#include "platform/linux/ImageCodecs.h"

namespace platform::codecs {

// `decoder` run on its own thread, at most about `aheadBytes` of rows ahead of the reader.
std::unique_ptr<RowDecoder> readAhead(std::unique_ptr<RowDecoder> decoder,
                                      std::size_t aheadBytes = 2u << 20);

}  // namespace platform::codecs
